#include "host/trouble_watch.h"

#include <utility>

namespace sonivo {
namespace {

const char* ChainTrouble(ChainFault fault) {
  switch (fault) {
    case ChainFault::no_parameters:
      return "the parameters of the microphone's chain are missing";
    case ChainFault::no_model:
      return "the model of the microphone's chain is missing";
    case ChainFault::not_opened:
      return "the microphone's chain can't be opened";
    case ChainFault::none:
      break;
  }
  return "";
}

}  // namespace

bool Standing::Since(bool holds, std::uint64_t now_ms) {
  if (!holds) {
    since_ms_.reset();
    return false;
  }
  if (!since_ms_) since_ms_ = now_ms;
  return now_ms - *since_ms_ >= limit_ms_;
}

const std::string& TroubleWatch::Look() {
  const std::uint64_t now_ms = host_.machine.clock.tick_ms();
  LookAtStream(capture_, host_.m_AudioControl.Stream(DataFlow::capture), now_ms);
  LookAtStream(render_, host_.m_AudioControl.Stream(DataFlow::render), now_ms);
  std::string present = Present(now_ms);
  if (!present.empty() && present != present_) host_.m_LastTrouble.Note(present, now_ms);
  present_ = std::move(present);
  return present_;
}

std::string TroubleWatch::Present(std::uint64_t now_ms) {
  const CStreamInterface& capture = host_.m_AudioControl.Stream(DataFlow::capture);
  const CStreamInterface& render = host_.m_AudioControl.Stream(DataFlow::render);
  // Each is looked at each time, for what it measures.
  driver_trouble_ = LookAtDriver(now_ms);
  const std::string virtual_microphone = VirtualTrouble(capture_, capture, now_ms);
  const std::string virtual_speaker = VirtualTrouble(render_, render, now_ms);
  const std::string chain = ChainTrouble(host_.m_AudioControl.LatestChainFault());
  const std::string microphone = PhysicalTrouble(capture_, capture, now_ms);
  const std::string speaker = PhysicalTrouble(render_, render, now_ms);
  for (const std::string& each : {driver_trouble_, virtual_microphone, virtual_speaker, chain, microphone, speaker}) {
    if (!each.empty()) return each;
  }
  return {};
}

std::string TroubleWatch::LookAtDriver(std::uint64_t now_ms) {
  if (!not_ready_.Since(host_.m_bDriverReady == 0, now_ms)) return {};
  const Error refused = host_.m_DriverAccess.OpenError();
  if (refused == error::kNone) return "the driver is not connected";
  return "the driver refuses the connection: error " + std::to_string(refused);
}

std::string TroubleWatch::VirtualTrouble(Direction& direction, const CStreamInterface& stream, std::uint64_t now_ms) {
  if (!direction.absent.Since(stream.State() == StreamState::eWaitVirtualDriver, now_ms)) return {};
  if (ConsoleSession(host_.machine) != SessionState::active) return {};  // the device is the other session's
  return std::string("the virtual ") + direction.device + " can't be used";
}

std::string TroubleWatch::PhysicalTrouble(Direction& direction, const CStreamInterface& stream, std::uint64_t now_ms) {
  const bool hangs = direction.opening.Since(stream.State() == StreamState::eVirtualStreaming, now_ms);
  const std::string device = direction.device;
  if (hangs || stream.OpeningFailed()) {
    return stream.EndpointId().empty() ? "there is no " + device : "the " + device + " can't be opened";
  }
  return direction.is_silent ? "the " + device + " is open, but no sound passes" : "";
}

void TroubleWatch::LookAtStream(Direction& direction, const CStreamInterface& stream, std::uint64_t now_ms) {
  const StreamStatistics now = stream.Statistics();
  const StreamStatistics before = std::exchange(direction.statistics, now);
  // What runs empty when its stream ends is no loss.
  const bool same_stream = stream.State() == StreamState::ePhysicalStreaming && now.streams == before.streams;
  if (same_stream && now.underruns > before.underruns) {
    host_.m_LastTrouble.Note(std::string("the ring of the ") + direction.device + " ran empty", now_ms);
  }
  // An application streams, and the device behind it doesn't.
  direction.is_silent = direction.silent.Since(
      now.virtual_transfers != before.virtual_transfers && now.physical_packets == before.physical_packets, now_ms);
}

}  // namespace sonivo
