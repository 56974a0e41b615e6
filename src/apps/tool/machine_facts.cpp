#include "apps/tool/machine_facts.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <system_error>
#include <thread>

#include "apps/tool/chain_parameters.h"
#include "apps/tool/driver_connection.h"
#include "apps/tool/failure.h"
#include "apps/tool/microphones.h"
#include "apps/tool/param_blob.h"
#include "apps/tool/status_command.h"
#include "base/text.h"
#include "platform/linux/folders.h"
#include "platform/linux/logind.h"
#include "platform/linux/real_time.h"
#include "relay/effect_properties.h"
#include "relay/model_table.h"

namespace sonivo::tool {

namespace {

constexpr int kAudioPriority = 10;  // as the threads that serve streams ask for

/// On a thread that ends with the question: what is granted stays with it.
void ask_for_real_time(MachineFacts& facts) {
  std::thread([&] { facts.real_time = linux::RealTime({}).grant(kAudioPriority, facts.real_time_refusal); }).join();
}

/// That of this program; where it is in none, as the service, the one that its user sees.
linux::SessionState session_state() {
  linux::SessionState latest;
  const linux::Logind logind(linux::usual_logind(),
                             {.changed = [&](const linux::SessionState& state) { latest = state; },
                              .suspends = [](auto) {},
                              .resumed = [] {}});
  return latest;
}

/// With one of those where the relay looks; it looks with those that are not there, too, which the driver doesn't list.
bool has_chain_parameters(DriverConnection& driver, const MachineFacts& facts) {
  const auto microphones = microphones_of(facts.audio);
  return std::any_of(microphones.begin(), microphones.end(), [&](const Microphone& each) {
    if (!IsBuiltInMicrophone(each.name)) return false;
    EndpointProperties endpoint(driver, each.id);
    const StoredParameters stored = stored_parameters(endpoint);
    return facts.chain == Chain::keycancel ? stored.key_cancel : stored.beamforming;
  });
}

void ask_driver(const std::string& socket, MachineFacts& facts) {
  DriverConnection driver(socket);
  const MachineStatus status = read_status(driver, socket);
  const control::Store& settings = status.settings;
  facts.chain = chain_of(settings.number(control::GetFunctionMic), settings.number(control::GetGenerationMic));
  facts.capture_endpoint = to_utf8(settings.text(control::GetCaptureEndpointId));
  facts.render_endpoint = to_utf8(settings.text(control::GetRenderEndpointId));
  facts.has_chain_parameters = has_chain_parameters(driver, facts);
  facts.has_report = !status.report.empty();
  facts.service = status.service;
  facts.report_fault = status.report_fault;
  if (status.is_silent()) facts.silent_s = status.ages.report_ms / 1000;
  facts.has_new_driver = status.has_new_driver();
  const auto row = GetModelRow(linux::InstalledFolders::places().models,
                               static_cast<int>(settings.number(control::GetAispeechenhanceModelNoMTG)));
  std::error_code ignored;
  if (!std::filesystem::exists(row.speech_enhancement, ignored)) facts.model = row.speech_enhancement;
}

}  // namespace

MachineFacts gather_facts(const std::string& socket) {
  MachineFacts facts;
  const auto names = pipewire::names_of_tables(linux::microphone_tables(), facts.table_faults);
  facts.audio = pipewire::survey_server(names, kServerPatienceMs);
  facts.holders = device_holders();
  facts.session = session_state();
  facts.is_root = ::geteuid() == 0;
  ask_for_real_time(facts);
  try {
    ask_driver(socket, facts);
  } catch (const Failure& failure) {
    facts.driver_fault = failure.what();
  }
  for (const char* chain : {"keycancel", "beamforming"}) {
    std::error_code ignored;
    const std::string file = param_blob_path(std::nullopt, chain);
    if (!std::filesystem::exists(file, ignored)) facts.missing_files.push_back(file);
  }
  return facts;
}

}  // namespace sonivo::tool
