#include "host/driver_access.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/trace.h"
#include "host/companions.h"

namespace sonivo {
namespace {

std::span<const std::byte> bytes_of(const std::uint32_t& value) { return std::as_bytes(std::span(&value, 1)); }
std::span<std::byte> room_of(std::uint32_t& value) { return std::as_writable_bytes(std::span(&value, 1)); }

/// Result of a setter; a failure is told here, because hardly any caller asks for it.
int setter_result(std::uint32_t code, Error outcome) {
  if (outcome == error::kNone) return 1;
  trace(TraceLevel::error, "[CSonivoDriverAccess] request %08X failed: error %d\n", static_cast<unsigned>(code),
        static_cast<int>(outcome));
  return 0;
}

void trace_event_failure(Error outcome) {
  if (outcome == error::kNone) return;
  trace(TraceLevel::error, "[SetEventIoControl] Notify error: unexpected DeviceIoControl error %d\n",
        static_cast<int>(outcome));
}

}  // namespace

CSonivoDriverAccess::CSonivoDriverAccess(const Machine& machine) : m_machine(machine) {}

CSonivoDriverAccess::~CSonivoDriverAccess() {
  CloseDriverHandles();
  for (const auto& work : m_works) work->join();
}

// ---- Handles

int CSonivoDriverAccess::InitDriverInfo(const Guid& interface_class) {
  const std::vector<DeviceInterface> interfaces = m_machine.bus.interfaces(interface_class);
  m_openError = error::kNone;
  if (interfaces.empty()) return 0;
  Error why = error::kNone;
  const std::string& path = interfaces.front().path;
  auto driver = m_machine.bus.open(path, Sharing::exclusive, Completion::overlapped, why);
  if (!driver) m_openError = why;
  auto driver_sync = m_machine.bus.open(path, Sharing::exclusive, Completion::synchronous, why);
  const bool opened = driver != nullptr;
  {
    const std::lock_guard lock(m_csHandles);
    m_szDevicePath = path;
    m_hDriver.swap(driver);  // earlier ones close without the lock
    m_hDriverSync.swap(driver_sync);
  }
  Set_CM_Register_Notification();
  return opened ? 1 : 0;
}

void CSonivoDriverAccess::Set_CM_Register_Notification() {
  const auto driver = GetDriverHandle();
  if (!driver) return;
  auto notify = m_machine.bus.notify_actions(*driver, [this](DeviceAction action) { return DeviceCallback(action); });
  const std::lock_guard lock(m_csHandles);
  ++m_notifyNumber;
  std::swap(m_hNotify, notify);  // an earlier one ends without the lock: its callback may want it
}

void CSonivoDriverAccess::CloseDriverHandles() {
  std::shared_ptr<Device> driver;
  std::shared_ptr<Device> driver_sync;
  std::uint64_t notice = 0;
  {
    const std::lock_guard lock(m_csHandles);
    driver = std::exchange(m_hDriver, nullptr);
    driver_sync = std::exchange(m_hDriverSync, nullptr);
    notice = m_notifyNumber;
  }
  if (driver) driver->close();
  if (driver_sync) driver_sync->close();
  // The last that a callback does with this object: the destructor, which may be under way elsewhere, finds either the
  // notice or the thread that ends it, and so waits for the callback's end.
  std::unique_ptr<Registration> notify;
  const std::lock_guard lock(m_csHandles);
  if (m_hNotify && m_notifyNumber == notice) notify = SubmitThreadpoolWork_job(std::move(m_hNotify));
}

// The notification can't be ended inside its own callback, which is where the handles are closed from as a rule.
std::unique_ptr<Registration> CSonivoDriverAccess::SubmitThreadpoolWork_job(std::unique_ptr<Registration> notify) {
  const auto held = std::make_shared<std::unique_ptr<Registration>>(std::move(notify));
  auto work = m_machine.threads.start("unregister", [held] { held->reset(); });
  if (!work) {
    trace(TraceLevel::error, "[SubmitThreadpoolWork_job] CreateThreadpoolWork failed.\n");
    return std::move(*held);
  }
  std::erase_if(m_works, [](const auto& earlier) { return earlier->join_for(0); });
  m_works.push_back(std::move(work));
  return nullptr;
}

void CSonivoDriverAccess::ClearDriverHandle() {
  std::shared_ptr<Device> driver;
  std::shared_ptr<Device> driver_sync;
  const std::lock_guard lock(m_csHandles);
  m_hDriver.swap(driver);
  m_hDriverSync.swap(driver_sync);
}

std::shared_ptr<Device> CSonivoDriverAccess::GetDriverHandle() const {
  const std::lock_guard lock(m_csHandles);
  return m_hDriver;
}

std::shared_ptr<Device> CSonivoDriverAccess::GetDriverSyncHandle() const {
  const std::lock_guard lock(m_csHandles);
  return m_hDriverSync;
}

std::uint32_t CSonivoDriverAccess::DeviceCallback(DeviceAction action) {
  switch (action) {
    case DeviceAction::query_remove:
    case DeviceAction::query_remove_failed:
    case DeviceAction::custom_event:
      SonivoStoreIsOff(m_machine);
      CloseDriverHandles();
      break;
    case DeviceAction::remove_pending:
      CloseDriverHandles();
      break;
    case DeviceAction::remove_complete:
      break;
  }
  return 0;
}

// ---- Events of the driver

int CSonivoDriverAccess::SetEventIoControl(control::EventRecord* record) {
  const auto request = std::make_shared<EventRequest>();
  request->event = m_machine.events.create(Reset::manual);
  request->overlapped.hEvent = request->event.get();
  const auto driver = GetDriverHandle();
  {
    const std::lock_guard lock(m_csHandles);
    m_overlapped = request;
  }
  Error outcome = error::kInvalidHandle;
  if (record != nullptr && driver) {
    outcome = driver->control(control::NSV_SERVICE_EVENT_NOTIFY, {}, std::as_writable_bytes(std::span(record, 1)),
                              request->overlapped);
    // The start of the request has cleared the event: one that was taken away before isn't waited for.
    if ((outcome == error::kNone || outcome == error::kIoPending) && InFlight(*request)) {
      const std::array<Event*, 1> done{request->event.get()};
      m_machine.events.wait_any(done);  // for the driver, or for CloseOverlappedHandle
    }
    if (outcome == error::kIoPending) outcome = Conclude(*driver, request->overlapped, !request->event);
    trace_event_failure(outcome);
  }
  const std::lock_guard lock(m_csHandles);
  if (m_overlapped == request) m_overlapped = nullptr;
  return outcome == error::kNone ? 1 : 0;
}

bool CSonivoDriverAccess::InFlight(const EventRequest& request) const {
  const std::lock_guard lock(m_csHandles);
  return m_overlapped.get() == &request;
}

int CSonivoDriverAccess::SetEventIoControl_Cancel() {
  const auto driver = GetDriverHandle();
  if (!driver) return 0;
  const Error outcome = Overlap(driver, control::NSV_SERVICE_EVENT_CANCEL, {}, {}, Reset::manual);
  trace_event_failure(outcome);
  return outcome == error::kNone ? 1 : 0;
}

void CSonivoDriverAccess::CloseOverlappedHandle() {
  std::shared_ptr<EventRequest> request;
  {
    const std::lock_guard lock(m_csHandles);
    request = std::exchange(m_overlapped, nullptr);
  }
  if (request && request->event)
    request->event->set();  // and stays so for the one that still waits: nobody else will use it again
}

// ---- Numbers and texts

Error CSonivoDriverAccess::Overlap(const std::shared_ptr<Device>& handle, std::uint32_t code, Bytes input, Room output,
                                   Reset reset) {
  if (!handle) return error::kInvalidHandle;
  const std::unique_ptr<Event> event = m_machine.events.create(reset);
  Overlapped overlapped{.hEvent = event.get()};
  const Error outcome = handle->control(code, input, output, overlapped);
  return outcome == error::kIoPending ? Conclude(*handle, overlapped, true) : outcome;
}

Error CSonivoDriverAccess::Conclude(Device& device, Overlapped& request, bool wait) {
  std::uint32_t bytes = 0;
  const Error outcome = device.result(request, bytes, wait);
  if (outcome != error::kNone) device.cancel(request);
  return outcome == error::kIoPending ? error::kOperationAborted : outcome;
}

Error CSonivoDriverAccess::Synchronous(std::uint32_t code, Bytes input, Room output) const {
  std::uint32_t bytes = 0;
  const auto handle = GetDriverSyncHandle();
  return handle ? handle->control_now(code, input, output, bytes) : error::kInvalidHandle;
}

int CSonivoDriverAccess::GetSync(std::uint32_t code, std::uint32_t* value) {
  std::uint32_t answer = 0;
  const bool done = Synchronous(code, {}, room_of(answer)) == error::kNone;
  *value = done ? answer : 0;
  return done ? 1 : 0;
}

int CSonivoDriverAccess::GetOverlapped(std::uint32_t code, std::uint32_t* value) {
  std::uint32_t answer = 0;
  if (Overlap(GetDriverHandle(), code, {}, room_of(answer)) != error::kNone) return 0;
  *value = answer;
  return 1;
}

int CSonivoDriverAccess::SetSync(std::uint32_t code, std::uint32_t value) {
  return setter_result(code, Synchronous(code, bytes_of(value), {}));
}

int CSonivoDriverAccess::PutText(const std::shared_ptr<Device>& handle, std::uint32_t code,
                                 const std::u16string& text) {
  control::WireText wire{};
  std::copy_n(text.begin(), std::min(text.size(), wire.size() - 1), wire.begin());
  return setter_result(code, Overlap(handle, code, std::as_bytes(std::span(wire)), {}));
}

int CSonivoDriverAccess::TakeText(const std::shared_ptr<Device>& handle, std::uint32_t code, control::WireText& text,
                                  std::uint32_t* bytes) {
  control::WireText wire{};
  if (Overlap(handle, code, {}, std::as_writable_bytes(std::span(wire))) != error::kNone) return 0;
  const auto end = std::find(wire.begin(), wire.end() - 1, u'\0');
  text = {};
  std::copy(wire.begin(), end, text.begin());
  *bytes = static_cast<std::uint32_t>((end - wire.begin()) * static_cast<std::ptrdiff_t>(sizeof(char16_t)));
  return 1;
}

int CSonivoDriverAccess::GetHeadphone(std::uint32_t* plugged) {
  const std::uint32_t question = 0;
  std::array<std::uint32_t, 2> answer{};
  const bool done =
      Synchronous(control::GetHeadphone, bytes_of(question), std::as_writable_bytes(std::span(answer))) == error::kNone;
  *plugged = done ? answer[0] : 0;
  return done ? 1 : 0;
}

Error CSonivoDriverAccess::PublishReport(const std::string& text) {
  return Synchronous(control::NSV_PUBLISH_REPORT, std::as_bytes(std::span(text)), {});
}

// ---- Meeting mode

int CSonivoDriverAccess::GetLaunchedMTG(std::uint32_t* mode) {
  std::uint32_t launched = 0;
  std::uint32_t driver_mode = 0;
  int result = GetSync(control::NSV_GET_LAUNCHED_MTG, &launched);
  *mode = 0;
  if (result != 0 && launched != 0) {
    result = GetSync(control::NSV_GET_ALL_SP_MTG, &driver_mode);
    if (result != 0) *mode = driver_mode + 1;
  }
  m_blaunched = result != 0 ? launched : 0;
  m_mode = result != 0 ? driver_mode : 0;
  return result;
}

int CSonivoDriverAccess::GetLaunchedMTGMode(std::uint32_t* mode) {
  std::uint32_t driver_mode = 0;
  const int result = GetSync(control::NSV_GET_ALL_SP_MTG, &driver_mode);
  *mode = result != 0 ? driver_mode + 1 : 0;
  return result;
}

int CSonivoDriverAccess::SetLaunchedMTG(std::uint32_t mode) {
  int result = 1;
  if (m_blaunched == 0) {
    SetSync(control::NSV_SET_MODE_MTG, mode);
    result = SetSync(control::NSV_SET_LAUNCHED_MTG, 1);
  } else if (m_mode != mode) {
    SetSync(control::NSV_SET_ALL_SP_MTG, mode);
    result = SetSync(control::NSV_SET_ALL_HP_MTG, mode);
  }
  if (result != 0) {
    m_blaunched = 1;
    m_mode = mode;
  }
  return result;
}

int CSonivoDriverAccess::SetLaunchedMTGOff(bool room_correction) {
  if (m_blaunched == 0) return 1;
  SetSync(control::NSV_SET_MODE_MTG, room_correction ? 2 : 0);
  const int result = SetSync(control::NSV_SET_LAUNCHED_MTG, 0);
  if (result != 0) {
    m_blaunched = 0;
    m_mode = 0;
  }
  return result;
}

}  // namespace sonivo
