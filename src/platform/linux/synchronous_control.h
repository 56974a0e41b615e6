#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "platform/device.h"
#include "platform/linux/control_socket.h"

namespace sonivo::linux {

/// A handle whose requests are done when the call returns. They go one after another, each as one packet to the driver
/// and one back, on the caller's thread. A request that the driver doesn't answer within the limit fails with
/// error::kDeviceNotConnected, as do all later ones: the handle is one of a driver that is gone. The driver may do what
/// it was asked all the same, once it goes on.
class SynchronousControl final : public Device {
 public:
  /// `hangs` is called, on a thread that makes a request, when the driver exceeds the limit.
  SynchronousControl(Descriptor socket, std::chrono::milliseconds limit, std::function<void()> hangs)
      : limit_(limit), hangs_(std::move(hangs)), socket_(std::move(socket)) {
    limit_receiving(socket_.number(), limit_);
  }
  ~SynchronousControl() override { close_and_wait(); }

  Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                Overlapped& request) override;
  Error result(Overlapped& request, std::uint32_t& transferred, bool wait) override;
  void cancel(Overlapped& request) override;
  Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                    std::uint32_t& transferred) override;
  void close() override { close_and_wait(); }

 private:
  /// A request between its start and its end.
  struct Turn {
    const Overlapped* request = nullptr;
    std::uint32_t id = 0;  ///< 0: not yet sent
    bool cancelled = false;
  };
  Error run(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output, Overlapped& request);
  Error take_turn(std::unique_lock<std::mutex>& lock, Turn& turn, std::uint32_t code, std::span<const std::byte> input,
                  std::span<std::byte> output, std::uint32_t& transferred);
  Received receive(control::ReplyHead& reply, std::span<std::byte> output, bool pends) const;
  void lose(std::unique_lock<std::mutex>& lock);
  void close_and_wait();

  const std::chrono::milliseconds limit_;
  const std::function<void()> hangs_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Descriptor socket_;
  std::vector<Turn*> turns_;
  std::uint32_t latest_id_ = 0;
  bool busy_ = false;  // a request is with the driver
  bool closed_ = false;
  bool lost_ = false;
};

}  // namespace sonivo::linux
