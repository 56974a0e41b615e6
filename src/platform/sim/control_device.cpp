#include "platform/sim/control_device.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace sonivo::sim {

using control::Answer;
using control::EventRecord;

namespace {

std::optional<Reset> kind_of(const Event* event) {
  return event == nullptr ? std::nullopt : std::optional(static_cast<const SimEvent*>(event)->kind());
}

}  // namespace

class ControlDevice::Handle final : public Device {
 public:
  // With the mutex held.
  Handle(ControlDevice& device, Completion its_completion) : completion(its_completion), device_(device) {
    device_.handles_.push_back(this);
    ++device_.opened_handles_;
  }
  ~Handle() override {
    std::scoped_lock lock(device_.scheduler_.mutex());
    let_go();
  }

  Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                Overlapped& request) override {
    const Error outcome = start(code, input, output, request, true);
    if (outcome != error::kIoPending || completion == Completion::overlapped) return outcome;
    return wait_for(request);
  }

  Error result(Overlapped& request, std::uint32_t& transferred, bool wait) override {
    if (const auto failure = device_.script_.enter(Step::control_result)) return *failure;
    {
      std::scoped_lock lock(device_.scheduler_.mutex());
      if (request.pending && !wait) return error::kIoPending;
    }
    const Error outcome = wait_for(request);
    transferred = request.transferred;
    return outcome;
  }

  void cancel(Overlapped& request) override {
    device_.script_.enter(Step::control_cancel);
    std::scoped_lock lock(device_.scheduler_.mutex());
    device_.abort_pending(this, &request, error::kOperationAborted);
  }

  Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                    std::uint32_t& transferred) override {
    Overlapped request;
    const Error outcome = start(code, input, output, request, false);
    const Error end = outcome == error::kIoPending ? wait_for(request) : outcome;
    transferred = request.transferred;
    return end;
  }

  void close() override {
    device_.script_.enter(Step::control_close);
    std::scoped_lock lock(device_.scheduler_.mutex());
    let_go();
  }

  const Completion completion;

 private:
  Error start(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output, Overlapped& request,
              bool with_overlapped) {
    const auto failure = device_.script_.enter(Step::control_request);
    if (const auto action = device_.take_action(code)) action();
    std::scoped_lock lock(device_.scheduler_.mutex());
    const std::uint64_t thread = device_.scheduler_.current_thread();
    device_.requests_.push_back({.time = device_.scheduler_.now(),
                                 .thread = thread,
                                 .code = code,
                                 .handle = completion,
                                 .with_overlapped = with_overlapped,
                                 .event = kind_of(request.hEvent),
                                 .input = {input.begin(), input.end()},
                                 .output_bytes = output.size()});
    request = {.hEvent = request.hEvent, .pending = true, .error = error::kIoPending};
    if (request.hEvent != nullptr) static_cast<SimEvent*>(request.hEvent)->clear();
    const Error outcome = failure   ? *failure
                          : closed_ ? error::kInvalidHandle
                                    : device_.start(*this, code, input, output, request);
    if (outcome != error::kIoPending && request.pending) device_.finish(request, outcome, 0);
    return outcome;
  }

  Error wait_for(Overlapped& request) {
    std::unique_lock lock(device_.scheduler_.mutex());
    device_.scheduler_.block_until(lock, device_.request_done_, "a control request", [&] { return !request.pending; });
    return request.error;
  }

  void let_go() {
    if (closed_) return;
    closed_ = true;
    device_.abort_pending(this, nullptr, error::kOperationAborted);
    std::erase(device_.handles_, this);
  }

  ControlDevice& device_;
  bool closed_ = false;
};

class ControlDevice::Notice final : public Registration {
 public:
  // With the mutex held.
  Notice(ControlDevice& device, DeviceActionCallback its_call)
      : call(std::move(its_call)), number(++device.latest_notice_), device_(device) {
    device_.notices_.push_back(this);
  }
  ~Notice() override {
    device_.script_.enter(Step::control_notify_end);
    std::unique_lock lock(device_.scheduler_.mutex());
    std::erase(device_.notices_, this);
    if (device_.scheduler_.on_system_thread()) {
      if (device_.in_call_ == this) ++device_.notices_ended_inside_;
      return;
    }
    device_.scheduler_.block_until(lock, device_.call_ended_, "the end of a device notice",
                                   [this] { return device_.in_call_ != this; });
  }

  const DeviceActionCallback call;
  const std::uint64_t number;

 private:
  ControlDevice& device_;
};

ControlDevice::ControlDevice(Scheduler& scheduler, Script& script)
    : scheduler_(scheduler),
      script_(script),
      request_done_(scheduler, Reset::manual),
      call_ended_(scheduler, Reset::manual) {}

ControlDevice::~ControlDevice() = default;

std::vector<DeviceInterface> ControlDevice::interfaces() const {
  std::scoped_lock lock(scheduler_.mutex());
  if (!present_) return {};
  return {{kControlPath, "NorvellSonivoDriver"}};
}

std::shared_ptr<Device> ControlDevice::open(Completion completion, Error& why) {
  const auto failure = script_.enter(Step::control_open);
  std::scoped_lock lock(scheduler_.mutex());
  why = failure.value_or(present_ ? error::kNone : error::kFileNotFound);
  if (why != error::kNone) return nullptr;
  return std::make_shared<Handle>(*this, completion);
}

std::unique_ptr<Registration> ControlDevice::notify_actions(const Device& device, DeviceActionCallback callback) {
  if (script_.enter(Step::control_notify_actions) || !callback) return nullptr;
  std::scoped_lock lock(scheduler_.mutex());
  if (std::find(handles_.begin(), handles_.end(), &device) == handles_.end()) return nullptr;
  return std::make_unique<Notice>(*this, std::move(callback));
}

Error ControlDevice::start(const Handle& handle, std::uint32_t code, std::span<const std::byte> input,
                           std::span<std::byte> output, Overlapped& request) {
  if (!present_) return error::kDeviceNotConnected;
  if (const auto failure = failures_.find(code); failure != failures_.end()) return failure->second;
  if (code == control::NSV_SERVICE_EVENT_NOTIFY) return start_event(handle, output, request);
  const Answer answer = this->answer(code, input, output);
  if (answer.event) events_.push_back(*answer.event);
  deliver_events();
  if (const auto delay = delays_ms_.find(code); delay != delays_ms_.end()) {
    finish_later(handle, request, answer, delay->second);
    return error::kIoPending;
  }
  finish(request, answer.error, answer.transferred);
  return answer.error;
}

std::function<void()> ControlDevice::take_action(std::uint32_t code) {
  std::scoped_lock lock(scheduler_.mutex());
  const auto action = actions_.extract(code);
  return action ? action.mapped() : nullptr;
}

Answer ControlDevice::answer(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output) {
  if (code == control::NSV_SERVICE_EVENT_CANCEL) {
    cancel_events();
    return {};
  }
  if (code == control::NSV_PUBLISH_REPORT) {
    report_.assign(reinterpret_cast<const char*>(input.data()), input.size());
    return {};
  }
  const auto raw = raw_answers_.find(code);
  if (raw == raw_answers_.end()) return store_.answer(code, input, output);
  const std::size_t bytes = std::min(raw->second.size(), output.size());
  std::copy_n(raw->second.begin(), bytes, output.begin());
  return {.transferred = static_cast<std::uint32_t>(bytes)};
}

Error ControlDevice::start_event(const Handle& handle, std::span<std::byte> output, Overlapped& request) {
  if (output.size() != sizeof(EventRecord)) return error::kInvalidParameter;
  waiting_for_event_.push_back({&handle, &request, output});
  deliver_events();
  return request.pending ? error::kIoPending : error::kNone;
}

void ControlDevice::deliver_events() {
  while (!events_.empty() && !waiting_for_event_.empty()) {
    const EventRecord record{.command = events_.front()};
    const Pending oldest = waiting_for_event_.front();
    events_.pop_front();
    waiting_for_event_.erase(waiting_for_event_.begin());
    std::memcpy(oldest.output.data(), &record, sizeof record);
    finish(*oldest.overlapped, error::kNone, sizeof record);
  }
}

void ControlDevice::cancel_events() {
  for (const Pending& each : std::exchange(waiting_for_event_, {})) {
    finish(*each.overlapped, error::kOperationAborted, 0);
  }
}

void ControlDevice::finish_later(const Handle& handle, Overlapped& request, const Answer& answer, std::uint32_t ms) {
  const TimerId timer = scheduler_.at(scheduler_.now() + ms * kMillisecond, [this, &request, answer] {
    std::erase_if(delayed_, [&](const Pending& each) { return each.overlapped == &request; });
    finish(request, answer.error, answer.transferred);
  });
  delayed_.push_back({&handle, &request, {}, timer});
}

void ControlDevice::finish(Overlapped& request, Error error, std::uint32_t transferred) {
  request.pending = false;
  request.error = error;
  request.transferred = transferred;
  if (request.hEvent != nullptr) static_cast<SimEvent*>(request.hEvent)->signal();
  request_done_.signal();
}

void ControlDevice::abort_pending(const Handle* handle, const Overlapped* request, Error error) {
  for (auto* queue : {&waiting_for_event_, &delayed_}) {
    std::erase_if(*queue, [&](const Pending& each) {
      if (each.handle != handle || (request != nullptr && each.overlapped != request)) return false;
      scheduler_.cancel(each.timer);
      finish(*each.overlapped, error, 0);
      return true;
    });
  }
}

std::uint32_t ControlDevice::number(std::uint32_t get_code) const {
  std::scoped_lock lock(scheduler_.mutex());
  return store_.number(get_code);
}

void ControlDevice::set_number(std::uint32_t get_code, std::uint32_t value) {
  std::scoped_lock lock(scheduler_.mutex());
  store_.set_number(get_code, value);
}

std::u16string ControlDevice::text(std::uint32_t get_code) const {
  std::scoped_lock lock(scheduler_.mutex());
  return store_.text(get_code);
}

void ControlDevice::set_text(std::uint32_t get_code, std::u16string_view value) {
  std::scoped_lock lock(scheduler_.mutex());
  store_.set_text(get_code, value);
}

void ControlDevice::fail(std::uint32_t code, Error error) {
  std::scoped_lock lock(scheduler_.mutex());
  failures_[code] = error;
}

void ControlDevice::pardon(std::uint32_t code) {
  std::scoped_lock lock(scheduler_.mutex());
  failures_.erase(code);
}

void ControlDevice::answer_raw(std::uint32_t code, std::vector<std::byte> bytes) {
  std::scoped_lock lock(scheduler_.mutex());
  raw_answers_[code] = std::move(bytes);
}

void ControlDevice::set_delay(std::uint32_t code, std::uint32_t ms) {
  std::scoped_lock lock(scheduler_.mutex());
  delays_ms_[code] = ms;
}

void ControlDevice::before(std::uint32_t code, std::function<void()> action) {
  std::scoped_lock lock(scheduler_.mutex());
  actions_[code] = std::move(action);
}

void ControlDevice::send_event(std::uint32_t command) {
  std::scoped_lock lock(scheduler_.mutex());
  events_.push_back(command);
  deliver_events();
}

void ControlDevice::tell(DeviceAction action) {
  std::scoped_lock lock(scheduler_.mutex());
  scheduler_.post_to_system([this, action, latest = latest_notice_] { call_all(action, latest); });
}

// Those that are registered when it happens and still are when their turn comes.
void ControlDevice::call_all(DeviceAction action, std::uint64_t latest) {
  std::unique_lock lock(scheduler_.mutex());
  for (std::uint64_t done = 0;;) {
    const auto next = std::find_if(notices_.begin(), notices_.end(),
                                   [&](const Notice* each) { return each->number > done && each->number <= latest; });
    if (next == notices_.end()) return;
    in_call_ = *next;
    done = in_call_->number;
    const DeviceActionCallback call = in_call_->call;  // may end its own registration
    lock.unlock();
    call(action);
    lock.lock();
    in_call_ = nullptr;
    call_ended_.signal();
  }
}

void ControlDevice::set_present(bool present) {
  std::scoped_lock lock(scheduler_.mutex());
  present_ = present;
  if (present) return;
  for (const Handle* handle : handles_) abort_pending(handle, nullptr, error::kDeviceNotConnected);
}

std::vector<ControlRecord> ControlDevice::requests() const {
  std::scoped_lock lock(scheduler_.mutex());
  return requests_;
}

void ControlDevice::forget_requests() {
  std::scoped_lock lock(scheduler_.mutex());
  requests_.clear();
}

std::vector<std::uint32_t> ControlDevice::codes() const {
  std::scoped_lock lock(scheduler_.mutex());
  std::vector<std::uint32_t> codes;
  for (const ControlRecord& each : requests_) {
    const bool setting = each.code != control::NSV_SERVICE_EVENT_NOTIFY &&
                         each.code != control::NSV_SERVICE_EVENT_CANCEL && each.code != control::NSV_PUBLISH_REPORT;
    if (setting) codes.push_back(each.code);
  }
  return codes;
}

std::string ControlDevice::report() const {
  std::scoped_lock lock(scheduler_.mutex());
  return report_;
}

std::size_t ControlDevice::opened_handles() const {
  std::scoped_lock lock(scheduler_.mutex());
  return opened_handles_;
}

std::size_t ControlDevice::open_handles() const {
  std::scoped_lock lock(scheduler_.mutex());
  return handles_.size();
}

std::size_t ControlDevice::action_notices() const {
  std::scoped_lock lock(scheduler_.mutex());
  return notices_.size();
}

std::size_t ControlDevice::pending_requests() const {
  std::scoped_lock lock(scheduler_.mutex());
  return waiting_for_event_.size() + delayed_.size();
}

std::size_t ControlDevice::notices_ended_inside() const {
  std::scoped_lock lock(scheduler_.mutex());
  return notices_ended_inside_;
}

}  // namespace sonivo::sim
