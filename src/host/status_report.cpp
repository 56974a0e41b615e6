#include "host/status_report.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <vector>

namespace sonivo {
namespace {

constexpr std::uint64_t kPeriodMs = 1000;
constexpr std::uint64_t kRepeatMs = 5000;
constexpr double kBlockNs = 10e6;
constexpr std::size_t kMostEndpointBytes = 2000;  // of each direction, so that the report keeps below its limit

/// Text in quotes, with what JSON doesn't take as it is.
std::string in_quotes(const std::string& text) {
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
  void text(const char* name, const std::string& value) { raw(name, in_quotes(value)); }
  void flag(const char* name, bool value) { raw(name, value ? "true" : "false"); }
  void number(const char* name, double value) {
    char digits[40];
    std::snprintf(digits, sizeof digits, "%.6g", value);
    raw(name, digits);
  }
  void whole(const char* name, std::int64_t value) { raw(name, std::to_string(value)); }
  void object(const char* name, const JsonObject& value) { raw(name, value.str()); }
  /// `values`: as they stand in JSON, with commas between them.
  void array(const char* name, const std::string& values) { raw(name, '[' + values + ']'); }
  std::string str() const { return "{" + members_ + "}"; }

 private:
  void raw(const char* name, const std::string& value) {
    if (!members_.empty()) members_ += ',';
    members_ += in_quotes(name) + ':' + value;
  }
  std::string members_;
};

/// Ids in quotes of the endpoints that there are; none when they are more than the report has room for.
std::string KnownEndpoints(Endpoints& endpoints, DataFlow flow) {
  std::vector<std::shared_ptr<Endpoint>> list;
  if (failed(endpoints.list(flow, kDeviceActive | kDeviceDisabled | kDeviceUnplugged, list))) return {};
  std::string ids;
  for (const auto& each : list) {
    std::string id;
    if (failed(each->id(id))) continue;
    if (!ids.empty()) ids += ',';
    ids += in_quotes(id);
  }
  return ids.size() <= kMostEndpointBytes ? ids : "";
}

double ToMs(const CStreamInterface& stream, double frames) {
  const double frames_per_ms = stream.SampleRate() / 1000.0;
  return frames_per_ms > 0 ? frames / frames_per_ms : 0.0;
}

double Mean(double sum, std::uint64_t count) { return count > 0 ? sum / static_cast<double>(count) : 0.0; }

JsonObject StreamReport(HostState& host, DataFlow flow) {
  const CStreamInterface& stream = host.m_AudioControl.Stream(flow);
  const StreamStatistics statistics = stream.Statistics();
  JsonObject report;
  report.text("state", StateName(stream.State()));
  report.text("endpoint", stream.EndpointId());
  report.array("endpoints", KnownEndpoints(host.machine.endpoints, flow));
  report.whole("streams", static_cast<std::int64_t>(statistics.streams));
  report.whole("underruns", static_cast<std::int64_t>(statistics.underruns));
  report.whole("overruns", static_cast<std::int64_t>(statistics.overruns));
  report.whole("feedback", statistics.feedback);
  report.number("fill_mean_ms", ToMs(stream, Mean(static_cast<double>(statistics.fill_sum), statistics.fill_count)));
  report.number("fill_min_ms", statistics.fill_count > 0 ? ToMs(stream, statistics.fill_min) : 0.0);
  return report;
}

/// With what the chain does; there is none in the other direction.
JsonObject CaptureReport(HostState& host) {
  const CStreamInterface& stream = host.m_AudioControl.Stream(DataFlow::capture);
  const StreamStatistics statistics = stream.Statistics();
  const double execute_ns = Mean(static_cast<double>(statistics.execute_sum_ns), statistics.executions);
  JsonObject report = StreamReport(host, DataFlow::capture);
  report.whole("blocks", static_cast<std::int64_t>(statistics.blocks));
  report.whole("silenced", static_cast<std::int64_t>(statistics.silenced));
  report.whole("unenhanced", static_cast<std::int64_t>(statistics.unenhanced));
  report.number("chain_latency_ms", ToMs(stream, statistics.chain_latency));
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

const char* PauseName(Pause pause) {
  switch (pause) {
    case Pause::locked:
      return "locked";
    case Pause::asleep:
      return "asleep";
    case Pause::none:
      break;
  }
  return "none";
}

}  // namespace

std::string StatusReport(HostState& host, const std::string& trouble) {
  JsonObject report;
  report.whole("version", 5);
  report.whole("generation", host.m_dwGeneration);
  report.whole("function", host.m_Function);
  report.whole("generation_mic", host.m_dwGenerationMic);
  report.whole("function_mic", host.m_FunctionMic);
  report.text("chain", ChainName(host.m_AudioControl.RunningChain()));
  report.flag("driver_ready", host.m_bDriverReady != 0);
  report.text("pause", PauseName(host.m_Pause));
  report.whole("meeting_mode", host.m_iMeetingModeCur);
  report.flag("room_correction", host.m_RoomCorrection != 0);
  report.flag("headphones", host.m_dwHeadPhone != 0);
  report.flag("auto_mute", host.m_dwAutoMute == 1);
  report.object("capture", CaptureReport(host));
  report.object("render", StreamReport(host, DataFlow::render));
  report.text("trouble", trouble);
  const LastTrouble::Entry last = host.m_LastTrouble.Latest();
  report.text("last_trouble", last.text);
  report.whole("last_trouble_ms", static_cast<std::int64_t>(last.tick_ms));
  return report.str();
}

void ReportAtOnce(HostState& host) {
  const std::lock_guard lock(host.m_csReport);
  host.m_DriverAccess.PublishReport(StatusReport(host, host.m_szTrouble));
}

void StatusPublisher::Publish() {
  const std::uint64_t now_ms = host_.machine.clock.tick_ms();
  Offer(watch_.Look(), now_ms);
  NoteObstacle(now_ms);
}

void StatusPublisher::Offer(const std::string& trouble, std::uint64_t now_ms) {
  const auto driver = host_.m_DriverAccess.GetDriverSyncHandle();
  refused_ = refused_ && driver != nullptr;
  const bool is_known = driver == published_to_.lock();
  if (!driver || (is_known && now_ms < next_ms_)) return;
  next_ms_ = now_ms + kPeriodMs;
  const std::lock_guard lock(host_.m_csReport);
  host_.m_szTrouble = trouble;
  std::string report = StatusReport(host_, trouble);
  if (is_known && report == published_ && now_ms < repeat_ms_) return;
  const Error refused = host_.m_DriverAccess.PublishReport(report);
  refused_ = refused == error::kAccessDenied;
  if (refused != error::kNone) return;
  published_ = std::move(report);
  published_to_ = driver;
  repeat_ms_ = now_ms + kRepeatMs;
}

void StatusPublisher::NoteObstacle(std::uint64_t now_ms) {
  const bool waits = waiting_.Since(refused_, now_ms);
  if (!watch_.DriverTrouble().empty()) {
    host_.m_DriverNotes.Note(watch_.DriverTrouble());
  } else if (waits) {
    host_.m_DriverNotes.Note("another service has the driver; this one waits for its end");
  } else if (host_.m_bDriverReady != 0 && !refused_) {
    host_.m_DriverNotes.Note({});
  }
}

}  // namespace sonivo
