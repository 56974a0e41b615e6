#pragma once

#include <cstdint>

#include "classic/beam_forming_key_cancel.h"

namespace sonivo {

/// The third chain: the beamforming chain on the caller's block, then streaming neural speech enhancement on a thread
/// of its own, and the enrolment of a voice.
///
/// Operations answer 0 on success and a code of enhance/result.h otherwise. Everything but GetVersion and GetParamSize
/// answers ERROR_AI_SPEECH_ENHANCE_NO_INIT before Open (Close: ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED), as the object
/// does for now in all of its life: Open has no runtime to load a model with and answers
/// ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL.
class CAISpeechEnhance {
 public:
  CAISpeechEnhance() = default;
  CAISpeechEnhance(const CAISpeechEnhance&) = delete;
  CAISpeechEnhance& operator=(const CAISpeechEnhance&) = delete;

  /// bf_param: blob of GetParamSize bytes that outlives the open object; add_buff_*: extra buffering in ms.
  int Open(const std::uint16_t* bf_param, const char* model_file, float sampling_rate_local,
           std::uint16_t channel_local, std::uint16_t length_local, float add_buff_in_ms, float add_buff_out_ms);
  int Close();
  int Run();
  int Stop();
  /// Processes GetDataLength interleaved frames in place, full scale 1.0.
  int Execute(float* in_out);
  int ResetBuffer();

  int GetVersion(std::uint16_t* major_version, std::uint16_t* minor_version) const;
  int GetParamSize(std::uint32_t* param_size) const;
  int SetParam(const std::uint16_t* param);
  int GetParamID(std::uint16_t* param_id) const;
  int SetAIModel(const char* model_file);
  /// Copies the model's version text with its terminator.
  int GetAIModelID(char* AIModel_id) const;

  int SetAISpeechEnhanceActive(std::uint16_t active);
  int GetAISpeechEnhanceActive(std::uint16_t* active) const;
  /// 0.0 (the input passes) to 1.0.
  int SetAISpeechEnhanceStrength(float strength);
  int GetAISpeechEnhanceStrength(float* strength) const;
  int SetBeamFormingActive(std::uint16_t active);
  int GetBeamFormingActive(std::uint16_t* active) const;
  int SetKeyReductionActive(std::uint16_t active);
  int GetKeyReductionActive(std::uint16_t* active) const;
  int SetNoiseReductionActive(std::uint16_t active);
  int GetNoiseReductionActive(std::uint16_t* active) const;
  int SetSamplingRate(float rate);
  int GetSamplingRate(float* rate) const;
  int SetChannel(std::uint16_t channels);
  int GetChannel(std::uint16_t* channels) const;
  int SetDataLength(std::uint16_t frames);
  int GetDataLength(std::uint16_t* frames) const;

  /// Writes the base model with the voice of the recording enrolled in it.
  int MakeAIModel(const char* base_model_file, const char* enc_model_file, const char* wave_file,
                  const char* out_model_file, std::uint16_t preprocess_on);
  int PauseMakeAIModel();
  int ResumeMakeAIModel();
  int QuitMakeAIModel();

  int OpenRecFile(const char* wave_file);
  int Rec(const float* in);
  int CloseRecFile();

 private:
  CBeamFormingKeyCancel bf_;
};

}  // namespace sonivo
