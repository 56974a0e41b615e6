#include "enhance/ai_speech_enhance.h"

#include "enhance/result.h"

namespace sonivo {

int CAISpeechEnhance::GetVersion(std::uint16_t* major_version, std::uint16_t* minor_version) const {
  if (major_version == nullptr || minor_version == nullptr) return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG;
  *major_version = 1;
  *minor_version = 7;
  return 0;
}

int CAISpeechEnhance::GetParamSize(std::uint32_t* param_size) const {
  if (param_size == nullptr) return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG;
  return bf_.GetParamSize(param_size);
}

int CAISpeechEnhance::Open(const std::uint16_t*, const char*, float, std::uint16_t, std::uint16_t, float, float) {
  return ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL;
}
int CAISpeechEnhance::Close() { return ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED; }
int CAISpeechEnhance::Run() { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::Stop() { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::Execute(float*) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::ResetBuffer() { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetParam(const std::uint16_t*) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetParamID(std::uint16_t*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetAIModel(const char*) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetAIModelID(char*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetAISpeechEnhanceActive(std::uint16_t) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetAISpeechEnhanceActive(std::uint16_t*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetAISpeechEnhanceStrength(float) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetAISpeechEnhanceStrength(float*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetBeamFormingActive(std::uint16_t) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetBeamFormingActive(std::uint16_t*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetKeyReductionActive(std::uint16_t) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetKeyReductionActive(std::uint16_t*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetNoiseReductionActive(std::uint16_t) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetNoiseReductionActive(std::uint16_t*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetSamplingRate(float) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetSamplingRate(float*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetChannel(std::uint16_t) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetChannel(std::uint16_t*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::SetDataLength(std::uint16_t) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::GetDataLength(std::uint16_t*) const { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::MakeAIModel(const char*, const char*, const char*, const char*, std::uint16_t) {
  return ERROR_AI_SPEECH_ENHANCE_NO_INIT;
}
int CAISpeechEnhance::PauseMakeAIModel() { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::ResumeMakeAIModel() { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::QuitMakeAIModel() { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::OpenRecFile(const char*) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::Rec(const float*) { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }
int CAISpeechEnhance::CloseRecFile() { return ERROR_AI_SPEECH_ENHANCE_NO_INIT; }

}  // namespace sonivo
