#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/thread.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "e2easr_model/se_model.h"
#include "enhance/block_dump.h"
#include "enhance/fifo_input.h"
#include "enhance/fifo_output.h"
#include "enhance/model_trial.h"
#include "enhance/outcome.h"
#include "enhance/rec_file.h"
#include "enhance/section_pair.h"
#include "enhance/voice_level.h"

namespace sonivo {

struct VoiceRecording;

/// The body of CAISpeechEnhance, which tells what its operations do.
///
/// The road of a block: Execute sends it through bf, mixes it to one channel, pushes it into fifo_in, pops the block
/// that is ready from fifo_out and fans it out. ThreadExec pulls chunks through the model and pushes them into
/// fifo_out.
class CAISpeechEnhance_A {
 public:
  explicit CAISpeechEnhance_A(RealTimeGrant its_real_time) : real_time(std::move(its_real_time)) {}

  int Open(const std::uint16_t* bf_param, const char* model_file, float rate, std::uint16_t channels,
           std::uint16_t length, float add_buff_in_ms, float add_buff_out_ms);
  int Close();
  int Run();
  int Stop();
  int Execute(float* in_out);
  int ResetBuffer();

  int GetVersion(std::uint16_t* major_version, std::uint16_t* minor_version) const;
  int GetParamSize(std::uint32_t* param_size) const;
  int SetParam(const std::uint16_t* param);
  int GetParamID(std::uint16_t* param_id) const;
  int SetAIModel(const char* model_file);
  int GetAIModelID(char* AIModel_id) const;

  int SetAISpeechEnhanceActive(std::uint16_t active);
  int GetAISpeechEnhanceActive(std::uint16_t* active) const;
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
  int GetLatency(std::uint32_t* frames) const;

  int MakeAIModel(const char* base_model_file, const char* enc_model_file, const char* wave_file,
                  const char* out_model_file, std::uint16_t preprocess_on);
  int PauseMakeAIModel();
  int ResumeMakeAIModel();
  int QuitMakeAIModel();
  VoiceLevel MakeAIModelLevel() const;
  float MakeAIModelProgress() const { return make_model_progress.load(); }
  bool IsEnhancementIdle() const;

  int OpenRecFile(const char* filename);
  int Rec(const float* in);
  int CloseRecFile();

  bool is_open() const { return open_flg != 0; }
  bool is_running() const { return exec_state != 0; }

 private:
  enum Busy : std::uint32_t { kFree = 0, kSetAIModel = 1, kMakeAIModel = 2 };
  enum MakeModel : std::uint32_t { kIdle = 0, kRunning = 1, kEncoded = 2 };

  /// Sets busy_state while it lives.
  class BusyWhile {
   public:
    BusyWhile(std::atomic<std::uint32_t>& state, Busy busy) : state_(state) { state_ = busy; }
    ~BusyWhile() { state_ = kFree; }
    BusyWhile(const BusyWhile&) = delete;
    BusyWhile& operator=(const BusyWhile&) = delete;

   private:
    std::atomic<std::uint32_t>& state_;
  };

  /// What PauseMakeAIModel and its like leave for MakeAIModel; stored as a whole, which takes that
  /// alignment.
  struct alignas(2) Steering {
    std::uint8_t make_model_pause = 0;
    std::uint8_t make_model_quit = 0;
  };

  /// Runs the body under the lock; NO_INIT where nothing is open. `op` names the operation in the log.
  template <class Body>
  int while_open(const char* op, Body body) const {
    return run_locked(mtx, op, [&] { return is_open() ? body() : Outcome::of(ERROR_AI_SPEECH_ENHANCE_NO_INIT); });
  }
  /// An operation that `bf` carries out under the lock.
  template <class Operation>
  int ask_bf(const char* op, Operation operation) const {
    return while_open(op, [&] { return Outcome::of(operation()); });
  }

  /// The two FIFOs for the chunk of the loaded model. False without memory.
  bool make_fifos(float rate, std::uint32_t add_out_ms);
  /// What overrides a model file's own settings, each time that one is loaded.
  static void set_streaming(e2e::SEModel& model);
  void clear_fifos();
  /// Throws without memory or another thread, and has to be stopped then.
  void start_enhancement();

  /// False, at once, while a model is changed or made: those hold the lock for seconds.
  bool lock_unless_busy(std::unique_lock<std::mutex>& lock) const;
  int execute_locked(float* in_out);  ///< while the stream runs
  /// The block goes to the model, and what the model made of an earlier one takes its place.
  int exchange_with_model(float* in_out);

  void ThreadExec();
  void push_enhanced(const meridane::Matrix& enhanced);

  Outcome swap_model(const char* model_file);
  bool wait_for_idle_model();

  Outcome make_model(const char* base_model_file, const char* enc_model_file, const char* wave_file,
                     const char* out_model_file, std::uint16_t preprocess_on);
  Outcome read_recording(const char* wave_file, std::uint16_t preprocess_on, VoiceRecording& recording);
  Outcome prepare_recording(std::uint16_t preprocess_on, VoiceRecording& recording);
  /// Loads the base model and gives it the voice.
  void encode_voice(const VoiceRecording& recording, const char* base_model_file, const char* enc_model_file,
                    e2e::SEModel& base);
  void feed_encoder(const VoiceRecording& recording, FifoInput& fifo);
  void sleep_while_paused() const;
  Steering steering() const { return make_model_steering.load(); }
  void log_make_model(const char* what) const;
  /// Lets the running MakeAIModel find what is wanted; with needs_pause only while it is paused.
  int steer(const char* op, bool needs_pause, Steering wanted);

  const RealTimeGrant real_time;
  mutable std::mutex mtx;  // guards what follows, but for atomics
  std::atomic<std::uint8_t> open_flg{0};
  std::thread exec_thread;
  float sampling_rate_local = 0.0f;
  std::uint16_t length_local = 0;
  std::shared_ptr<FifoInput> fifo_in;
  std::unique_ptr<FifoOutput> fifo_out;
  FifoRoom fifo_room;                  // what they hold
  std::uint32_t fifo_out_silence = 0;  // samples in front of what the model makes
  std::vector<float> enhanced_block;   // one channel
  std::unique_ptr<short[]> sdata;      // a chunk of the model's output, from Run to Stop
  std::size_t sdata_samples = 0;
  std::shared_ptr<e2e::SEModel> se_model;
  std::atomic<bool> has_model{false};  // a change that fails leaves none
  std::uint16_t AISpeechEnhanceActive = 0;
  CBeamFormingKeyCancel bf;        // processes the live block
  CBeamFormingKeyCancel bf_model;  // and nr_model process recordings
  CKeyCancel nr_model;
  BlockDump dump;
  RecFile wav_rec;
  VoiceBand voice_band;

  std::atomic<std::uint32_t> make_model_running{kIdle};
  std::atomic<Steering> make_model_steering{};
  std::atomic<float> make_model_progress{0.0f};
  mutable std::mutex voice_level_mutex;  // guards voice_level
  VoiceLevel voice_level;

  std::atomic<std::uint32_t> exec_state{0};
  std::atomic<std::uint32_t> busy_state{kFree};
};

}  // namespace sonivo
