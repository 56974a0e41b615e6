#include "platform/linux/fx_watch.h"

#include <pthread.h>

#include <system_error>
#include <utility>

#include "base/text.h"
#include "platform/control_requests.h"

namespace sonivo::linux {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kRetry{500};

}  // namespace

std::shared_ptr<Device> open_control(DeviceBus& bus, Completion completion, Error& why) {
  why = error::kFileNotFound;
  const auto interfaces = bus.interfaces(control::kControlInterface);
  if (interfaces.empty()) return nullptr;
  return bus.open(interfaces.front().path, Sharing::shared, completion, why);
}

ControlWatch::ControlWatch(DeviceBus& bus, const std::string& endpoint) : bus_(bus) {
  to_utf16(endpoint).copy(question_.endpoint.data(), question_.endpoint.size() - 1);
}

ControlWatch::~ControlWatch() {
  {
    const std::scoped_lock lock(mutex_);
    ends_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
  if (device_) device_->close();
}

Error ControlWatch::open() {
  if (const Error why = connect(); why != error::kNone) return why;
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error&) {
    return error::kBusy;
  }
  return error::kNone;
}

/// Learns the latest change of all.
Error ControlWatch::connect() {
  Error why = error::kNone;
  auto device = open_control(bus_, Completion::overlapped, why);
  if (!device) return why;
  control::FxWatchQuestion question = question_;
  question.seen = 0;
  std::uint64_t change = 0;
  std::uint32_t transferred = 0;
  why = device->control_now(control::NSV_WATCH_FX_PROPERTIES, std::as_bytes(std::span(&question, 1)),
                            std::as_writable_bytes(std::span(&change, 1)), transferred);
  if (why != error::kNone) return why;
  const std::scoped_lock lock(device_mutex_);
  if (device_) device_->close();
  device_ = std::move(device);
  change_ = change;
  return error::kNone;
}

Status ControlWatch::arm(Event* event) {
  if (event == nullptr) return kInvalidArgument;
  {
    const std::scoped_lock lock(mutex_);
    target_ = event;
    if (std::exchange(untold_, false)) tell();
    if (target_ == nullptr || lost_) return kOk;
  }
  const std::scoped_lock lock(device_mutex_);
  std::uint32_t transferred = 0;
  if (device_->result(request_, transferred, false) == error::kIoPending) return kOk;
  question_.seen = change_;
  device_->control(control::NSV_WATCH_FX_PROPERTIES, std::as_bytes(std::span(&question_, 1)),
                   std::as_writable_bytes(std::span(&change_, 1)), request_);
  return kOk;
}

/// With the link's mutex held.
void ControlWatch::answered() {
  const std::scoped_lock lock(mutex_);
  if (request_.error == error::kNone) return tell();
  lost_ = request_.error != error::kOperationAborted;
  changed_.notify_all();
}

void ControlWatch::tell() {
  if (target_ == nullptr) {
    untold_ = true;
  } else {
    std::exchange(target_, nullptr)->set();
  }
}

// ---- The thread, which waits for another driver

void ControlWatch::run() {
  ::pthread_setname_np(::pthread_self(), "property watch");
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ends_ || lost_; });
    if (ends_) return;
    lock.unlock();
    const bool back = is_back();
    lock.lock();
    if (back) {
      lost_ = false;
      tell();
    } else {
      changed_.wait_for(lock, kRetry, [this] { return ends_; });
    }
  }
}

bool ControlWatch::is_back() {
  if (!connected_) {
    if (connect() != error::kNone) return false;
    connected_ = steady_clock::now();
  }
  control::Ages ages;
  std::uint32_t transferred = 0;
  const Error asked =
      device_->control_now(control::NSV_READ_AGES, {}, std::as_writable_bytes(std::span(&ages, 1)), transferred);
  const auto since = std::chrono::duration_cast<milliseconds>(steady_clock::now() - *connected_).count();
  const bool told = asked == error::kNone && ages.report_ms <= static_cast<std::uint64_t>(since);
  if (told || asked != error::kNone) connected_.reset();
  return told;
}

}  // namespace sonivo::linux
