#pragma once

#include <cstdint>
#include <memory>

#include "base/thread.h"
#include "enhance/voice_level.h"

namespace sonivo {

class CAISpeechEnhance_A;

/// The third chain: the beamforming chain on the caller's block, then streaming neural speech enhancement on a thread
/// of its own, and the enrolment of a voice. Logs each operation, "<Op>:" and "<Op>: return (<code>)".
///
/// Operations answer 0 on success and a code of enhance/result.h otherwise. Everything but GetVersion and GetParamSize
/// answers ERROR_AI_SPEECH_ENHANCE_NO_INIT before Open (Close: ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED). Any thread; one
/// lock for each operation but for GetVersion, GetParamSize and the steering of MakeAIModel. While a model is changed
/// or made, Execute answers WARNING_AI_SPEECH_ENHANCE_BUSY at once.
class CAISpeechEnhance {
 public:
  /// Opens the log where the environment asks for one. The enhancement thread asks `real_time` first, if there is one,
  /// to be scheduled before ordinary threads.
  explicit CAISpeechEnhance(RealTimeGrant real_time = {});
  /// Stops and closes first where needed.
  ~CAISpeechEnhance();
  CAISpeechEnhance(const CAISpeechEnhance&) = delete;
  CAISpeechEnhance& operator=(const CAISpeechEnhance&) = delete;

  /// bf_param: blob of GetParamSize bytes; sampling_rate_local: 48000 or 44100 Hz; channel_local: 1 to 4; length_local:
  /// frames of a block; add_buff_*: what the two FIFOs hold beyond a chunk of 50 ms, in ms, at most 10000. A model that
  /// could not enhance its first chunk, wants anything but samples at 16000 Hz, or gives more or less of them than it
  /// takes, is refused.
  int Open(const std::uint16_t* bf_param, const char* model_file, float sampling_rate_local,
           std::uint16_t channel_local, std::uint16_t length_local, float add_buff_in_ms, float add_buff_out_ms);
  int Close();
  /// Starts and ends the enhancement thread. An exception on it ends the process with a line that tells why.
  int Run();
  int Stop();
  /// Processes GetDataLength interleaved frames in place, full scale 1.0. Allocates nothing and waits for nothing but
  /// copies. BUFF_OVERFLOW, BUFF_UNDERRUN: the block passed without the enhancement.
  int Execute(float* in_out);
  int ResetBuffer();

  int GetVersion(std::uint16_t* major_version, std::uint16_t* minor_version) const;
  int GetParamSize(std::uint32_t* param_size) const;
  int SetParam(const std::uint16_t* param);
  int GetParamID(std::uint16_t* param_id) const;
  /// Changes the model while the stream runs; takes 50 ms at least. With a file that does not load there is no model
  /// any more, and blocks pass without the enhancement until another one is set.
  int SetAIModel(const char* model_file);
  /// Copies the model's version text with its terminator.
  int GetAIModelID(char* AIModel_id) const;

  int SetAISpeechEnhanceActive(std::uint16_t active);
  int GetAISpeechEnhanceActive(std::uint16_t* active) const;
  /// 0.0 (the input passes) to 1.0. A new model has 1.0.
  int SetAISpeechEnhanceStrength(float strength);
  int GetAISpeechEnhanceStrength(float* strength) const;
  int SetBeamFormingActive(std::uint16_t active);
  int GetBeamFormingActive(std::uint16_t* active) const;
  int SetKeyReductionActive(std::uint16_t active);
  int GetKeyReductionActive(std::uint16_t* active) const;
  int SetNoiseReductionActive(std::uint16_t active);
  int GetNoiseReductionActive(std::uint16_t* active) const;
  /// The FIFOs keep the rate of Open.
  int SetSamplingRate(float rate);
  int GetSamplingRate(float* rate) const;
  int SetChannel(std::uint16_t channels);
  int GetChannel(std::uint16_t* channels) const;
  int SetDataLength(std::uint16_t frames);
  int GetDataLength(std::uint16_t* frames) const;
  /// Frames by which the output is late, as all is switched: those of the beamforming chain and, with the enhancement
  /// on, of the ring behind the model and of both rate conversions. Without what the model itself looks ahead. Nothing
  /// logged.
  int GetLatency(std::uint32_t* frames) const;

  /// Writes the base model with the voice of the recording, a 16-bit PCM file at the device's rate, enrolled in it:
  /// whole or not at all; what was under that name before is removed at the start. preprocess_on 1: the recording,
  /// which then has the channels of Open, goes through the beamforming chain first. Blocks for as long as it takes.
  /// ERROR_AI_SPEECH_ENHANCE_FILE_WRITE leaves the reason in errno.
  int MakeAIModel(const char* base_model_file, const char* enc_model_file, const char* wave_file,
                  const char* out_model_file, std::uint16_t preprocess_on);
  int PauseMakeAIModel();
  int ResumeMakeAIModel();
  int QuitMakeAIModel();
  /// Of the MakeAIModel that runs, or ran last: what was measured of the recording, and how much of it, from 0 to 1,
  /// has gone into the encoder. Any thread, no lock, nothing logged.
  VoiceLevel MakeAIModelLevel() const;
  float MakeAIModelProgress() const;
  /// The enhancement thread has dealt with all blocks that were pushed and waits for more, or none runs. For the thread
  /// that calls Execute, while nobody opens; no lock.
  bool IsEnhancementIdle() const;

  int OpenRecFile(const char* filename);
  int Rec(const float* in);
  int CloseRecFile();

 private:
  std::unique_ptr<CAISpeechEnhance_A> impl_;
};

}  // namespace sonivo
