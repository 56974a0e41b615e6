#include "apps/tool/status_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <span>
#include <utility>

namespace sonivo::tool {

namespace {

using nlohmann::json;

constexpr std::uint64_t kReportVersion = 5;
constexpr std::array<const char*, 4> kReportedStates{"eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming",
                                                     "ePhysicalStreaming"};
constexpr std::array<const char*, 4> kReportedChains{"none", "keycancel", "beamforming", "ai"};
constexpr std::array<const char*, 3> kReportedPauses{"none", "locked", "asleep"};

/// Members of one object, which must be there and of the kind that is asked for.
class ObjectReader {
 public:
  ObjectReader(const json& object, std::string where) : object_(object), where_(std::move(where)) {}

  const json& member(const char* name) const {
    const auto found = object_.find(name);
    if (found == object_.end()) throw ReportFault("it lacks " + where_ + name);
    return *found;
  }

  std::uint64_t count(const char* name, std::uint64_t highest = std::numeric_limits<std::uint64_t>::max()) const {
    const json& value = member(name);
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > highest) throw fault(name);
    return value.get<std::uint64_t>();
  }
  std::uint32_t small_count(const char* name) const {
    return static_cast<std::uint32_t>(count(name, std::numeric_limits<std::uint32_t>::max()));
  }
  std::int32_t sign(const char* name) const {
    const json& value = member(name);
    if (value.is_number_unsigned()) return static_cast<std::int32_t>(count(name, 1));
    if (!value.is_number_integer() || value.get<std::int64_t>() != -1) throw fault(name);
    return -1;
  }
  double amount(const char* name) const {
    const json& value = member(name);
    if (!value.is_number() || !std::isfinite(value.get<double>()) || value.get<double>() < 0) throw fault(name);
    return value.get<double>();
  }
  bool flag(const char* name) const {
    const json& value = member(name);
    if (!value.is_boolean()) throw fault(name);
    return value.get<bool>();
  }
  std::string text(const char* name) const {
    const json& value = member(name);
    if (!value.is_string()) throw fault(name);
    return value.get<std::string>();
  }
  std::vector<std::string> texts(const char* name) const {
    const json& values = member(name);
    const bool are_texts = values.is_array() &&
                           std::all_of(values.begin(), values.end(), [](const json& each) { return each.is_string(); });
    if (!are_texts) throw fault(name);
    return values.get<std::vector<std::string>>();
  }
  std::string word(const char* name, std::span<const char* const> words) const {
    std::string value = text(name);
    if (std::find(words.begin(), words.end(), value) == words.end()) throw fault(name);
    return value;
  }
  ObjectReader object(const char* name) const {
    const json& value = member(name);
    if (!value.is_object()) throw fault(name);
    return {value, where_ + name + "."};
  }

 private:
  ReportFault fault(const char* name) const {
    return ReportFault("what it gives as " + where_ + name + " makes no sense");
  }

  const json& object_;
  std::string where_;
};

StreamReport read_stream(const ObjectReader& reader) {
  StreamReport stream;
  stream.state = reader.word("state", kReportedStates);
  stream.endpoint = reader.text("endpoint");
  stream.endpoints = reader.texts("endpoints");
  stream.streams = reader.count("streams");
  stream.underruns = reader.count("underruns");
  stream.overruns = reader.count("overruns");
  stream.feedback = reader.sign("feedback");
  stream.fill_mean_ms = reader.amount("fill_mean_ms");
  stream.fill_min_ms = reader.amount("fill_min_ms");
  return stream;
}

CaptureReport read_capture(const ObjectReader& reader) {
  CaptureReport capture{read_stream(reader)};
  capture.blocks = reader.count("blocks");
  capture.silenced = reader.count("silenced");
  capture.unenhanced = reader.count("unenhanced");
  capture.chain_latency_ms = reader.amount("chain_latency_ms");
  capture.execute_mean_us = reader.amount("execute_mean_us");
  capture.execute_max_us = reader.amount("execute_max_us");
  capture.load = reader.amount("load");
  return capture;
}

}  // namespace

ServiceReport read_service_report(std::string_view text) {
  const json whole = json::parse(text, nullptr, false);
  if (whole.is_discarded() || !whole.is_object()) throw ReportFault("it is no JSON object");
  const ObjectReader reader(whole, "");
  const json& version = reader.member("version");
  if (!version.is_number_unsigned() || version != kReportVersion) {
    throw ReportFault("it is of version " + (version.is_number() ? version.dump() : "unknown") +
                      ", and this program knows version " + std::to_string(kReportVersion) +
                      "; install a service and a sonivo of the same version");
  }
  ServiceReport report;
  report.generation = reader.small_count("generation");
  report.function = reader.small_count("function");
  report.generation_mic = reader.small_count("generation_mic");
  report.function_mic = reader.small_count("function_mic");
  report.chain = reader.word("chain", kReportedChains);
  report.driver_ready = reader.flag("driver_ready");
  report.pause = reader.word("pause", kReportedPauses);
  report.meeting_mode = reader.small_count("meeting_mode");
  report.room_correction = reader.flag("room_correction");
  report.headphones = reader.flag("headphones");
  report.auto_mute = reader.flag("auto_mute");
  report.capture = read_capture(reader.object("capture"));
  report.render = read_stream(reader.object("render"));
  report.trouble = reader.text("trouble");
  report.last_trouble = reader.text("last_trouble");
  report.last_trouble_ms = reader.count("last_trouble_ms");
  return report;
}

}  // namespace sonivo::tool
