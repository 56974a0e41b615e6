#include "host/status_report.h"

#include <cstdio>

namespace sonivo {
namespace {

constexpr std::uint64_t kPeriodMs = 1000;
constexpr std::uint64_t kRepeatMs = 5000;
constexpr double kBlockNs = 10e6;

/// Text in quotes, with what JSON doesn't take as it is.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result += '\\';
      result += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      result += escape;
    } else {
      result += c;
    }
  }
  return result + '"';
}

/// Members of one JSON object, in their order.
class JsonObject {
 public:
  void text(const char* name, const std::string& value) { raw(name, quoted(value)); }
  void flag(const char* name, bool value) { raw(name, value ? "true" : "false"); }
  void number(const char* name, double value) {
    char digits[40];
    std::snprintf(digits, sizeof digits, "%.6g", value);
    raw(name, digits);
  }
  void whole(const char* name, std::int64_t value) { raw(name, std::to_string(value)); }
  void object(const char* name, const JsonObject& value) { raw(name, value.str()); }
  std::string str() const { return "{" + members_ + "}"; }

 private:
  void raw(const char* name, const std::string& value) {
    if (!members_.empty()) members_ += ',';
    members_ += quoted(name) + ':' + value;
  }
  std::string members_;
};

JsonObject StreamReport(const CStreamInterface& stream) {
  const StreamStatistics statistics = stream.Statistics();
  const double frames_per_ms = stream.SampleRate() / 1000.0;
  const auto to_ms = [&](double frames) { return frames_per_ms > 0 ? frames / frames_per_ms : 0.0; };
  const auto mean = [](double sum, std::uint64_t count) { return count > 0 ? sum / static_cast<double>(count) : 0.0; };
  const double execute_ns = mean(static_cast<double>(statistics.execute_sum_ns), statistics.executions);

  JsonObject report;
  report.text("state", StateName(stream.State()));
  report.text("endpoint", stream.EndpointId());
  report.whole("streams", static_cast<std::int64_t>(statistics.streams));
  report.whole("underruns", static_cast<std::int64_t>(statistics.underruns));
  report.whole("overruns", static_cast<std::int64_t>(statistics.overruns));
  report.whole("feedback", statistics.feedback);
  report.number("fill_mean_ms", to_ms(mean(static_cast<double>(statistics.fill_sum), statistics.fill_count)));
  report.number("fill_min_ms", statistics.fill_count > 0 ? to_ms(statistics.fill_min) : 0.0);
  report.whole("blocks", static_cast<std::int64_t>(statistics.blocks));
  report.whole("silenced", static_cast<std::int64_t>(statistics.silenced));
  report.whole("unenhanced", static_cast<std::int64_t>(statistics.unenhanced));
  report.number("chain_latency_ms", to_ms(statistics.chain_latency));
  report.number("execute_mean_us", execute_ns / 1e3);
  report.number("execute_max_us", static_cast<double>(statistics.execute_max_ns) / 1e3);
  report.number("load", execute_ns / kBlockNs);
  return report;
}

const char* ChainName(ChainKind chain) {
  switch (chain) {
    case ChainKind::key_cancel:
      return "keycancel";
    case ChainKind::beam_forming:
      return "beamforming";
    case ChainKind::ai_speech:
      return "ai";
    case ChainKind::none:
      break;
  }
  return "none";
}

}  // namespace

std::string StatusReport(HostState& host, const std::string& trouble) {
  const CStreamInterface& capture = host.m_AudioControl.Stream(DataFlow::capture);
  const CStreamInterface& render = host.m_AudioControl.Stream(DataFlow::render);
  JsonObject report;
  report.whole("version", 3);
  report.whole("generation", host.m_dwGeneration);
  report.whole("function", host.m_Function);
  report.whole("generation_mic", host.m_dwGenerationMic);
  report.whole("function_mic", host.m_FunctionMic);
  report.text("chain", ChainName(host.m_AudioControl.RunningChain()));
  report.flag("driver_ready", host.m_bDriverReady != 0);
  report.whole("meeting_mode", host.m_iMeetingModeCur);
  report.flag("room_correction", host.m_RoomCorrection != 0);
  report.flag("headphones", host.m_dwHeadPhone != 0);
  report.flag("auto_mute", host.m_dwAutoMute == 1);
  report.object("capture", StreamReport(capture));
  report.object("render", StreamReport(render));
  report.text("trouble", trouble);
  const LastTrouble::Entry last = host.m_LastTrouble.Latest();
  report.text("last_trouble", last.text);
  report.whole("last_trouble_ms", static_cast<std::int64_t>(last.tick_ms));
  return report.str();
}

void StatusPublisher::Publish() {
  const std::string& trouble = watch_.Look();
  const std::uint64_t now = host_.machine.clock.tick_ms();
  if (now < next_ms_) return;
  next_ms_ = now + kPeriodMs;
  const auto driver = host_.m_DriverAccess.GetDriverSyncHandle();
  if (!driver) return;
  std::string report = StatusReport(host_, trouble);
  if (report == published_ && driver == published_to_.lock() && now < repeat_ms_) return;
  if (host_.m_DriverAccess.PublishReport(report) == 0) return;
  published_ = std::move(report);
  published_to_ = driver;
  repeat_ms_ = now + kRepeatMs;
}

}  // namespace sonivo
