#include "platform/sim/driver.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "base/text.h"

namespace sonivo::sim {
namespace {

constexpr std::uint32_t kWaitStream = 0x80000000;
constexpr std::uint32_t kTransfer = 0x80000004;
constexpr std::uint32_t kFeedback = 0x80000008;

const std::string kDeviceRoot = R"(\\?\root#media#0000#{6994ad04-93ef-11d0-a3cc-00a0c9223196})";

const char* filter_name(PinId pin) { return pin == PinId::mic ? R"(\WaveMicIn)" : R"(\WaveSpeaker)"; }

std::vector<DeviceInterface> default_interfaces() {
  return {{R"(\\?\hdaudio#func_01#0000#{6994ad04-93ef-11d0-a3cc-00a0c9223196}\emicinwave)", "HdAudService"},
          {kDeviceRoot + to_lower_ascii(filter_name(PinId::mic)), kDriverService},
          {kDeviceRoot + to_lower_ascii(filter_name(PinId::speaker)), kDriverService}};
}

bool leads_to(const DeviceInterface& candidate, PinId pin) {
  return candidate.service == kDriverService &&
         contains(to_lower_ascii(candidate.path), to_lower_ascii(filter_name(pin)));
}

std::optional<Step> step_of(std::uint32_t code) {
  switch (code) {
    case kWaitStream:
      return Step::device_wait_stream;
    case kTransfer:
      return Step::device_transfer;
    case kFeedback:
      return Step::device_feedback;
    default:
      return std::nullopt;
  }
}

}  // namespace

class SimDriver::Handle final : public Device {
 public:
  Handle(SimDriver& driver, PinModel& pin, Sharing sharing) : driver_(driver), pin_(pin), sharing_(sharing) {
    driver_.handles_.push_back(this);
    ++driver_.handle_counts_.opened;
  }
  ~Handle() override {
    std::scoped_lock lock(driver_.scheduler_.mutex());
    let_go();
  }

  Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                Overlapped& request) override {
    const Error outcome = start(code, {this, &request, input, output});
    if (outcome != error::kNone && outcome != error::kIoPending) {
      request.pending = false;
      request.error = outcome;
      request.transferred = 0;
    }
    return outcome;
  }

  Error result(Overlapped& request, std::uint32_t& transferred, bool wait) override {
    if (const auto failure = driver_.script_.enter(Step::device_result)) return *failure;
    std::unique_lock lock(driver_.scheduler_.mutex());
    if (request.pending && !wait) return error::kIoPending;
    driver_.scheduler_.block_until(lock, pin_.request_done(), "a device request", [&] { return !request.pending; });
    transferred = request.transferred;
    return request.error;
  }

  void cancel(Overlapped& request) override {
    driver_.script_.enter(Step::device_cancel);
    std::scoped_lock lock(driver_.scheduler_.mutex());
    pin_.cancel(request);
  }

  Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                    std::uint32_t& transferred) override {
    Overlapped request;
    transferred = 0;
    const Error outcome = control(code, input, output, request);
    if (outcome != error::kNone && outcome != error::kIoPending) return outcome;
    return result(request, transferred, true);
  }

  void close() override {
    driver_.script_.enter(Step::device_close);
    std::scoped_lock lock(driver_.scheduler_.mutex());
    let_go();
  }

  // With the mutex held.
  PinModel& pin() { return pin_; }
  Sharing sharing() const { return sharing_; }
  void lose_device() { device_lost_ = true; }

 private:
  Error start(std::uint32_t code, const PendingRequest& request) {
    const auto step = step_of(code);
    if (!step) return error::kInvalidFunction;
    if (const auto failure = driver_.script_.enter(*step)) return *failure;
    std::scoped_lock lock(driver_.scheduler_.mutex());
    if (closed_) return error::kInvalidHandle;
    if (device_lost_) return error::kDeviceNotConnected;
    switch (*step) {
      case Step::device_wait_stream:
        return pin_.wait_stream(request);
      case Step::device_transfer:
        return pin_.transfer(request);
      default:
        return pin_.feedback(request);
    }
  }

  void let_go() {
    if (closed_) return;
    closed_ = true;
    pin_.abort(this, error::kOperationAborted);
    std::erase(driver_.handles_, this);
    ++driver_.handle_counts_.closed;
  }

  SimDriver& driver_;
  PinModel& pin_;
  const Sharing sharing_;
  bool closed_ = false;
  bool device_lost_ = false;
};

class SimDriver::Notice final : public RemovalNotice {
 public:
  Notice(SimDriver& driver, Handle& handle, WindowHandle its_window)
      : device(&handle), pin(handle.pin().id()), window(its_window), driver_(driver) {
    driver_.notices_.push_back(this);
  }
  ~Notice() override {
    std::scoped_lock lock(driver_.scheduler_.mutex());
    std::erase(driver_.notices_, this);
  }

  const Device* const device;
  const PinId pin;
  const WindowHandle window;

 private:
  SimDriver& driver_;
};

SimDriver::SimDriver(Scheduler& scheduler, Script& script, SimDesktop& desktop, const PinConfig& config,
                     bool echo_filter)
    : scheduler_(scheduler),
      script_(script),
      desktop_(desktop),
      echo_filter_(scheduler, script, echo_filter),
      control_(scheduler, script),
      mic_(scheduler, PinId::mic, config),
      speaker_(scheduler, PinId::speaker, config),
      interfaces_(default_interfaces()) {}

SimDriver::~SimDriver() = default;

std::string SimDriver::device_path(PinId pin) { return kDeviceRoot + R"(\VADrv)" + filter_name(pin); }

std::vector<DeviceInterface> SimDriver::interfaces(const Guid& category) {
  if (script_.enter(Step::bus_interfaces)) return {};
  if (category == control::kControlInterface) return control_.interfaces();
  if (category != kCategoryAudio) return {};
  std::scoped_lock lock(scheduler_.mutex());
  std::vector<DeviceInterface> present = interfaces_;
  for (const PinModel* pin : {&mic_, &speaker_}) {
    if (!pin->present()) std::erase_if(present, [&](const auto& candidate) { return leads_to(candidate, pin->id()); });
  }
  return present;
}

std::shared_ptr<Device> SimDriver::open(const std::string& path, Sharing sharing, Completion completion, Error& why) {
  if (equals_ignoring_case(path, kEchoFilterPath)) return echo_filter_.open(why);
  if (equals_ignoring_case(path, kControlPath)) return control_.open(completion, why);
  const auto failure = script_.enter(sharing == Sharing::exclusive ? Step::device_open : Step::device_probe);
  if (failure) {
    why = *failure;
    return nullptr;
  }
  for (PinModel* pin : {&mic_, &speaker_}) {
    if (equals_ignoring_case(path, device_path(pin->id()))) return open_pin(*pin, sharing, why);
  }
  why = error::kFileNotFound;
  return nullptr;
}

std::shared_ptr<Device> SimDriver::open_pin(PinModel& pin, Sharing sharing, Error& why) {
  std::scoped_lock lock(scheduler_.mutex());
  const bool in_the_way = std::any_of(handles_.begin(), handles_.end(), [&](Handle* handle) {
    return &handle->pin() == &pin && (sharing == Sharing::exclusive || handle->sharing() == Sharing::exclusive);
  });
  why = !pin.present() ? error::kFileNotFound : in_the_way ? error::kSharingViolation : error::kNone;
  if (why != error::kNone) return nullptr;
  return std::make_shared<Handle>(*this, pin, sharing);
}

std::unique_ptr<RemovalNotice> SimDriver::notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) {
  if (script_.enter(Step::device_notify_removal) || broadcast.devicetype != kDeviceTypeHandle) return nullptr;
  std::scoped_lock lock(scheduler_.mutex());
  const auto found = std::find(handles_.begin(), handles_.end(), broadcast.handle);
  if (found == handles_.end()) return nullptr;
  return std::make_unique<Notice>(*this, **found, window);
}

std::unique_ptr<Registration> SimDriver::notify_actions(const Device& device, DeviceActionCallback callback) {
  return control_.notify_actions(device, std::move(callback));
}

void SimDriver::open_recorder(const WAVEFORMATEXTENSIBLE& format, Sink sink) {
  std::scoped_lock lock(scheduler_.mutex());
  mic_.open_client(format, std::move(sink), nullptr);
}

void SimDriver::open_player(const WAVEFORMATEXTENSIBLE& format, Source source) {
  std::scoped_lock lock(scheduler_.mutex());
  speaker_.open_client(format, nullptr, std::move(source));
}

void SimDriver::close_client(PinId id) {
  std::scoped_lock lock(scheduler_.mutex());
  pin(id).close_client();
}

std::vector<std::byte> SimDriver::recording() const {
  std::scoped_lock lock(scheduler_.mutex());
  return mic_.recording();
}

void SimDriver::query_remove(PinId id) {
  std::scoped_lock lock(scheduler_.mutex());
  for (const Notice* notice : notices_) {
    if (notice->pin != id) continue;
    desktop_.send_device_change(notice->window, kDeviceQueryRemove, {kDeviceTypeHandle, notice->device});
  }
}

void SimDriver::surprise_remove(PinId id) {
  std::scoped_lock lock(scheduler_.mutex());
  for (Handle* handle : handles_) {
    if (&handle->pin() == &pin(id)) handle->lose_device();
  }
  pin(id).set_present(false);
}

void SimDriver::return_device(PinId id) {
  std::scoped_lock lock(scheduler_.mutex());
  pin(id).set_present(true);
}

void SimDriver::set_interfaces(std::vector<DeviceInterface> interfaces) {
  std::scoped_lock lock(scheduler_.mutex());
  interfaces_ = std::move(interfaces);
}

PinStats SimDriver::stats(PinId id) const {
  std::scoped_lock lock(scheduler_.mutex());
  return pin(id).stats();
}

std::vector<FeedbackRecord> SimDriver::feedback(PinId id) const {
  std::scoped_lock lock(scheduler_.mutex());
  return pin(id).feedback_log();
}

HandleCounts SimDriver::handles() const {
  std::scoped_lock lock(scheduler_.mutex());
  return handle_counts_;
}

std::size_t SimDriver::removal_notices() const {
  std::scoped_lock lock(scheduler_.mutex());
  return notices_.size();
}

std::size_t SimDriver::pending_requests() const {
  std::scoped_lock lock(scheduler_.mutex());
  return mic_.pending_requests() + speaker_.pending_requests();
}

}  // namespace sonivo::sim
