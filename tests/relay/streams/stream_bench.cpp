#include "stream_bench.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace sonivo::test {
namespace {

constexpr std::uint64_t kFirstInstantMs = 1'000'000;

std::pair<std::uint64_t, std::string> parse(const std::string& line) {
  std::istringstream text(line);
  std::pair<std::uint64_t, std::string> entry;
  text >> entry.first >> entry.second;
  return entry;
}

}  // namespace

StreamBench::StreamBench(DataFlow direction, const sim::Config& config)
    : flow(direction),
      prefix(direction == DataFlow::capture ? "[cap]" : "[ren]"),
      pin(direction == DataFlow::capture ? sim::PinId::mic : sim::PinId::speaker),
      physical_id(direction == DataFlow::capture ? sim::kMicArray : sim::kSpeakers),
      other_id(direction == DataFlow::capture ? sim::kHeadsetMic : sim::kHeadphones),
      virtual_id(direction == DataFlow::capture ? sim::kVirtualMic : sim::kVirtualSpeaker),
      machine(config) {
  machine.script().start_trace();
  make_stream(machine.driver());
}

StreamBench::~StreamBench() {
  if (stream) stream->Stop();
  machine.desktop().set_window_procedure({});
  stream.reset();
}

void StreamBench::make_stream(DeviceBus& bus) {
  const Machine m = machine.seams();
  const Machine seams{m.clock,   m.events, m.threads, bus,         m.endpoints, m.fx_properties,
                      m.session, m.power,  m.desktop, m.processes, m.folders};
  if (flow == DataFlow::capture) {
    stream = std::make_unique<CCaptureInterface>(seams, chains.factory());
  } else {
    stream = std::make_unique<CRenderInterface>(seams);
  }
  stream->SetMuteWindow(kWindow);
}

void StreamBench::start() {
  stream->SetEndpointId(physical_id);
  stream->Start();
}

void StreamBench::open_application(const WAVEFORMATEXTENSIBLE& format) {
  if (flow == DataFlow::capture) {
    machine.driver().open_recorder(format);
  } else {
    machine.driver().open_player(format, sim::memory_source({}));
  }
}

void StreamBench::start_streaming() {
  start();
  open_application();
  machine.run_for(5);
}

std::vector<std::uint64_t> StreamBench::recording_messages() const {
  std::vector<std::uint64_t> found;
  for (const sim::PostedMessage& message : machine.desktop().messages()) {
    if (message.message != WM_MIC_REC_ON) continue;
    EXPECT_EQ(message.window, kWindow);
    found.push_back(message.wParam);
  }
  return found;
}

std::uint64_t StreamBench::now_ms() const { return machine.scheduler().tick_ms() - kFirstInstantMs; }

std::vector<std::uint64_t> StreamBench::times_of(sim::Step step) const {
  std::vector<std::uint64_t> times;
  for (const std::string& line : machine.script().trace()) {
    const auto [time, name] = parse(line);
    if (name == to_string(step)) times.push_back(time / sim::kMillisecond - kFirstInstantMs);
  }
  return times;
}

std::vector<std::string> StreamBench::sequence_of(std::initializer_list<sim::Step> steps) const {
  const std::vector<std::string> wanted = names(steps);
  std::vector<std::string> found;
  for (const std::string& line : machine.script().trace()) {
    const std::string name = parse(line).second;
    if (std::find(wanted.begin(), wanted.end(), name) != wanted.end()) found.push_back(name);
  }
  return found;
}

std::vector<std::string> names(std::initializer_list<sim::Step> steps) {
  std::vector<std::string> found;
  for (const sim::Step step : steps) found.emplace_back(to_string(step));
  return found;
}

}  // namespace sonivo::test
