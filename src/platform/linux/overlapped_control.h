#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "platform/control_frames.h"
#include "platform/device.h"

namespace sonivo::linux {

/// A connection whose requests may stay pending, and the reader of their replies: run() on a thread of its own, which
/// ends after close(). When the driver goes, pending requests end with error::kDeviceNotConnected, and each notice is
/// told DeviceAction::remove_pending on the reader's thread. A driver that doesn't answer within the limit counts as
/// gone, unless the request is one that waits for something to happen.
class OverlappedLink {
 public:
  /// `hangs` is called, on a thread that waits for a result, when the driver exceeds the limit; it is to lose() this
  /// link with all others.
  OverlappedLink(Descriptor socket, std::chrono::milliseconds limit, std::function<void()> hangs)
      : limit_(limit), hangs_(std::move(hangs)), socket_(std::move(socket)) {}

  void run();

  Error start(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output, Overlapped& request);
  Error result(Overlapped& request, std::uint32_t& transferred, bool wait);
  void cancel(Overlapped& request);
  void close();
  /// The driver counts as gone from now on.
  void lose();

  struct Notice {
    DeviceActionCallback call;
    bool told = false;
  };
  /// The notice stays in place until it is removed. One that comes after the driver went is told at once.
  void add(Notice& notice);
  /// Returns when no call of it is under way, unless made by this thread.
  void remove(Notice& notice);

 private:
  struct Pending {
    Overlapped* request = nullptr;
    std::span<std::byte> output;
    bool pends = false;  ///< for as long as nothing happens
  };
  using PendingRequests = std::map<std::uint32_t, Pending>;  // by id
  PendingRequests::iterator find(const Overlapped& request);
  void finish(PendingRequests::iterator pending, Error error, std::uint32_t transferred);
  void finish_all(Error error);
  void complete(const control::Reply& reply);
  void tell_notices(std::unique_lock<std::mutex>& lock);

  const std::chrono::milliseconds limit_;
  const std::function<void()> hangs_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Descriptor socket_;
  PendingRequests pending_;
  std::uint32_t latest_id_ = 0;
  bool closed_ = false;
  bool lost_ = false;
  std::vector<Notice*> notices_;
  const Notice* in_call_ = nullptr;
  std::thread::id reader_;
};

/// A handle on such a connection.
class OverlappedControl final : public Device {
 public:
  explicit OverlappedControl(std::shared_ptr<OverlappedLink> link) : link_(std::move(link)) {}
  ~OverlappedControl() override { link_->close(); }

  Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                Overlapped& request) override {
    return link_->start(code, input, output, request);
  }
  Error result(Overlapped& request, std::uint32_t& transferred, bool wait) override {
    return link_->result(request, transferred, wait);
  }
  void cancel(Overlapped& request) override { link_->cancel(request); }
  Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                    std::uint32_t& transferred) override;
  void close() override { link_->close(); }

  const std::shared_ptr<OverlappedLink>& link() const { return link_; }

 private:
  std::shared_ptr<OverlappedLink> link_;
};

}  // namespace sonivo::linux
