#include "apps/tool/microphones.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "apps/tool/failure.h"
#include "base/text.h"
#include "platform/linux/folders.h"
#include "relay/effect_properties.h"
#include "relay/endpoint_names.h"

namespace sonivo::tool {

namespace {

std::string listed(const std::vector<const Microphone*>& microphones) {
  std::string text;
  for (const Microphone* each : microphones) text += (text.empty() ? "'" : ", '") + each->name + "' (" + each->id + ")";
  return text;
}

std::string found_text(std::span<const Microphone> microphones) {
  if (microphones.empty()) return "found: none";
  std::vector<const Microphone*> all;
  for (const Microphone& each : microphones) all.push_back(&each);
  return "found: " + listed(all);
}

}  // namespace

bool is_microphone_array(const Microphone& microphone) {
  return IsBuiltInMicrophone(microphone.name) &&
         (contains(microphone.name, "マイク配列 (デジタルマイク向けインテル") ||
          contains(microphone.name, "Microphone Array (デジタルマイク向けインテル"));
}

std::vector<Microphone> microphones_of(const pipewire::ServerSurvey& survey) {
  std::vector<Microphone> microphones;
  for (const pipewire::SurveyedEndpoint& each : survey.endpoints) {
    if (each.flow != DataFlow::capture || contains(each.name, kVirtualEndpointName)) continue;
    microphones.push_back({each.id, each.name, each.id == survey.default_microphone});
  }
  return microphones;
}

std::vector<Microphone> present_microphones() {
  std::vector<std::string> faults;
  const auto names = pipewire::names_of_tables(linux::microphone_tables(), faults);
  if (!faults.empty()) throw Failure(faults.front() + " Mend it, or remove it");
  const auto survey = pipewire::survey_server(names, kServerPatienceMs);
  if (!survey.reachable) {
    throw Failure(
        "PipeWire is not running, so that the microphones are unknown; start it: systemctl --user start "
        "pipewire wireplumber");
  }
  if (!survey.answers) {
    throw Failure("PipeWire has not answered for 2 s; restart it: systemctl --user restart pipewire wireplumber");
  }
  return microphones_of(survey);
}

const Microphone& built_in_microphone(std::span<const Microphone> microphones) {
  auto found = std::find_if(microphones.begin(), microphones.end(), is_microphone_array);
  if (found == microphones.end()) {
    found = std::find_if(microphones.begin(), microphones.end(),
                         [](const Microphone& each) { return IsBuiltInMicrophone(each.name); });
  }
  if (found != microphones.end()) return *found;
  throw Failure("no microphone is known as this machine's own; choose one with --microphone NAME; " +
                found_text(microphones));
}

const Microphone& microphone_called(const std::string& text, std::span<const Microphone> microphones) {
  std::vector<const Microphone*> alike;
  for (const Microphone& each : microphones) {
    if (each.id == text || each.name == text) return each;
    const std::string wanted = to_lower_ascii(text);
    if (contains(to_lower_ascii(each.id), wanted) || contains(to_lower_ascii(each.name), wanted)) {
      alike.push_back(&each);
    }
  }
  if (alike.size() == 1) return *alike.front();
  if (alike.empty()) throw Failure("no microphone is called '" + text + "'; " + found_text(microphones));
  throw Failure("'" + text + "' may be " + listed(alike) + "; write more of the name");
}

}  // namespace sonivo::tool
