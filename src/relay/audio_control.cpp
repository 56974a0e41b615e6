#include "relay/audio_control.h"

#include <utility>

#include "base/text.h"
#include "base/trace.h"
#include "relay/endpoint_names.h"
#include "relay/gates.h"
#include "relay/output_level_detector.h"

namespace sonivo {
namespace {

constexpr Guid kIidMMNotificationClient{0x7991EEC9, 0x7E89, 0x4D85, {0x83, 0x90, 0x6C, 0x70, 0x3C, 0xEC, 0x60, 0xC0}};

}  // namespace

CAudioControl::CAudioControl(const Machine& machine, ChainFactory make_chains)
    : m_machine(machine), m_makeChains(std::move(make_chains)), m_Capture(machine, m_makeChains), m_Render(machine) {}

CAudioControl::~CAudioControl() {
  if (m_started) Stop();
}

Status CAudioControl::QueryInterface(const Guid& iid, void** object) {
  if (iid == kIidUnknown || iid == kIidMMNotificationClient) {
    AddRef();
    *object = static_cast<IMMNotificationClient*>(this);
    return kOk;
  }
  *object = nullptr;
  return kNoInterface;
}

std::uint32_t CAudioControl::Release() {
  const std::uint32_t left = --m_refCount;
  if (left == 0) delete this;
  return left;
}

void CAudioControl::SetGenAndFunction(std::uint32_t generation, std::uint32_t function, std::uint32_t generation_mic,
                                      std::uint32_t function_mic) {
  m_dwGeneration = generation;
  m_Function = function;
  m_dwGenerationMic = generation_mic;
  m_FunctionMic = function_mic;
  m_Capture.SetGenAndFunction(generation, function, generation_mic, function_mic);
}

void CAudioControl::SetMuteWindow(WindowHandle window) {
  m_hWnd = window;
  m_Capture.SetMuteWindow(window);
  m_Render.SetMuteWindow(window);
}

void CAudioControl::SetHostEvents(Event* default_changed, Event* stop_change_thread) {
  const std::lock_guard lock(m_csHostEvents);
  m_hEvent[0] = default_changed;
  m_hEvent[1] = stop_change_thread;
}

void CAudioControl::Start() {
  m_started = true;
  output_debug_string("OutputLevelDetecor version: %#08lx\n", static_cast<unsigned long>(OutputLevelDetectorVersion()));

  m_hRegNotifyStopEvent = m_machine.events.create(Reset::manual);
  if (!m_hRegNotifyStopEvent) trace(TraceLevel::error, "[CAudioControl::Start] CreateEvent failed.\n");
  m_regNotifyStatus = RegNotifyStatus::running;
  m_hRegNotifyThread = m_machine.threads.start("reg-notify", [this] { m_regNotifyStatus = RegNotifyThread(); });
  if (!m_hRegNotifyThread) trace(TraceLevel::error, "[CAudioControl::Start] CreateThread failed.\n");

  m_machine.endpoints.register_callback(this);
  m_Render.Start();
  m_Capture.Start();
}

void CAudioControl::Stop() {
  m_started = false;
  m_machine.endpoints.unregister_callback(this);
  m_Render.Stop();
  m_Capture.Stop();
  if (m_hRegNotifyStopEvent) m_hRegNotifyStopEvent->set();
  if (m_hRegNotifyThread) m_hRegNotifyThread->join();
  m_hRegNotifyThread.reset();
}

CStreamInterface& CAudioControl::Stream(DataFlow flow) {
  if (flow == DataFlow::capture) return m_Capture;
  return m_Render;
}

std::atomic<bool>& CAudioControl::FollowsDefault(DataFlow flow) {
  return flow == DataFlow::capture ? m_bCaptureFollowsDefault : m_bRenderFollowsDefault;
}

void CAudioControl::OnDeviceChange(std::uint32_t wParam, const DeviceBroadcast* header) {
  m_Render.OnDeviceChange(wParam, header);
  m_Capture.OnDeviceChange(wParam, header);
}

Status CAudioControl::SetEndpoint(DataFlow flow, const std::string& id, bool force) {
  FollowsDefault(flow) = id.empty();
  if (!id.empty()) return MoveStream(flow, id, force);
  std::string default_id;
  const Status found = DefaultEndpointId(flow, default_id);
  const Status moved = MoveStream(flow, default_id, force);
  return failed(found) ? found : moved;
}

Status CAudioControl::DefaultEndpointId(DataFlow flow, std::string& id) {
  std::shared_ptr<Endpoint> endpoint;
  const Status status = m_machine.endpoints.default_endpoint(flow, Role::console, endpoint);
  if (failed(status)) return status;
  std::string name;
  if (const Status read = ReadFriendlyName(*endpoint, name); failed(read)) return read;
  if (contains(name, kVirtualEndpointName)) return kFail;
  return endpoint->id(id);
}

Status CAudioControl::MoveStream(DataFlow flow, const std::string& id, bool force) {
  CStreamInterface& stream = Stream(flow);
  const std::string current = stream.EndpointId();
  const bool differs = current.empty() || id.empty() || !equals_ignoring_case(current, id);
  return force || differs ? stream.SetEndpointId(id) : kOk;
}

Status CAudioControl::OnDefaultDeviceChanged(DataFlow flow, Role role, const std::string& id) {
  if (role == Role::console && FollowsDefault(flow)) MoveStream(flow, id, false);
  if (GateBeamForming(m_FunctionMic, m_dwGenerationMic) || GateAISpeech(m_FunctionMic, m_dwGenerationMic)) {
    const std::lock_guard lock(m_csHostEvents);
    if (m_hEvent[0] != nullptr) m_hEvent[0]->set();
  }
  return kOk;
}

}  // namespace sonivo
