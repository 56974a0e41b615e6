#include "peers/classic.h"

#include <stdexcept>
#include <string>

#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"

namespace sonivo::bench {

namespace {

template <class Chain>
class Classic final : public Enhancer {
 public:
  template <class Param>
  Classic(const Param& param, std::size_t channels, ClassicStages stages) {
    const int status = chain_.Open(&param, 48000.0f, static_cast<std::uint16_t>(channels), kBlock);
    if (status != 0) throw std::runtime_error("the chain refuses its parameters, result " + std::to_string(status));
    chain_.SetKeyReductionActive(stages.key ? 1 : 0);
    chain_.SetNoiseReductionActive(stages.noise ? 1 : 0);
  }

  void process(float* block, bool) override { chain_.Execute(block); }

 private:
  Chain chain_;
};

}  // namespace

std::unique_ptr<Enhancer> key_cancel(const classic::KeyCancelParam& param, std::size_t channels, ClassicStages stages) {
  return std::make_unique<Classic<CKeyCancel>>(param, channels, stages);
}

std::unique_ptr<Enhancer> beam_forming(const classic::BeamFormingKeyCancelParam& param, ClassicStages stages) {
  return std::make_unique<Classic<CBeamFormingKeyCancel>>(param, 2, stages);
}

}  // namespace sonivo::bench
