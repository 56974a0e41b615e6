// What the first and the second chain go through with the stream alike: opening, failures, closing.

#include "classic_bench.h"
#include "relay/effect_properties.h"

namespace sonivo::test {
namespace {

using ::testing::Combine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Values;

const auto kClassicNotebooks = Values(Notebook::key_cancel, Notebook::beam_forming);

std::string name_of(Notebook notebook) { return notebook == Notebook::key_cancel ? "KeyCancel" : "BeamForming"; }

class ClassicStream : public ClassicBench, public ::testing::TestWithParam<Notebook> {
 protected:
  ClassicStream() : ClassicBench(GetParam()) {}

  void store(PropertyValue value) {
    const bool key_cancel = GetParam() == Notebook::key_cancel;
    bench_.machine.fx().set_effect(sim::kMicArray, key_cancel ? PKEY_NVC_MTGMIC_KC_Param : PKEY_NVC_MTGMIC_BF_KC_Param,
                                   std::move(value));
  }
};

INSTANTIATE_TEST_SUITE_P(Of, ClassicStream, kClassicNotebooks,
                         [](const auto& notebook) { return name_of(notebook.param); });

TEST_P(ClassicStream, GivesTheChainTheParametersBehindTheFlags) {
  stream(1);
  std::vector<std::uint8_t> numbered(16);
  for (std::uint8_t i = 0; i < 16; ++i) numbered[i] = static_cast<std::uint8_t>(i + 1);
  EXPECT_EQ(chain_.opened_with, numbered);
}

TEST_P(ClassicStream, PassesTheAudioWhenTheParametersCantBeReadAndClosesNothing) {
  store({});
  stream(205);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize"));
  EXPECT_EQ(traces_with(bench_, "GetFxCapturePropertiesValue"), 1u);
  const auto heard = bench_.machine.driver().recording();
  EXPECT_TRUE(same_pcm(cut_from(heard, 7 * 480 + 144), cut(microphone(), 0, heard.size() / 4 - 7 * 480 - 144)));
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 0u);
}

TEST_P(ClassicStream, LeavesTheChainClosedWhenTheStoredValueIsLargerThanItsParameters) {
  const std::size_t flags = GetParam() == Notebook::key_cancel ? 2 : 3;
  store(std::vector<std::byte>(flags + 16 + 1));
  stream(50);
  EXPECT_THAT(chain_.calls(), ElementsAre("GetParamSize"));
  EXPECT_EQ(state(), StreamState::ePhysicalStreaming);
}

TEST_P(ClassicStream, CountsTheLatencyOfTheChainForAsLongAsItRuns) {
  const auto latency = [&] { return bench_.relay->CaptureStatistics().chain_latency; };
  chain_.latency = 608;
  EXPECT_EQ(latency(), 0u);
  stream(15);
  EXPECT_EQ(latency(), 608u);
  bench_.machine.driver().close_client(sim::PinId::mic);
  bench_.machine.run_for(1);
  EXPECT_EQ(latency(), 0u);
}

TEST_P(ClassicStream, ClosesTheChainAfterTheClientIsStopped) {
  stream(15);
  std::size_t closed_at_stop = 1;
  bench_.machine.script().before(Step::client_stop, 1, [&] { closed_at_stop = chain_.count("Close"); });
  bench_.machine.driver().close_client(sim::PinId::mic);
  bench_.machine.run_for(1);
  EXPECT_EQ(closed_at_stop, 0u);
  EXPECT_EQ(chain_.calls().back(), "Close");
}

TEST_P(ClassicStream, OpensTheChainAnewWithTheNextOne) {
  stream(15);
  chain_.clear();
  restart_stream();
  bench_.machine.run_for(1);
  const auto calls = chain_.calls();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(calls[0], "Close");
  EXPECT_EQ(calls[1], "GetParamSize");
  EXPECT_EQ(calls[2], "Open(48000, 2, 480)");
}

TEST_P(ClassicStream, GoesOnAfterAFailureToCloseWhichIsOnlyLogged) {
  stream(15);
  chain_.answer("Close", 6);
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 1u);
  EXPECT_EQ(bench_.log.count(GetParam() == Notebook::key_cancel ? "[cap] CKeyCancel::Close failed.\n"
                                                                : "[cap] CBeamFormingKeyCancel::Close failed.\n"),
            1u);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
}

// Only an opening that gets as far as the chain clears its open flag.
TEST_P(ClassicStream, ClosesTheChainOnceMoreWhenTheNextClientDoesntInitialize) {
  stream(15);
  bench_.machine.script().fail(Step::client_initialize, kFail);
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 2u);
}

TEST_P(ClassicStream, ClosesNoChainWhoseOpeningFailed) {
  stream(15);
  chain_.answer("SetChannel", 4);
  restart_stream();
  bench_.machine.run_for(1);
  EXPECT_EQ(chain_.count("Close"), 1u);
  bench_.machine.run_for(100);  // a second attempt failed too
  EXPECT_EQ(chain_.count("SetChannel(2)"), 3u);
  EXPECT_EQ(chain_.count("Close"), 1u);
}

TEST_P(ClassicStream, ClosesNoChainWhoseSizeCouldntBeHad) {
  stream(15);
  chain_.answer("GetParamSize", 6);
  restart_stream();
  bench_.machine.run_for(150);
  EXPECT_EQ(chain_.count("Close"), 1u);
}

TEST_P(ClassicStream, BypassesAChainWhoseParametersAreGone) {
  stream(15);
  bench_.machine.script().fail_always(Step::fx_user_value, kFail);
  restart_stream();
  chain_.clear();
  bench_.machine.run_for(50);
  EXPECT_THAT(chain_.calls(), ElementsAre("Close", "GetParamSize"));
  EXPECT_EQ(state(), StreamState::ePhysicalStreaming);
}

TEST_P(ClassicStream, PassesTheAudioWhenTheGateOpensInMidStream) {
  stream(15);
  bench_.set_notebook(Notebook::plain);
  restart_stream();
  bench_.machine.run_for(50);
  ASSERT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
  chain_.clear();
  bench_.set_notebook(GetParam());
  bench_.machine.run_for(100);
  EXPECT_THAT(chain_.calls(), IsEmpty());
  expect_microphone_unprocessed(bench_);

  restart_stream();
  bench_.machine.run_for(15);
  EXPECT_GE(chain_.count("Execute"), 1u);  // the next stream opens it
}

TEST_P(ClassicStream, LeavesTheOtherChainsAlone) {
  ChainScript& other = GetParam() == Notebook::key_cancel ? *bench_.chains.beam_forming : *bench_.chains.key_cancel;
  other.clear();
  bench_.chains.ai_speech->clear();
  stream(50);
  EXPECT_THAT(other.calls(), IsEmpty());
  EXPECT_THAT(bench_.chains.ai_speech->calls(), IsEmpty());
}

using OpenFailure = std::tuple<Notebook, const char*>;

class ClassicOpenFailure : public ClassicBench, public ::testing::TestWithParam<OpenFailure> {
 protected:
  ClassicOpenFailure() : ClassicBench(std::get<Notebook>(GetParam())) {}
};

TEST_P(ClassicOpenFailure, KeepsTheStreamFromOpeningUntilItIsGone) {
  const char* const failing = std::get<const char*>(GetParam());
  start();
  chain_.answer(failing, 6);
  record_stereo(bench_);
  bench_.machine.run_for(99);
  EXPECT_TRUE(chain_.calls().back().starts_with(failing));  // nothing is called after what failed, nor is it closed
  EXPECT_EQ(chain_.count("GetParamSize"), 1u);
  EXPECT_EQ(bench_.machine.script().count(Step::client_start), 0u);
  EXPECT_EQ(recording_states(bench_), std::vector<std::uint64_t>{});

  chain_.pardon(failing);
  bench_.machine.run_for(2);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
}

std::string failure_name(const ::testing::TestParamInfo<OpenFailure>& failure) {
  return name_of(std::get<Notebook>(failure.param)) + std::get<const char*>(failure.param);
}

INSTANTIATE_TEST_SUITE_P(OfEither, ClassicOpenFailure,
                         Combine(kClassicNotebooks,
                                 Values("GetParamSize", "Open", "SetDataLength", "SetSamplingRate", "SetChannel",
                                        "SetKeyReductionActive", "SetNoiseReductionActive")),
                         failure_name);
INSTANTIATE_TEST_SUITE_P(OfTheSecond, ClassicOpenFailure,
                         Values(OpenFailure{Notebook::beam_forming, "SetBeamFormingActive"}), failure_name);

}  // namespace
}  // namespace sonivo::test
