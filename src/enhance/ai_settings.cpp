// Settings and recordings of the third chain.

#include <cmath>
#include <cstring>

#include "enhance/ai_speech_enhance_a.h"
#include "enhance/rate_converter.h"

namespace sonivo {
namespace {

constexpr float kModelRate = 16000.0f;

/// The body of a getter: stores what the object has to say.
template <class Value>
auto answer(Value* out, const Value& value) {
  return [out, &value] {
    if (out == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    *out = value;
    return Outcome{};
  };
}

}  // namespace

int CAISpeechEnhance_A::ResetBuffer() {
  return while_open("ResetBuffer", [&] {
    clear_fifos();
    return Outcome{};
  });
}

int CAISpeechEnhance_A::GetVersion(std::uint16_t* major_version, std::uint16_t* minor_version) const {
  if (major_version == nullptr || minor_version == nullptr) {
    log_text(LogLevel::error, "GetVersion: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n");
    return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG;
  }
  *major_version = 1;
  *minor_version = 7;
  return 0;
}

int CAISpeechEnhance_A::GetParamSize(std::uint32_t* param_size) const {
  if (param_size == nullptr) {
    log_text(LogLevel::error, "GetParamSize: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n");
    return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG;
  }
  return bf.GetParamSize(param_size);
}

int CAISpeechEnhance_A::SetParam(const std::uint16_t* param) {
  return ask_bf("SetParam", [&] {
    return param != nullptr ? bf.SetParam(param) : static_cast<int>(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  });
}

int CAISpeechEnhance_A::GetParamID(std::uint16_t* param_id) const {
  return ask_bf("GetParamID", [&] { return bf.GetParamID(param_id); });
}

int CAISpeechEnhance_A::GetAIModelID(char* AIModel_id) const {
  return while_open("GetAIModelID", [&] {
    if (AIModel_id == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    std::strcpy(AIModel_id, se_model->get<std::string>("file-version").c_str());
    return Outcome{};
  });
}

int CAISpeechEnhance_A::SetAISpeechEnhanceActive(std::uint16_t active) {
  return while_open("SetAISpeechEnhanceActive", [&] {
    if (active > 1) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    AISpeechEnhanceActive = active;
    if (active == 0) clear_fifos();
    return Outcome{};
  });
}

int CAISpeechEnhance_A::GetAISpeechEnhanceActive(std::uint16_t* active) const {
  return while_open("GetAISpeechEnhanceActive", answer(active, AISpeechEnhanceActive));
}

int CAISpeechEnhance_A::SetAISpeechEnhanceStrength(float strength) {
  return while_open("SetAISpeechEnhanceStrength", [&] {
    if (!(strength >= 0.0f && strength <= 1.0f)) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    se_model->set<float>("enhancement-strength", strength);
    return Outcome{};
  });
}

int CAISpeechEnhance_A::GetAISpeechEnhanceStrength(float* strength) const {
  return while_open("GetAISpeechEnhanceStrength", [&] {
    if (strength == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    *strength = se_model->get<float>("enhancement-strength");
    return Outcome{};
  });
}

// bf answers INVARID_ARG, which has the same number, to null and to flags above 1.

int CAISpeechEnhance_A::SetBeamFormingActive(std::uint16_t active) {
  return ask_bf("SetBeamFormingActive", [&] { return bf.SetBeamFormingActive(active); });
}
int CAISpeechEnhance_A::GetBeamFormingActive(std::uint16_t* active) const {
  return ask_bf("GetBeamFormingActive", [&] { return bf.GetBeamFormingActive(active); });
}
int CAISpeechEnhance_A::SetKeyReductionActive(std::uint16_t active) {
  return ask_bf("SetKeyReductionActive", [&] { return bf.SetKeyReductionActive(active); });
}
int CAISpeechEnhance_A::GetKeyReductionActive(std::uint16_t* active) const {
  return ask_bf("GetKeyReductionActive", [&] { return bf.GetKeyReductionActive(active); });
}
int CAISpeechEnhance_A::SetNoiseReductionActive(std::uint16_t active) {
  return ask_bf("SetNoiseReductionActive", [&] { return bf.SetNoiseReductionActive(active); });
}
int CAISpeechEnhance_A::GetNoiseReductionActive(std::uint16_t* active) const {
  return ask_bf("GetNoiseReductionActive", [&] { return bf.GetNoiseReductionActive(active); });
}

int CAISpeechEnhance_A::SetSamplingRate(float rate) {
  return while_open("SetSamplingRate", [&] {
    if (rate != 48000.0f && rate != 44100.0f) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_SAMPLING_RATE);
    sampling_rate_local = rate;
    return Outcome::of(bf.SetSamplingRate(rate));
  });
}

int CAISpeechEnhance_A::GetSamplingRate(float* rate) const {
  return while_open("GetSamplingRate", answer(rate, sampling_rate_local));
}

int CAISpeechEnhance_A::SetChannel(std::uint16_t channels) {
  return while_open("SetChannel", [&] {
    if (channels < 1 || channels > 4) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_CHANNEL_NUM);
    return Outcome::of(bf.SetChannel(channels));
  });
}

int CAISpeechEnhance_A::GetChannel(std::uint16_t* channels) const {
  return ask_bf("GetChannel", [&] { return bf.GetChannel(channels); });
}

int CAISpeechEnhance_A::SetDataLength(std::uint16_t frames) {
  return while_open("SetDataLength", [&] {
    if (frames == 0) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
    enhanced_block.resize(frames);
    length_local = frames;
    return Outcome::of(bf.SetDataLength(frames));
  });
}

int CAISpeechEnhance_A::GetDataLength(std::uint16_t* frames) const {
  return while_open("GetDataLength", answer(frames, length_local));
}

int CAISpeechEnhance_A::GetLatency(std::uint32_t* frames) const {
  const std::scoped_lock lock(mtx);
  if (!is_open()) return ERROR_AI_SPEECH_ENHANCE_NO_INIT;
  if (frames == nullptr) return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG;
  std::uint32_t of_bf = 0;
  const int code = bf.GetLatency(&of_bf);
  const float model_sample = sampling_rate_local / kModelRate;  // in samples of the device
  const float converters = RateConverter::kLatency * (1 + model_sample);
  const auto of_model = fifo_out_silence + static_cast<std::uint32_t>(std::lround(converters));
  *frames = of_bf + (AISpeechEnhanceActive == 1 ? of_model : 0);
  return code;
}

int CAISpeechEnhance_A::OpenRecFile(const char* filename) {
  return while_open("OpenRecFile", [&] {
    if (filename == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    if (const int code = wav_rec.open(filename); code != 0) return Outcome::logged(code);
    std::uint16_t channels = 0;
    if (const int code = bf.GetChannel(&channels); code != 0) return Outcome::of(code);
    return Outcome::logged(wav_rec.begin(channels, length_local));
  });
}

int CAISpeechEnhance_A::Rec(const float* in) {
  return while_open("Rec", [&] {
    if (in == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    if (!wav_rec.is_open()) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_NO_INIT);
    std::uint16_t channels = 0;
    if (const int code = bf.GetChannel(&channels); code != 0) return Outcome::of(code);
    return Outcome::of(wav_rec.write(in, std::size_t{channels} * length_local));
  });
}

int CAISpeechEnhance_A::CloseRecFile() {
  return while_open("CloseRecFile", [&] {
    if (!wav_rec.is_open()) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_NO_INIT);
    std::uint16_t channels = 0;
    if (const int code = bf.GetChannel(&channels); code != 0) return Outcome::of(code);
    return Outcome::of(wav_rec.close(channels, sampling_rate_local));
  });
}

}  // namespace sonivo
