// The life cycle of the third chain and the road of a block through it.

#include "enhance/ai_speech_enhance_a.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <new>
#include <span>

#include "classic/built_in_params.h"
#include "enhance/device_rate.h"
#include "enhance/model_trial.h"
#include "enhance/pcm16.h"
#include "enhance/process_end.h"
#include "enhance/thread_priority.h"
#include "meridane/error.h"

namespace sonivo {

using meridane::formatted;

namespace {

constexpr std::uint32_t kFifoSamplesPerMs = 48;  // at 44100 Hz too
constexpr float kMostAddBuffMs = 10000.0f;

/// Each of the first `length` positions becomes the mean of a frame.
void mix_down(float* in_out, std::size_t channels, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    float sum = 0.0f;
    for (std::size_t c = 0; c < channels; ++c) sum += in_out[i * channels + c];
    in_out[i] = sum / static_cast<float>(channels);
  }
}

/// The other way, from the last frame on, so that none is overwritten before it was read.
void fan_out(float* in_out, std::size_t channels, std::size_t length) {
  for (std::size_t i = length; i-- > 0;) std::fill_n(in_out + i * channels, channels, in_out[i]);
}

}  // namespace

int CAISpeechEnhance_A::Open(const std::uint16_t* bf_param, const char* model_file, float rate, std::uint16_t channels,
                             std::uint16_t length, float add_buff_in_ms, float add_buff_out_ms) {
  const auto failed = [](const char* what, int code) {
    return Outcome::told(code, formatted("Open:%s.Open error, ret (%d)\n", what, code));
  };
  return run_locked(mtx, "Open", [&]() -> Outcome {
    if (is_open()) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_ALREADY_OPEND);
    if (bf_param == nullptr || model_file == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
    if (rate != 48000.0f && rate != 44100.0f) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_SAMPLING_RATE);
    if (channels < 1 || channels > 4) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_CHANNEL_NUM);
    if (length == 0) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
    const auto is_buffer = [](float ms) { return ms >= 0.0f && ms <= kMostAddBuffMs; };
    if (!is_buffer(add_buff_in_ms) || !is_buffer(add_buff_out_ms)) {
      return Outcome::told(ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH,
                           formatted("Open: add_buff error, add_buff_in_ms=%f, add_buff_out_ms=%f, return "
                                     "ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH\n",
                                     static_cast<double>(add_buff_in_ms), static_cast<double>(add_buff_out_ms)));
    }
    log_text(LogLevel::info2,
             "Open: model_file=%s, sampling_rate_local=%f, channel_local=%d, length_local=%d, add_buff_in_ms=%f, "
             "add_buff_out_ms=%f\n",
             model_file, static_cast<double>(rate), channels, length, static_cast<double>(add_buff_in_ms),
             static_cast<double>(add_buff_out_ms));
    dump.open(rate, channels, length, add_buff_in_ms, add_buff_out_ms, AISpeechEnhanceActive);
    sampling_rate_local = rate;
    length_local = length;

    if (const int code = bf.Open(bf_param, rate, channels, length); code != 0) return failed(" bf", code);
    if (const int code = bf_model.Open(bf_param, rate, channels, length); code != 0) return failed(" bf_model", code);
    if (const int code = nr_model.Open(&classic::NrModelParam(), rate, 1, length); code != 0) {
      return failed("nr_model", code);
    }
    try {
      e2e::initialize();
      try_enhancement_model(model_file, {.add_ms = static_cast<std::uint32_t>(add_buff_in_ms), .chunk_ms = {}});
      se_model = std::make_shared<e2e::SEModel>();
      se_model->load(model_file, false);
      set_streaming(*se_model);
      log_text(LogLevel::info2, "Open: frame-shift=%d, chunk-size=%d\n",
               static_cast<int>(se_model->get<float>("frame-shift")), se_model->get<int>("chunk-size"));
    } catch (const std::exception& error) {
      log_text(LogLevel::error, "Open: %s\n", error.what());
      return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
    }
    fifo_room = {.add_ms = static_cast<std::uint32_t>(add_buff_in_ms), .chunk_ms = chunk_ms_of(*se_model)};
    if (!make_fifos(rate, static_cast<std::uint32_t>(add_buff_out_ms)))
      return Outcome::of(ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY);
    has_model = true;
    busy_state = kFree;
    open_flg = 1;
    return {};
  });
}

void CAISpeechEnhance_A::set_streaming(e2e::SEModel& model) {
  model.set<bool>("offline", false);
  model.set<int>("chunk-size", kChunkFrames);
}

bool CAISpeechEnhance_A::make_fifos(float rate, std::uint32_t add_out_ms) {
  const auto chunk_size = static_cast<std::uint32_t>(se_model->get<int>("chunk-size"));
  const std::uint32_t chunk_ms = *fifo_room.chunk_ms;
  const std::uint32_t in_size = (fifo_room.add_ms + chunk_ms) * kFifoSamplesPerMs;
  const std::uint32_t out_size = (add_out_ms + chunk_ms) * kFifoSamplesPerMs;
  fifo_in = std::make_shared<FifoInput>();
  fifo_out = std::make_unique<FifoOutput>();
  fifo_out_silence = out_size + chunk_ms * kFifoSamplesPerMs;
  enhanced_block.resize(length_local);
  return fifo_in->BuffInit(in_size, static_cast<int>(rate), chunk_size) &&
         fifo_out->BuffInit(out_size, chunk_ms * kFifoSamplesPerMs, static_cast<int>(rate));
}

int CAISpeechEnhance_A::Close() {
  return run_locked(mtx, "Close", [&]() -> Outcome {
    if (!is_open()) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
    if (is_running()) {
      return Outcome::told(ERROR_AI_SPEECH_ENHANCE_RUNNING, "Run: return ERROR_AI_SPEECH_ENHANCE_RUNNING\n");
    }
    se_model->unload();
    has_model = false;
    bf.Close();
    bf_model.Close();
    const int code = nr_model.Close();
    dump.close();
    open_flg = 0;
    return Outcome::of(code);
  });
}

int CAISpeechEnhance_A::Run() {
  return while_open("Run", [&]() -> Outcome {
    if (is_running()) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_RUNNING);
    if (!has_model) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
    try {
      start_enhancement();
    } catch (const std::exception&) {  // the system has no memory or no thread left: the model was tried
      se_model->stopEnhancement();
      sdata.reset();
      return Outcome::of(ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY);
    }
    exec_state = 1;
    return {};
  });
}

void CAISpeechEnhance_A::start_enhancement() {
  const int frequency = static_cast<int>(se_model->get<float>("sample-frequency"));
  const int shift = static_cast<int>(se_model->get<float>("frame-shift"));
  const int chunk = se_model->get<int>("chunk-size");
  log_text(LogLevel::info2, "Run: sample-frequency=%d, frame-shift=%d, chunk-size=%d\n", frequency, shift, chunk);
  sdata_samples = static_cast<std::size_t>(std::int64_t{chunk} * shift * frequency / 1000);
  if (sdata_samples == 0) throw std::bad_alloc();
  sdata = std::make_unique<short[]>(sdata_samples);
  fifo_in->BuffClear();
  fifo_in->Start();
  fifo_out->BuffClear();
  se_model->startEnhancement(fifo_in);
  exec_thread = std::thread([this] {
    ::pthread_setname_np(::pthread_self(), "enhancement");
    ThreadExec();
  });
}

int CAISpeechEnhance_A::Stop() {
  return while_open("Stop", [&]() -> Outcome {
    if (!is_running()) {
      return Outcome::told(ERROR_AI_SPEECH_ENHANCE_STOPPED, "Run: return ERROR_AI_SPEECH_ENHANCE_STOPPED\n");
    }
    fifo_in->End();
    exec_thread.join();  // it takes no lock of this class
    if (has_model) se_model->stopEnhancement();
    sdata.reset();
    exec_state = 0;
    return {};
  });
}

bool CAISpeechEnhance_A::lock_unless_busy(std::unique_lock<std::mutex>& lock) const {
  constexpr std::chrono::microseconds kPause{20};  // setters hold the lock for about as long
  for (;;) {
    const std::uint32_t busy = busy_state;
    if (busy != kFree && is_open()) {
      log_text(LogLevel::warning, "Execute: busy_state = %d, return WARNING_AI_SPEECH_ENHANCE_BUSY\n",
               static_cast<int>(busy));
      return false;
    }
    if (lock.try_lock()) return true;
    std::this_thread::sleep_for(kPause);
  }
}

int CAISpeechEnhance_A::Execute(float* in_out) {
  std::unique_lock lock(mtx, std::defer_lock);
  if (!lock_unless_busy(lock)) return WARNING_AI_SPEECH_ENHANCE_BUSY;
  int refused = 0;
  if (!is_open()) {
    refused = ERROR_AI_SPEECH_ENHANCE_NO_INIT;
  } else if (!is_running()) {
    refused = ERROR_AI_SPEECH_ENHANCE_STOPPED;
  } else if (in_out == nullptr) {
    refused = ERROR_AI_SPEECH_ENHANCE_INVARID_ARG;
  }
  if (refused == 0) return execute_locked(in_out);
  lock.unlock();
  log_text(LogLevel::error, "Execute: return %s\n", result_name(refused));
  return refused;
}

int CAISpeechEnhance_A::execute_locked(float* in_out) {
  std::uint16_t channels = 0;
  bf.GetChannel(&channels);
  const std::span block(in_out, std::size_t{channels} * length_local);

  dump.block(BlockDump::Kind::input, "Execute: input", block, AISpeechEnhanceActive);
  int code = bf.Execute(in_out);
  if (code != 0) {
    log_text(LogLevel::error, "Execute: bf.Execute error, ret (%d)\n", code);
    return code;
  }
  if (AISpeechEnhanceActive == 1) {
    if (channels > 1) mix_down(in_out, channels, length_local);
    code = exchange_with_model(in_out);
    if (channels > 1) fan_out(in_out, channels, length_local);
  } else {
    clear_fifos();
  }
  dump.block(BlockDump::Kind::output, "Execute: output", block, AISpeechEnhanceActive);
  return code;
}

/// Pops first: the push may complete a chunk, and the network be so fast that it wants to write what it made of it
/// before this thread runs on. The ring has room for it only once this block's place is free.
int CAISpeechEnhance_A::exchange_with_model(float* in_out) {
  const bool popped = has_model && fifo_out->PopData(enhanced_block.data(), length_local) == length_local;
  const bool pushed = has_model && fifo_in->PushData(in_out, length_local) == length_local;
  int code = 0;
  if (!pushed) {
    log_text(LogLevel::warning, "Execute: WARNING_AI_SPEECH_ENHANCE_BUFF_OVERFLOW\n");
    code = WARNING_AI_SPEECH_ENHANCE_BUFF_OVERFLOW;
  }
  if (!popped) {
    log_text(LogLevel::warning, "Execute: WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN\n");
    return WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN;
  }
  std::copy_n(enhanced_block.begin(), length_local, in_out);
  return code;
}

void CAISpeechEnhance_A::clear_fifos() {
  fifo_in->BuffClear();
  fifo_out->BuffClear();
}

bool CAISpeechEnhance_A::IsEnhancementIdle() const { return !is_running() || !has_model || fifo_in->IsReaderWaiting(); }

void CAISpeechEnhance_A::ThreadExec() {
  make_thread_time_critical(real_time);
  try {
    std::uint32_t state = 0;
    while (state == 0) {
      const e2e::E2EResult result = se_model->getEnhancedResult(state);
      push_enhanced(result.get<meridane::Matrix>("enhanced"));
    }
    log_text(LogLevel::info2, "ThreadExec: FINISHED, state=%d, return\n", static_cast<int>(state));
  } catch (const std::exception& error) {
    // What the last, cut off chunk brings about concerns nobody any more.
    if (!fifo_in->end()) end_process("speech enhancement", error.what());
    log_text(LogLevel::info2, "ThreadExec: %s\n", error.what());
  }
}

void CAISpeechEnhance_A::push_enhanced(const meridane::Matrix& enhanced) {
  std::span<const float> rest(enhanced.data(), static_cast<std::size_t>(enhanced.size()));
  while (!rest.empty()) {
    const auto piece = rest.first(std::min(rest.size(), sdata_samples));
    std::transform(piece.begin(), piece.end(), sdata.get(), wrap_to_pcm16);
    fifo_out->PushData(sdata.get(), static_cast<std::uint32_t>(piece.size()));
    rest = rest.subspan(piece.size());
  }
}

}  // namespace sonivo
