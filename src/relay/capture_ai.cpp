// The third chain as the host steers it: open, close, choice of the model, enrolment of a voice.

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "base/text.h"
#include "base/trace.h"
#include "enhance/result.h"
#include "relay/capture_interface.h"
#include "relay/existing_file.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kDefaultRate = 48000;
constexpr std::uint16_t kDefaultChannels = 2;

void DeleteFile(const std::string& path) {
  std::error_code ignored;
  if (IsExistingFile(path)) std::filesystem::remove(path, ignored);
}

void CopyPath(std::array<char, 260>& to, const char* from) {
  to.fill('\0');
  std::strncpy(to.data(), from, to.size() - 1);
}

/// Rate that the machine's default microphone runs at.
std::uint32_t DefaultCaptureRate(Endpoints& endpoints) {
  std::shared_ptr<Endpoint> endpoint;
  std::unique_ptr<AudioClient> client;
  WAVEFORMATEXTENSIBLE format;
  if (failed(endpoints.default_endpoint(DataFlow::capture, Role::console, endpoint)) ||
      failed(endpoint->activate_audio_client(client)) || failed(client->mix_format(format))) {
    return kDefaultRate;
  }
  return format.nSamplesPerSec;
}

}  // namespace

void CCaptureInterface::SetAISpeechEnhanceModelNo(std::int32_t no) {
  const std::lock_guard lock(m_csModelNo);
  if (no >= kFirstModelNo && no <= kLastModelNo) m_AISpeechEnhanceModelNo = no;
}

ModelRow CCaptureInterface::CurrentModelRow() {
  const std::lock_guard lock(m_csModelNo);
  return GetModelRow(m_machine.folders.system_model_folder(), m_AISpeechEnhanceModelNo);
}

void CCaptureInterface::SetAISpeechEnhancePmodel(const char* path) {
  const std::lock_guard lock(m_csPmodel);
  CopyPath(m_szPmodel, path);
}

std::string CCaptureInterface::EnrolledModelPath() const {
  const std::lock_guard lock(m_csPmodel);
  return m_szPmodel.data();
}

void CCaptureInterface::SetAISpeechEnhanceWavFile(const char* path) {
  const std::lock_guard lock(m_csWavFile);
  CopyPath(m_szWavFile, path);
}

Status CCaptureInterface::SetAISpeechEnhanceOpen() {
  const std::lock_guard lock(m_csAIOpen);
  if (m_AISpeechEnhanceIsOpen) {
    trace(TraceLevel::error, "[cap] SetAISpeechEnhanceOpen::m_AISpeechEnhanceIsOpen Already Open.\n");
    return kFail;
  }
  m_bAISpeechEnhanceWanted = true;
  if (failed(OpenAISpeech(CurrentModelRow().speech_enhancement))) return kFail;
  m_AISpeechEnhanceIsOpen = true;
  return kOk;
}

// Takes no lock: the host closes when nothing else of its own runs any more. Blocks pass the chain by before it stops.
Status CCaptureInterface::SetAISpeechEnhanceClose() {
  m_bAISpeechEnhanceWanted = false;
  if (!m_AISpeechEnhanceIsOpen) return kOk;
  const bool ready = m_bAISpeechEnhanceReady.exchange(false);
  if ((m_bAISpeechEnhanceRunning && m_chains.ai_speech->Stop() != 0) || m_chains.ai_speech->Close() != 0) {
    m_bAISpeechEnhanceReady = ready;
    m_bAISpeechEnhanceWanted = true;
    return kFail;
  }
  m_bAISpeechEnhanceRunning = false;
  m_AISpeechEnhanceIsOpen = false;
  return kOk;
}

int CCaptureInterface::SwapAIModel() {
  AISpeechChain& chain = *m_chains.ai_speech;
  int swapped = 0;
  if (IsExistingFile(m_AISpeechEnhanceSetAiModelName)) {
    swapped = chain.SetAIModel(m_AISpeechEnhanceSetAiModelName.c_str());
    if (swapped != 0) trace(TraceLevel::error, "[cap] SetAIModel failed. (%d)\n", swapped);
    if (swapped == ERROR_AI_SPEECH_ENHANCE_TIMEOUT) {  // which leaves the enhancement off
      chain.SetAISpeechEnhanceActive(m_AISpeechEnhanceState.State() ? 1 : 0);
    }
  }
  const int strength_set = chain.SetAISpeechEnhanceStrength(ReadStrength());
  if (strength_set != 0) trace(TraceLevel::error, "[cap] SetAISpeechEnhanceStrength failed. (%d)\n", strength_set);
  return swapped != 0 ? swapped : strength_set;
}

int CCaptureInterface::UpdateAISpeechEnhanceSetAiModelState(bool use_enrolled) {
  const std::lock_guard lock(m_csAIOpen);
  if (use_enrolled == m_bSetAiModelState) return 1;
  m_bSetAiModelState = use_enrolled;

  const std::string enrolled = EnrolledModelPath();
  const bool well_formed = to_utf8(to_utf16(enrolled)) == enrolled;
  trace(TraceLevel::info, well_formed ? "[cap] mbstowcs SUCCESS.\n" : "[cap] mbstowcs ERROR.\n");

  std::error_code ignored;
  const bool exists = std::filesystem::exists(enrolled, ignored);
  m_AISpeechEnhanceSetAiModelName = exists && use_enrolled ? enrolled : CurrentModelRow().speech_enhancement;
  if (m_AISpeechEnhanceIsOpen && SwapAIModel() == 0) {
    trace(TraceLevel::debug, "[cap] voice-model is %s\n", exists && use_enrolled ? "on" : "off");
  }
  return exists ? 1 : 0;
}

int CCaptureInterface::MakeAISpeechEnhanceModel(bool) {
  if (!m_AISpeechEnhanceIsOpen) {
    trace(TraceLevel::error, "[cap] MakeAISpeechEnhanceModel::m_AISpeechEnhanceIsOpen = false.\n");
    return kFail;
  }
  AISpeechChain& chain = *m_chains.ai_speech;
  const ModelRow row = CurrentModelRow();
  {
    const std::lock_guard lock(m_csAIOpen);
    chain.SetAIModel(row.speech_enhancement.c_str());
  }
  chain.SetAISpeechEnhanceStrength(1.0f);

  const std::uint32_t default_rate = DefaultCaptureRate(m_machine.endpoints);
  {
    const std::lock_guard lock(m_csAIOpen);  // a stream that opens meanwhile brings its own shape
    const WAVEFORMATEXTENSIBLE format = Format();
    const std::uint32_t rate = format.nSamplesPerSec != 0 ? format.nSamplesPerSec : kDefaultRate;
    chain.SetDataLength(static_cast<std::uint16_t>(rate * kBlockMs / 1000));
    chain.SetSamplingRate(static_cast<float>(rate));
    if (default_rate != format.nSamplesPerSec) chain.SetSamplingRate(static_cast<float>(default_rate));
    chain.SetChannel(format.nChannels != 0 ? format.nChannels : kDefaultChannels);
    chain.SetKeyReductionActive(0);
    chain.SetNoiseReductionActive(0);
    chain.SetBeamFormingActive(0);
  }

  const std::string enrolled = EnrolledModelPath();
  std::string recording;
  {
    const std::lock_guard lock(m_csWavFile);
    recording = m_szWavFile.data();
  }
  int status = 0;
  {
    const std::lock_guard lock(m_csAIOpen);
    status = chain.MakeAIModel(row.target_speaker.c_str(), row.speaker_encoder.c_str(), recording.c_str(),
                               enrolled.c_str(), 0);
  }
  if (status != 0) {
    DeleteFile(enrolled);
    return status;
  }

  UpdateAISpeechEnhanceSetAiModelState(true);
  const std::lock_guard lock(m_csAIOpen);
  return IsExistingFile(m_AISpeechEnhanceSetAiModelName) ? SwapAIModel() : 0;
}

int CCaptureInterface::QuitAISpeechEnhanceModel() {
  const int status = m_chains.ai_speech->QuitMakeAIModel();
  if (status != 0) DeleteFile(EnrolledModelPath());
  return status;
}

}  // namespace sonivo
