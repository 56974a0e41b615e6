// What a chain can do to end the process: the stream thread throws, and nobody catches it.

#include <gmock/gmock.h>

#include "capture_bench.h"

namespace sonivo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Values;

constexpr const char* kMismatch =
    "[cap] Keyboard sound cancellation processing unit does not match the size of the buffer to be extracted.";

struct Fault {
  const char* name;
  Notebook notebook;
  const char* call;  ///< of the chain, that fails; null: none does
  int status;
  std::uint16_t frames;  ///< that the chain says a block has
  const char* text;
};

/// Streams through the chain of the notebook with the fault in place.
void stream_into(const Fault& fault) {
  RelayBench bench(untrimmed(), fault.notebook);
  bench.store_key_cancel_parameters(1, 1);
  bench.store_beam_forming_parameters();
  if (fault.notebook == Notebook::ai_speech) bench.relay->SetAISpeechEnhanceOpen();
  start_idle(bench);
  for (const auto& chain : {bench.chains.key_cancel, bench.chains.beam_forming, bench.chains.ai_speech}) {
    chain->frames = fault.frames;
    chain->frames_fixed = true;
    if (fault.call != nullptr) chain->answer(fault.call, fault.status);
  }
  record_stereo(bench);
  bench.machine.run_for(15);
}

class ChainFaultDeathTest : public ::testing::TestWithParam<Fault> {};

TEST_P(ChainFaultDeathTest, EndsTheProcessWithItsText) {
  const std::string said = "what():  " + std::string(GetParam().text) + "\n";
  EXPECT_DEATH(stream_into(GetParam()), HasSubstr(said));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, ChainFaultDeathTest,
    Values(Fault{"KeyCancelLength", Notebook::key_cancel, "GetDataLength", 6, 480, "kcErr"},
           Fault{"BeamFormingLength", Notebook::beam_forming, "GetDataLength", 6, 480, "BeamFormingkcErr"},
           Fault{"AISpeechLength", Notebook::ai_speech, "GetDataLength", 5, 480, "AISpeechEnhanceBeamFormingkcErr"},
           Fault{"LengthBeforeMismatch", Notebook::key_cancel, "GetDataLength", 6, 441, "kcErr"},
           Fault{"KeyCancelTooShort", Notebook::key_cancel, nullptr, 0, 479, kMismatch},
           Fault{"BeamFormingTooLong", Notebook::beam_forming, nullptr, 0, 481, kMismatch},
           Fault{"AISpeechEmpty", Notebook::ai_speech, nullptr, 0, 0, kMismatch},
           Fault{"MismatchBeforeExecute", Notebook::key_cancel, "Execute", 1, 479, kMismatch},
           Fault{"KeyCancelExecute", Notebook::key_cancel, "Execute", 1, 480, "CKeyCancel::Execute"},
           Fault{"KeyCancelKnowsNoWarnings", Notebook::key_cancel, "Execute", 101, 480, "CKeyCancel::Execute"},
           Fault{"BeamFormingExecute", Notebook::beam_forming, "Execute", 7, 480, "CBeamFormingKeyCancel::Execute"},
           Fault{"BeamFormingKnowsNoWarnings", Notebook::beam_forming, "Execute", 105, 480,
                 "CBeamFormingKeyCancel::Execute"},
           Fault{"AISpeechExecute", Notebook::ai_speech, "Execute", 1, 480, "CAISpeechEnhance::Execute"},
           Fault{"AISpeechBelowTheWarnings", Notebook::ai_speech, "Execute", 100, 480, "CAISpeechEnhance::Execute"},
           Fault{"AISpeechAboveTheWarnings", Notebook::ai_speech, "Execute", 106, 480, "CAISpeechEnhance::Execute"}),
    [](const ::testing::TestParamInfo<Fault>& fault) { return std::string(fault.param.name); });

}  // namespace
}  // namespace sonivo::test
