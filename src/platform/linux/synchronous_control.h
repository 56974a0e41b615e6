#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "base/descriptor.h"
#include "platform/device.h"

namespace sonivo::linux {

/// A handle whose requests are done when the call returns. They go one after another, each as one packet to the driver
/// and one back, on the caller's thread.
class SynchronousControl final : public Device {
 public:
  explicit SynchronousControl(Descriptor socket) : socket_(std::move(socket)) {}
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
  void close_and_wait();

  std::mutex mutex_;
  std::condition_variable changed_;
  Descriptor socket_;
  std::vector<Turn*> turns_;
  std::uint32_t latest_id_ = 0;
  bool busy_ = false;  // a request is with the driver
  bool closed_ = false;
};

}  // namespace sonivo::linux
