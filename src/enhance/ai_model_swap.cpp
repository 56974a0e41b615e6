// The change of the model while the stream runs.
//
// Nothing locks the enhancement thread out. It is safe all the same: while busy_state is set no input reaches fifo_in,
// which was emptied, so that the thread comes to sleep in FifoInput::data, where it touches nothing of the model; and
// the model is not changed before it sleeps there.

#include <chrono>
#include <exception>
#include <thread>

#include "enhance/ai_speech_enhance_a.h"
#include "enhance/model_trial.h"
#include "enhance/open_file.h"

namespace sonivo {

int CAISpeechEnhance_A::SetAIModel(const char* model_file) {
  return run_locked(mtx, "SetAIModel", [&] {
    const BusyWhile busy(busy_state, kSetAIModel);
    return swap_model(model_file);
  });
}

Outcome CAISpeechEnhance_A::swap_model(const char* model_file) {
  if (!is_open()) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  if (model_file == nullptr) {
    return Outcome::told(ERROR_AI_SPEECH_ENHANCE_INVARID_ARG,
                         "SetAIModel: model_file=null, return ERROR_AI_SPEECH_ENHANCE_NO_INIT\n");
  }
  {
    const File file = open_to_read(model_file);
    if (file == nullptr) return Outcome::of(ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
    char magic[4];
    if (std::fread(magic, 1, sizeof magic, file.get()) != sizeof magic) {
      return Outcome::of(ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
    }
  }
  const std::uint16_t active = AISpeechEnhanceActive;
  AISpeechEnhanceActive = 0;
  clear_fifos();
  if (!wait_for_idle_model()) {  // the caller decides what becomes of the enhancement
    return Outcome::told(ERROR_AI_SPEECH_ENHANCE_TIMEOUT,
                         "SetAIModel: timeout error, return ERROR_AI_SPEECH_ENHANCE_TIMEOUT\n");
  }
  AISpeechEnhanceActive = active;  // no block comes before the end of this
  has_model = false;
  try {
    se_model->unload();
    se_model->load(model_file, false);
    set_streaming(*se_model);
    try_enhancement_model(model_file, fifo_room);
    has_model = true;
  } catch (const std::exception& error) {
    log_text(LogLevel::error, "SetAIModel: %s\n", error.what());
    se_model->unload();
    set_streaming(*se_model);  // what enrolment goes by
    return Outcome::told(ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL,
                         "SetAIModel: model file load error, return ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL\n");
  }
  return {};
}

bool CAISpeechEnhance_A::wait_for_idle_model() {
  constexpr int kPolls = 60;
  constexpr std::chrono::milliseconds kPoll{50};
  for (int poll = 1;; ++poll) {
    const std::uint32_t waiting = fifo_in->GetDataLength();
    std::this_thread::sleep_for(kPoll);
    if (waiting < length_local && IsEnhancementIdle()) return true;
    if (poll == kPolls) return false;
  }
}

}  // namespace sonivo
