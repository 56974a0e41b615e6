#include "support/scripted_chains.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <utility>

namespace sonivo::test {
namespace {

template <class... Arguments>
std::string list(const Arguments&... arguments) {
  std::ostringstream text;
  const char* separator = "";
  ((text << separator << arguments, separator = ", "), ...);
  return text.str();
}

template <class Interface>
class Scripted : public Interface {
 public:
  explicit Scripted(std::shared_ptr<ChainScript> script) : script_(std::move(script)) {}

  int GetVersion(std::uint16_t* major, std::uint16_t* minor) override {
    *major = 3;
    *minor = 14;
    return script_->enter("GetVersion");
  }
  int GetParamSize(std::uint32_t* size) override {
    *size = script_->param_size;
    return script_->enter("GetParamSize");
  }
  int SetDataLength(std::uint16_t frames) override {
    if (!script_->frames_fixed) script_->frames = frames;
    return script_->enter("SetDataLength", list(frames));
  }
  int GetDataLength(std::uint16_t* frames) override {
    *frames = script_->frames;
    return script_->enter("GetDataLength");
  }
  int SetSamplingRate(float rate_hz) override { return script_->enter("SetSamplingRate", list(rate_hz)); }
  int SetChannel(std::uint16_t channels) override {
    script_->channels = channels;
    return script_->enter("SetChannel", list(channels));
  }
  int SetKeyReductionActive(std::uint16_t active) override {
    return script_->enter("SetKeyReductionActive", list(active));
  }
  int SetNoiseReductionActive(std::uint16_t active) override {
    return script_->enter("SetNoiseReductionActive", list(active));
  }
  int GetLatency(std::uint32_t* frames) override {
    *frames = script_->latency;
    return 0;
  }
  int Execute(float* interleaved) override {
    const int status = script_->enter("Execute");
    if (script_->process) script_->process(interleaved, script_->frames, script_->channels);
    return status;
  }
  int Close() override { return script_->enter("Close"); }

 protected:
  void keep_parameters(const void* params) {
    script_->opened_with.resize(script_->param_size);
    std::memcpy(script_->opened_with.data(), params, script_->param_size);
  }

  std::shared_ptr<ChainScript> script_;
};

template <class Interface>
class ScriptedClassic : public Scripted<Interface> {
 public:
  using Scripted<Interface>::Scripted;
  int Open(const void* params, float rate_hz, std::uint16_t channels, std::uint16_t frames) override {
    this->keep_parameters(params);
    return this->script_->enter("Open", list(rate_hz, channels, frames));
  }
};

class ScriptedBeamForming final : public ScriptedClassic<BeamFormingChain> {
 public:
  using ScriptedClassic::ScriptedClassic;
  int SetBeamFormingActive(std::uint16_t active) override {
    return script_->enter("SetBeamFormingActive", list(active));
  }
};

class ScriptedAISpeech final : public Scripted<AISpeechChain> {
 public:
  using Scripted::Scripted;
  int Open(const std::uint16_t* params, const char* model, float rate_hz, std::uint16_t channels, std::uint16_t frames,
           float add_buff_in_ms, float add_buff_out_ms) override {
    keep_parameters(params);
    return script_->enter("Open", list(model, rate_hz, channels, frames, add_buff_in_ms, add_buff_out_ms));
  }
  int Run() override { return script_->enter("Run"); }
  int Stop() override { return script_->enter("Stop"); }
  int SetBeamFormingActive(std::uint16_t active) override {
    return script_->enter("SetBeamFormingActive", list(active));
  }
  int SetAISpeechEnhanceActive(std::uint16_t active) override {
    return script_->enter("SetAISpeechEnhanceActive", list(active));
  }
  int SetAISpeechEnhanceStrength(float strength) override {
    return script_->enter("SetAISpeechEnhanceStrength", list(strength));
  }
  int SetAIModel(const char* model) override { return script_->enter("SetAIModel", model); }
  int MakeAIModel(const char* base_model, const char* encoder_model, const char* wav, const char* out_file,
                  std::uint16_t preprocess_on) override {
    return script_->enter("MakeAIModel", list(base_model, encoder_model, wav, out_file, preprocess_on));
  }
  int QuitMakeAIModel() override { return script_->enter("QuitMakeAIModel"); }
};

}  // namespace

void ChainScript::answer(const std::string& call, int status) {
  const std::lock_guard lock(mutex_);
  answers_[call] = status;
}

void ChainScript::pardon(const std::string& call) {
  const std::lock_guard lock(mutex_);
  answers_.erase(call);
}

void ChainScript::during(const std::string& call, std::function<void()> action) {
  const std::lock_guard lock(mutex_);
  during_[call] = std::move(action);
}

std::vector<std::string> ChainScript::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

std::size_t ChainScript::count(const std::string& call) const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count(calls_.begin(), calls_.end(), call));
}

void ChainScript::clear() {
  const std::lock_guard lock(mutex_);
  calls_.clear();
}

int ChainScript::enter(const std::string& call, const std::string& arguments) {
  std::function<void()> action;
  int status = 0;
  {
    const std::lock_guard lock(mutex_);
    calls_.push_back(arguments.empty() ? call : call + "(" + arguments + ")");
    if (const auto scripted = answers_.find(call); scripted != answers_.end()) status = scripted->second;
    if (const auto scripted = during_.find(call); scripted != during_.end()) action = scripted->second;
  }
  if (action) action();
  return status;
}

ChainFactory ScriptedChains::factory() const {
  return [*this] {
    return Chains{.key_cancel = std::make_unique<ScriptedClassic<KeyCancelChain>>(key_cancel),
                  .beam_forming = std::make_unique<ScriptedBeamForming>(beam_forming),
                  .ai_speech = std::make_unique<ScriptedAISpeech>(ai_speech)};
  };
}

}  // namespace sonivo::test
