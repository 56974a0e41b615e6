#include "enhance/ai_speech_enhance.h"

#include <atomic>
#include <utility>

#include "enhance/ai_speech_enhance_a.h"
#include "enhance/log_file.h"

namespace sonivo {
namespace {

std::atomic<int> log_users{0};

/// Runs an operation between its two lines in the log.
template <class Operation>
int logged(LogLevel level, const char* op, Operation operation) {
  log_text(level, "%s:\n", op);
  const int code = operation();
  log_text(level, "%s: return (%d)\n", op, code);
  return code;
}

template <class Operation>
int life_cycle(const char* op, Operation operation) {
  return logged(LogLevel::info0, op, operation);
}

template <class Operation>
int ordinary(const char* op, Operation operation) {
  return logged(LogLevel::info1, op, operation);
}

}  // namespace

CAISpeechEnhance::CAISpeechEnhance(RealTimeGrant real_time)
    : impl_(std::make_unique<CAISpeechEnhance_A>(std::move(real_time))) {
  if (log_users++ == 0) log_open();
  log_text(LogLevel::info0, "CAISpeechEnhance::CAISpeechEnhance()\n");
}

CAISpeechEnhance::~CAISpeechEnhance() {
  log_text(LogLevel::info0, "CAISpeechEnhance::~CAISpeechEnhance():\n");
  if (impl_->is_running()) {
    log_text(LogLevel::info0, "CAISpeechEnhance::~CAISpeechEnhance(): Stop process\n");
    Stop();
  }
  if (impl_->is_open()) {
    log_text(LogLevel::info0, "CAISpeechEnhance::~CAISpeechEnhance(): Close process\n");
    Close();
  }
  log_text(LogLevel::info0, "CAISpeechEnhance::~CAISpeechEnhance(): delete impl\n");
  impl_.reset();
  if (--log_users == 0) log_close();
}

int CAISpeechEnhance::Open(const std::uint16_t* bf_param, const char* model_file, float sampling_rate_local,
                           std::uint16_t channel_local, std::uint16_t length_local, float add_buff_in_ms,
                           float add_buff_out_ms) {
  return life_cycle("Open", [&] {
    return impl_->Open(bf_param, model_file, sampling_rate_local, channel_local, length_local, add_buff_in_ms,
                       add_buff_out_ms);
  });
}
int CAISpeechEnhance::Close() {
  return life_cycle("Close", [&] { return impl_->Close(); });
}
int CAISpeechEnhance::Run() {
  return life_cycle("Run", [&] { return impl_->Run(); });
}
int CAISpeechEnhance::Stop() {
  return life_cycle("Stop", [&] { return impl_->Stop(); });
}
int CAISpeechEnhance::Execute(float* in_out) {
  return ordinary("Execute", [&] { return impl_->Execute(in_out); });
}
int CAISpeechEnhance::ResetBuffer() {
  return ordinary("ResetBuffer", [&] { return impl_->ResetBuffer(); });
}
int CAISpeechEnhance::GetVersion(std::uint16_t* major_version, std::uint16_t* minor_version) const {
  return ordinary("GetVersion", [&] { return impl_->GetVersion(major_version, minor_version); });
}
int CAISpeechEnhance::GetParamSize(std::uint32_t* param_size) const {
  return ordinary("GetParamSize", [&] { return impl_->GetParamSize(param_size); });
}
int CAISpeechEnhance::SetParam(const std::uint16_t* param) {
  return ordinary("SetParam", [&] { return impl_->SetParam(param); });
}
int CAISpeechEnhance::GetParamID(std::uint16_t* param_id) const {
  return ordinary("GetParamID", [&] { return impl_->GetParamID(param_id); });
}
int CAISpeechEnhance::SetAIModel(const char* model_file) {
  return ordinary("SetAIModel", [&] { return impl_->SetAIModel(model_file); });
}
int CAISpeechEnhance::GetAIModelID(char* AIModel_id) const {
  return ordinary("GetAIModelID", [&] { return impl_->GetAIModelID(AIModel_id); });
}
int CAISpeechEnhance::SetAISpeechEnhanceActive(std::uint16_t active) {
  return ordinary("SetAISpeechEnhanceActive", [&] { return impl_->SetAISpeechEnhanceActive(active); });
}
int CAISpeechEnhance::GetAISpeechEnhanceActive(std::uint16_t* active) const {
  return ordinary("GetAISpeechEnhanceActive", [&] { return impl_->GetAISpeechEnhanceActive(active); });
}
int CAISpeechEnhance::SetAISpeechEnhanceStrength(float strength) {
  return ordinary("SetAISpeechEnhanceStrength", [&] { return impl_->SetAISpeechEnhanceStrength(strength); });
}
int CAISpeechEnhance::GetAISpeechEnhanceStrength(float* strength) const {
  return ordinary("GetAISpeechEnhanceStrength", [&] { return impl_->GetAISpeechEnhanceStrength(strength); });
}
int CAISpeechEnhance::SetBeamFormingActive(std::uint16_t active) {
  return ordinary("SetBeamFormingActive", [&] { return impl_->SetBeamFormingActive(active); });
}
int CAISpeechEnhance::GetBeamFormingActive(std::uint16_t* active) const {
  return ordinary("GetBeamFormingActive", [&] { return impl_->GetBeamFormingActive(active); });
}
int CAISpeechEnhance::SetKeyReductionActive(std::uint16_t active) {
  return ordinary("SetKeyReductionActive", [&] { return impl_->SetKeyReductionActive(active); });
}
int CAISpeechEnhance::GetKeyReductionActive(std::uint16_t* active) const {
  return ordinary("GetKeyReductionActive", [&] { return impl_->GetKeyReductionActive(active); });
}
int CAISpeechEnhance::SetNoiseReductionActive(std::uint16_t active) {
  return ordinary("SetNoiseReductionActive", [&] { return impl_->SetNoiseReductionActive(active); });
}
int CAISpeechEnhance::GetNoiseReductionActive(std::uint16_t* active) const {
  return ordinary("GetNoiseReductionActive", [&] { return impl_->GetNoiseReductionActive(active); });
}
int CAISpeechEnhance::SetSamplingRate(float rate) {
  return ordinary("SetSamplingRate", [&] { return impl_->SetSamplingRate(rate); });
}
int CAISpeechEnhance::GetSamplingRate(float* rate) const {
  return ordinary("GetSamplingRate", [&] { return impl_->GetSamplingRate(rate); });
}
int CAISpeechEnhance::SetChannel(std::uint16_t channels) {
  return ordinary("SetChannel", [&] { return impl_->SetChannel(channels); });
}
int CAISpeechEnhance::GetChannel(std::uint16_t* channels) const {
  return ordinary("GetChannel", [&] { return impl_->GetChannel(channels); });
}
int CAISpeechEnhance::SetDataLength(std::uint16_t frames) {
  return ordinary("SetDataLength", [&] { return impl_->SetDataLength(frames); });
}
int CAISpeechEnhance::GetDataLength(std::uint16_t* frames) const {
  return ordinary("GetDataLength", [&] { return impl_->GetDataLength(frames); });
}
int CAISpeechEnhance::GetLatency(std::uint32_t* frames) const { return impl_->GetLatency(frames); }
int CAISpeechEnhance::MakeAIModel(const char* base_model_file, const char* enc_model_file, const char* wave_file,
                                  const char* out_model_file, std::uint16_t preprocess_on) {
  return ordinary("MakeAIModel", [&] {
    return impl_->MakeAIModel(base_model_file, enc_model_file, wave_file, out_model_file, preprocess_on);
  });
}
int CAISpeechEnhance::PauseMakeAIModel() {
  return ordinary("PauseMakeAIModel", [&] { return impl_->PauseMakeAIModel(); });
}
int CAISpeechEnhance::ResumeMakeAIModel() {
  return ordinary("ResumeMakeAIModel", [&] { return impl_->ResumeMakeAIModel(); });
}
int CAISpeechEnhance::QuitMakeAIModel() {
  return ordinary("QuitMakeAIModel", [&] { return impl_->QuitMakeAIModel(); });
}
VoiceLevel CAISpeechEnhance::MakeAIModelLevel() const { return impl_->MakeAIModelLevel(); }
float CAISpeechEnhance::MakeAIModelProgress() const { return impl_->MakeAIModelProgress(); }
bool CAISpeechEnhance::IsEnhancementIdle() const { return impl_->IsEnhancementIdle(); }
int CAISpeechEnhance::OpenRecFile(const char* filename) {
  return ordinary("OpenRecFile", [&] { return impl_->OpenRecFile(filename); });
}
int CAISpeechEnhance::Rec(const float* in) {
  return ordinary("Rec", [&] { return impl_->Rec(in); });
}
int CAISpeechEnhance::CloseRecFile() {
  return ordinary("CloseRecFile", [&] { return impl_->CloseRecFile(); });
}

}  // namespace sonivo
