// Enrolment: a recording of a voice becomes a model that is tuned to it.

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <numeric>
#include <span>
#include <system_error>
#include <thread>

#include "enhance/ai_speech_enhance_a.h"
#include "enhance/device_rate.h"
#include "enhance/model_trial.h"
#include "enhance/open_file.h"
#include "enhance/process_end.h"
#include "enhance/set_spkenc.h"
#include "enhance/voice_recording.h"
#include "enhance/wav_read.h"
#include "enhance/whole_file.h"
#include "meridane/error.h"

namespace sonivo {

using meridane::formatted;

namespace {

constexpr std::chrono::milliseconds kLongSleep{10};
constexpr std::chrono::milliseconds kShortSleep{1};
constexpr std::uint16_t kPcm = 1;
constexpr float kSampleScale = 3.0517578e-5f;
constexpr double kWantedLevel = 0.05;
constexpr double kWantedPeak = 0.5;
constexpr std::uint32_t kEncoderFifoSamplesPerMs = 48;
constexpr std::size_t kModelSamplesPerMs = kModelFrame / 10;

/// Not over what is no file, such as a device, which would be lost.
bool can_be_made(const char* file) {
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(file, ignored);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) return false;
  if (File(std::fopen(file, "wb")) == nullptr) return false;
  std::remove(file);  // at once: an empty model would be in the way of whoever finds it
  return true;
}

Outcome format_error(const char* what, const char* file) {
  return Outcome::told(ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT,
                       formatted("MakeAIModel: %s, %s, return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n", what, file));
}

/// Runs a chain in place over as many whole steps as the signal has. Answers the chain's code.
template <class ChainObject>
int run_in_steps(ChainObject& chain, std::span<float> signal, std::size_t step) {
  for (; signal.size() >= step; signal = signal.subspan(step)) {
    if (const int code = chain.Execute(signal.data()); code != 0) return code;
  }
  return 0;
}

}  // namespace

int CAISpeechEnhance_A::MakeAIModel(const char* base_model_file, const char* enc_model_file, const char* wave_file,
                                    const char* out_model_file, std::uint16_t preprocess_on) {
  return run_locked(mtx, "MakeAIModel", [&] {
    const BusyWhile busy(busy_state, kMakeAIModel);
    return make_model(base_model_file, enc_model_file, wave_file, out_model_file, preprocess_on);
  });
}

Outcome CAISpeechEnhance_A::make_model(const char* base_model_file, const char* enc_model_file, const char* wave_file,
                                       const char* out_model_file, std::uint16_t preprocess_on) {
  make_model_progress = 0.0f;
  if (!is_open()) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  if (base_model_file == nullptr || enc_model_file == nullptr || wave_file == nullptr || out_model_file == nullptr) {
    return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  }
  if (preprocess_on > 1) {
    return Outcome::told(
        ERROR_AI_SPEECH_ENHANCE_INVARID_ARG,
        formatted("MakeAIModel: preprocess_on=%d, return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n", preprocess_on));
  }
  log_text(LogLevel::info2, "MakeAIModel: base_model_file=%s, enc_model_file=%s, wave_file=%s, out_model_file=%s\n",
           base_model_file, enc_model_file, wave_file, out_model_file);
  if (!can_be_made(out_model_file)) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  if (open_to_read(enc_model_file) == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);

  VoiceRecording recording;
  if (Outcome read = read_recording(wave_file, preprocess_on, recording); read.code != 0) return read;
  if (Outcome prepared = prepare_recording(preprocess_on, recording); prepared.code != 0) return prepared;
  const VoiceLevel level = measure_voice_level(recording.plain, recording.f_wav_dat_16k);
  {
    const std::lock_guard lock(voice_level_mutex);
    voice_level = level;
  }
  if (const int code = judge_voice_level(level); code != 0) return Outcome::logged(code);

  make_model_steering = Steering{};  // one that came too late for the model before
  make_model_running = kRunning;
  log_make_model("Running");
  log_text(LogLevel::info2, "MakeAIModel: active_rate=%f, peak_lvl=%f, avg_lvl=%f, g_avg_lvl=%f, g_peak_lvl=%f\n",
           level.active_rate, static_cast<double>(level.peak_lvl), level.avg_lvl, kWantedLevel / level.avg_lvl,
           kWantedPeak / static_cast<double>(level.peak_lvl));
  Outcome outcome;
  try {
    e2e::SEModel base;
    encode_voice(recording, base_model_file, enc_model_file, base);
    sleep_while_paused();
    make_model_running = kEncoded;
    log_make_model("Encode end");
    if (steering().make_model_quit == 0) {
      log_make_model("File output");
      if (!write_whole_file(out_model_file, [&](std::ostream& stream) { base.save(stream); })) {
        outcome = Outcome::of(ERROR_AI_SPEECH_ENHANCE_FILE_WRITE);
      }
    }
  } catch (const std::exception& error) {
    log_text(LogLevel::error, "MakeAIModel: %s\n", error.what());
    make_model_running = kIdle;
    make_model_steering = Steering{};
    return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  }
  make_model_running = kIdle;
  log_make_model("Idle");
  if (make_model_steering.exchange(Steering{}).make_model_quit != 0) {
    std::remove(out_model_file);  // of one that came while it was written
    return Outcome::logged(WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT);
  }
  return outcome;
}

Outcome CAISpeechEnhance_A::read_recording(const char* wave_file, std::uint16_t preprocess_on,
                                           VoiceRecording& recording) {
  const File file = open_to_read(wave_file);
  if (file == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  WavFormat format;
  if (wavRead(file.get(), &format) != 0) return format_error("wavRead error", wave_file);
  if (format.tag != kPcm || format.bits != 16 || format.rate_hz != static_cast<std::uint32_t>(sampling_rate_local)) {
    return Outcome::told(ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT,
                         formatted("MakeAIModel: wav format error, format=%d, quan=%d, sf=%d, return "
                                   "ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n",
                                   format.tag, format.bits, static_cast<int>(format.rate_hz)));
  }
  std::uint16_t channels = format.channels;
  if (preprocess_on == 1) {
    if (const int code = bf_model.GetChannel(&channels); code != 0) return Outcome::of(code);
  }
  if (format.channels == 0 || format.channels != channels) {
    return Outcome::told(ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT,
                         formatted("MakeAIModel: wav format error, ch=%d, return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n",
                                   format.channels));
  }
  Outcome cut_off = Outcome::told(ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT,
                                  "MakeAIModel: file read, return ERROR_AI_SPEECH_ENHANCE_WAV_FORMAT\n");
  if (!format.is_whole) return cut_off;  // before memory is taken for samples that aren't there
  recording.channels = channels;
  recording.leng = format.data_bytes / (channels * sizeof(std::int16_t));
  const std::size_t samples = recording.leng * channels;
  recording.wav_dat.resize(samples);
  recording.f_wav_dat.resize(samples);
  recording.plain.resize(recording.leng);
  recording.f_wav_dat_16k.resize(recording.leng);
  const bool is_read = std::fread(recording.wav_dat.data(), sizeof(std::int16_t), samples, file.get()) == samples;
  return is_read ? Outcome{} : cut_off;
}

/// From the samples of the file to the signal for the encoder and the two copies that its level is measured on.
Outcome CAISpeechEnhance_A::prepare_recording(std::uint16_t preprocess_on, VoiceRecording& recording) {
  const std::size_t channels = recording.channels, leng = recording.leng;
  std::vector<float>& signal = recording.f_wav_dat;
  std::transform(recording.wav_dat.begin(), recording.wav_dat.end(), signal.begin(),
                 [](std::int16_t sample) { return static_cast<float>(sample) * kSampleScale; });
  std::uint16_t leng_ite = 0;
  if (const int code = bf_model.GetDataLength(&leng_ite); code != 0) return Outcome::of(code);
  if (preprocess_on == 1) {
    if (const int code = run_in_steps(bf_model, signal, channels * leng_ite); code != 0) return Outcome::of(code);
  }
  for (std::size_t i = 0; i < leng; ++i) {
    const float* const frame = &signal[i * channels];
    signal[i] = std::accumulate(frame, frame + channels, 0.0f) / static_cast<float>(channels);
  }
  signal.resize(leng);
  recording.plain = signal;
  recording.f_wav_dat_16k = signal;
  voice_band.process(recording.plain);
  voice_band.process(recording.f_wav_dat_16k);
  return Outcome::of(run_in_steps(nr_model, recording.f_wav_dat_16k, leng_ite));
}

void CAISpeechEnhance_A::encode_voice(const VoiceRecording& recording, const char* base_model_file,
                                      const char* enc_model_file, e2e::SEModel& base) {
  const int frame_shift_ms = static_cast<int>(se_model->get<float>("frame-shift"));
  const int chunk_size = se_model->get<int>("chunk-size");
  log_text(LogLevel::info2, "MakeAIModel: frame_shift_ms=%d, chunk_size=%d\n", frame_shift_ms, chunk_size);
  const auto chunk_ms = static_cast<std::uint32_t>(chunk_size * frame_shift_ms);
  const int rate_hz = static_cast<int>(sampling_rate_local);
  std::uint16_t leng_ite = 0;
  bf_model.GetDataLength(&leng_ite);

  // What is still in the FIFO when the end is told may not reach the encoder.
  const std::size_t at_a_time = std::size_t{chunk_ms} * kModelSamplesPerMs;
  const std::size_t fed = recording.leng / leng_ite * leng_ite / device_frame(rate_hz) * kModelFrame;
  try_enrolment_models(base_model_file, enc_model_file, fed - std::min(fed, at_a_time), at_a_time);

  const auto fifo = std::make_shared<FifoInput>();
  // Blocks that aren't frames leave a rest in the FIFO, beside which the next one must have room.
  const std::uint32_t beside = leng_ite == device_frame(rate_hz) ? 0 : leng_ite;
  if (!fifo->BuffInit(chunk_ms * kEncoderFifoSamplesPerMs + beside, rate_hz, 0)) throw std::bad_alloc();
  base.load(base_model_file, false);
  fifo->BuffClear();
  std::thread encoder([&] {
    ::pthread_setname_np(::pthread_self(), "voice encoder");
    try {
      set_spkenc(base, fifo, enc_model_file);
    } catch (const std::exception& error) {
      // Who quits may leave it too little to work on.
      if (steering().make_model_quit == 0) end_process("enrolment", error.what());
    }
  });
  feed_encoder(recording, *fifo);
  encoder.join();
}

void CAISpeechEnhance_A::feed_encoder(const VoiceRecording& recording, FifoInput& fifo) {
  std::uint16_t leng_ite = 0;
  bf_model.GetDataLength(&leng_ite);
  std::size_t remain = recording.leng;
  auto next = std::chrono::steady_clock::now();  // a sleep that ends late makes the ones behind it shorter
  while (remain >= leng_ite) {
    sleep_while_paused();
    const std::size_t position = recording.leng - remain;
    const std::uint32_t pushed = fifo.PushData(recording.f_wav_dat.data() + position, leng_ite);
    remain -= pushed;
    make_model_progress = 1.0f - static_cast<float>(remain) / static_cast<float>(recording.leng);
    if (steering().make_model_quit != 0) {
      log_make_model("FifoInput quit");
      break;
    }
    if (pushed == 0) next = std::chrono::steady_clock::now();  // it is the encoder that is late
    next += kShortSleep;
    std::this_thread::sleep_until(next);
  }
  log_text(LogLevel::info2, "MakeAIModel: FifoInput end, remain=%d\n", static_cast<int>(remain));
  std::this_thread::sleep_for(kLongSleep);
  fifo.End();
}

void CAISpeechEnhance_A::sleep_while_paused() const {
  while (steering().make_model_pause != 0) std::this_thread::sleep_for(kLongSleep);
}

void CAISpeechEnhance_A::log_make_model(const char* what) const {
  const Steering now = steering();
  log_text(LogLevel::info2, "MakeAIModel: %s, make_model_running=%d, quit=%d, pause=%d\n", what,
           static_cast<int>(make_model_running.load()), now.make_model_quit, now.make_model_pause);
}

VoiceLevel CAISpeechEnhance_A::MakeAIModelLevel() const {
  const std::lock_guard lock(voice_level_mutex);
  return voice_level;
}

int CAISpeechEnhance_A::steer(const char* op, bool needs_pause, Steering wanted) {
  const auto fail = [op](int code) {
    log_text(LogLevel::error, "%s: return %s\n", op, result_name(code));
    return code;
  };
  if (!is_open()) return fail(ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  Steering now = steering();
  do {
    if (make_model_running != kRunning || now.make_model_quit != 0) {
      log_text(LogLevel::error,
               "%s: MakeAIModel is not running, make_model_running=%d, make_model_quit=%d, return "
               "ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING\n",
               op, static_cast<int>(make_model_running.load()), now.make_model_quit);
      return ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING;
    }
    if (needs_pause && now.make_model_pause == 0) return fail(ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_PAUSE);
  } while (!make_model_steering.compare_exchange_weak(now, wanted));
  return 0;
}

int CAISpeechEnhance_A::PauseMakeAIModel() {
  return steer("PauseMakeAIModel", false, {.make_model_pause = 1, .make_model_quit = 0});
}

int CAISpeechEnhance_A::ResumeMakeAIModel() {
  return steer("ResumeMakeAIModel", true, {.make_model_pause = 0, .make_model_quit = 0});
}

int CAISpeechEnhance_A::QuitMakeAIModel() {
  return steer("QuitMakeAIModel", false, {.make_model_pause = 0, .make_model_quit = 1});
}

}  // namespace sonivo
