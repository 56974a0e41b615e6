#include "host/voice_building.h"

#include <filesystem>
#include <system_error>

#include "base/text.h"
#include "base/trace.h"

namespace sonivo {
namespace {

constexpr char kModelFile[] = "EnhanceModel.bin";

using TextGetter = int (CSonivoDriverAccess::*)(control::WireText&, std::uint32_t*);

/// Empty when it can't be read.
std::filesystem::path ReadPath(CSonivoDriverAccess& driver, TextGetter getter) {
  control::WireText text{};
  std::uint32_t bytes = 0;
  if ((driver.*getter)(text, &bytes) == 0) {
    trace(TraceLevel::error, "[ChangeRegistryThread] a path of the enrolment can't be read\n");
    return {};
  }
  return to_utf8({text.data(), bytes / sizeof(char16_t)});
}

std::uint32_t RegistrationValue(CSonivoDriverAccess& driver) {
  std::uint32_t value = 1;
  driver.GetAispeechenhanceRegistrationMTG(&value);
  return value;
}

/// Puts a copy of the enrolled model there, or takes the former one away.
void Publish(const HostState& host, bool enrolled, const std::filesystem::path& published) {
  std::error_code why;
  if (enrolled) {
    std::filesystem::copy_file(host.m_szEnhanceModelFolder / kModelFile, published,
                               std::filesystem::copy_options::overwrite_existing, why);
  } else {
    std::filesystem::remove(published, why);
  }
  if (why) trace(TraceLevel::error, "[ChangeRegistryThread] %s: %s\n", published.c_str(), why.message().c_str());
}

void SetVoiceModelInUse(CSonivoDriverAccess& driver, std::uint32_t on) {
  driver.SetAispeechenhanceSetAiModelMTG(on);
  driver.SetAispeechenhanceSetAiModel_UI_MTG(on);
}

}  // namespace

void BuildVoiceModel(HostState& host) {
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  if (RegistrationValue(driver) != registration::kBuild) return;

  std::filesystem::path recording = ReadPath(driver, &CSonivoDriverAccess::GetAispeechenhanceWavFolderMTG);
  recording /= ReadPath(driver, &CSonivoDriverAccess::GetAispeechenhanceWavFileMTG);
  host.m_AudioControl.SetAISpeechEnhanceWavFile(recording.c_str());
  driver.SetAispeechenhanceRegistrationMTG(registration::kRunning);
  const int result = host.m_AudioControl.MakeAISpeechEnhanceModel(true);

  // Without a folder there is no published copy: nothing is to happen in the folder that the process runs in.
  const std::filesystem::path folder = ReadPath(driver, &CSonivoDriverAccess::GetAispeechenhanceWavFolderMTG);
  if (!folder.empty()) Publish(host, result == 0, folder / kModelFile);
  SetVoiceModelInUse(driver, result == 0 ? 1 : 0);

  const std::uint32_t found = RegistrationValue(driver);
  const bool stays = found == registration::kAbort || found == registration::kLeft15 || found == registration::kLeft103;
  if (result != 0 && !stays) {
    host.m_LastTrouble.Note("the enrolment failed: result " + std::to_string(result), host.machine.clock.tick_ms());
  }
  driver.SetAispeechenhanceRegistrationMTG(stays ? found : static_cast<std::uint32_t>(result));
}

void QuitVoiceModel(HostState& host) {
  if (RegistrationValue(host.m_DriverAccess) != registration::kAbort) return;
  const int result = host.m_AudioControl.QuitAISpeechEnhanceModel();
  host.m_DriverAccess.SetAispeechenhanceRegistrationMTG(static_cast<std::uint32_t>(result));
}

}  // namespace sonivo
