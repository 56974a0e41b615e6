// The watch over the stored parameters of the capture effect.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "relay/effect_properties.h"
#include "support/relay_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;

constexpr std::uint32_t kParamSize = 16;  // what the scripted chains answer

std::vector<std::byte> blob(std::size_t size, std::uint8_t first = 1) {
  std::vector<std::byte> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(first + i);
  return bytes;
}

class RegNotify : public ::testing::TestWithParam<Notebook> {
 protected:
  RegNotify() { store(blob(kParamSize + 3)); }

  PropertyKey key() const {
    return GetParam() == Notebook::key_cancel ? PKEY_NVC_MTGMIC_KC_Param : PKEY_NVC_MTGMIC_BF_KC_Param;
  }
  PropertyKey key_of_the_others() const {
    return GetParam() == Notebook::key_cancel ? PKEY_NVC_MTGMIC_BF_KC_Param : PKEY_NVC_MTGMIC_KC_Param;
  }
  ChainScript& chain() {
    switch (GetParam()) {
      case Notebook::key_cancel:
        return *bench.chains.key_cancel;
      case Notebook::beam_forming:
        return *bench.chains.beam_forming;
      default:
        return *bench.chains.ai_speech;
    }
  }
  void store(PropertyValue value) { bench.machine.fx().set_effect(sim::kMicArray, key(), std::move(value)); }
  void start() {
    bench.relay->Start();
    bench.machine.run_for(1);
  }
  RegNotifyStatus status() { return bench.relay->RegNotifyResult(); }
  /// How often new parameters were seen.
  std::size_t changes() { return bench.log.count("[CAudioControl::RegNotifyThread] The registry changed.\n"); }
  std::uint64_t armed() { return bench.machine.script().count(Step::fx_arm); }

  RelayBench bench{{}, GetParam()};
};
std::string notebook_name(const ::testing::TestParamInfo<Notebook>& notebook) {
  switch (notebook.param) {
    case Notebook::key_cancel:
      return "KeyCancel";
    case Notebook::beam_forming:
      return "BeamForming";
    default:
      return "AISpeech";
  }
}
INSTANTIATE_TEST_SUITE_P(Under, RegNotify,
                         ::testing::Values(Notebook::key_cancel, Notebook::beam_forming, Notebook::ai_speech),
                         notebook_name);

TEST_P(RegNotify, WatchesAtBelowNormalPriorityUntilTheRelayStops) {
  start();
  EXPECT_EQ(bench.log.count("[CAudioControl::RegNotifyThread] enter\n"), 1u);
  const auto threads = bench.machine.scheduler().threads();
  const auto watch =
      std::find_if(threads.begin(), threads.end(), [](const auto& thread) { return thread.name == "reg-notify"; });
  ASSERT_NE(watch, threads.end());
  EXPECT_EQ(watch->priority, Priority::below_normal);
  EXPECT_EQ(status(), RegNotifyStatus::running);
  bench.stop();
  EXPECT_EQ(status(), RegNotifyStatus::stopped);
}

// ---- Endings

TEST_P(RegNotify, EndsWithOneWhenTheChainDoesNotTellItsSize) {
  chain().answer("GetParamSize", 7);
  start();
  EXPECT_EQ(status(), RegNotifyStatus::no_param_size);
  const std::string name = GetParam() == Notebook::key_cancel     ? "CKeyCancel"
                           : GetParam() == Notebook::beam_forming ? "CBeamFormingKeyCancel"
                                                                  : "CAISpeechEnhance";
  EXPECT_EQ(bench.log.count("[CAudioControl::RegNotifyThread] " + name + "::GetParamSize failed. (7)\n"), 1u);
}

TEST_P(RegNotify, EndsWithTwoWhenThereAreNoParameters) {
  store({});
  start();
  EXPECT_EQ(status(), RegNotifyStatus::no_parameters);
}

TEST_P(RegNotify, EndsWithTwoWhenTheParametersAreLargerThanSizeAndThreeFlags) {
  store(blob(kParamSize + 4));
  start();
  EXPECT_EQ(status(), RegNotifyStatus::no_parameters);
}

TEST_P(RegNotify, AsksOnlyItsOwnChainForItsSize) {
  const std::array all{bench.chains.key_cancel, bench.chains.beam_forming, bench.chains.ai_speech};
  for (const auto& each : all) {
    if (each.get() != &chain()) each->answer("GetParamSize", 7);
  }
  start();
  EXPECT_EQ(status(), RegNotifyStatus::running);
  for (const auto& each : all) EXPECT_EQ(each->count("GetParamSize"), each.get() == &chain() ? 1u : 0u);
}

TEST_P(RegNotify, ReadsOnlyTheParametersOfItsChain) {
  store({});
  bench.machine.fx().set_effect(sim::kMicArray, key_of_the_others(), blob(kParamSize + 3));
  start();
  EXPECT_EQ(status(), RegNotifyStatus::no_parameters);
}

TEST_P(RegNotify, EndsWithThreeWhenTheEndpointHasNoGuid) {
  bench.machine.fx().set(sim::FxHome::effect_store, sim::kMicArray, PKEY_AudioEndpoint_GUID, {});
  start();
  EXPECT_EQ(status(), RegNotifyStatus::no_endpoint_id);
}

TEST_P(RegNotify, EndsWithFourWhenTheStoreCannotBeOpened) {
  bench.machine.script().fail(Step::fx_open_watch, error::kAccessDenied);
  start();
  EXPECT_EQ(status(), RegNotifyStatus::no_store);
  EXPECT_EQ(bench.log.count("!!![CAudioControl::RegNotifyThread] Failed open registry: 5."), 1u);
}

TEST_P(RegNotify, EndsWithFourWhenTheGuidLeadsNowhere) {
  bench.machine.fx().set(sim::FxHome::effect_store, sim::kMicArray, PKEY_AudioEndpoint_GUID, "{none}");
  start();
  EXPECT_EQ(status(), RegNotifyStatus::no_store);
  EXPECT_EQ(bench.log.count("!!![CAudioControl::RegNotifyThread] Failed open registry: 2."), 1u);
}

TEST_P(RegNotify, ReadsAGuidOfUpTo259CharactersAndCutsALongerOne) {
  const std::string longest(259, 'g');
  bench.machine.fx().set_endpoint_guid(sim::kMicArray, longest);
  start();
  EXPECT_EQ(status(), RegNotifyStatus::running);
  bench.stop();
  for (const std::size_t length : {260u, 261u}) {
    bench.machine.fx().set_endpoint_guid(sim::kMicArray, longest + std::string(length - 259, 'h'));
    start();
    EXPECT_EQ(status(), RegNotifyStatus::running) << length << ": the part that is read leads to the endpoint";
    bench.stop();
  }
}

TEST_P(RegNotify, EndsWithFourWhenAGuidOfOver259CharactersIsCut) {
  for (const std::size_t length : {260u, 261u}) {
    bench.machine.fx().set_endpoint_guid(sim::kMicArray, std::string(length, 'g'));
    start();
    EXPECT_EQ(status(), RegNotifyStatus::no_store) << length;
    EXPECT_EQ(bench.log.count("!!![CAudioControl::RegNotifyThread] Failed open registry: 2."), 1u) << length;
    bench.log.clear();
    bench.stop();
  }
}

TEST_P(RegNotify, EndsWithFiveWithoutAnEvent) {
  bench.machine.script().fail(Step::event_create, 1, 2);  // the first one is the stop event
  start();
  EXPECT_EQ(status(), RegNotifyStatus::no_event);
  EXPECT_EQ(armed(), 0u);
}

TEST_P(RegNotify, EndsWithSixWhenTheWatchCannotBeArmed) {
  bench.machine.script().fail(Step::fx_arm, kFail);
  start();
  EXPECT_EQ(status(), RegNotifyStatus::watch_failed);
}

TEST_P(RegNotify, EndsWithSixWhenTheWatchCannotBeArmedAgain) {
  bench.machine.script().fail(Step::fx_arm, kFail, 2);
  start();
  store(blob(kParamSize + 3, 9));
  bench.machine.run_for(1);
  EXPECT_EQ(changes(), 1u);
  EXPECT_EQ(status(), RegNotifyStatus::watch_failed);
}

TEST_P(RegNotify, EndsWithSevenWhenTheParametersCannotBeReadAnyMore) {
  start();
  store({});
  bench.machine.run_for(1);
  EXPECT_EQ(status(), RegNotifyStatus::parameters_lost);
  EXPECT_EQ(changes(), 0u);
}

TEST_P(RegNotify, EndsWithEightWhenTheWaitFails) {
  bench.machine.script().fail(Step::wait_any, error::kInvalidHandle);
  start();
  EXPECT_EQ(status(), RegNotifyStatus::wait_failed);
}

TEST_P(RegNotify, EndsWithEightWithoutAStopEvent) {
  bench.machine.script().fail(Step::event_create, 1);
  start();
  EXPECT_EQ(status(), RegNotifyStatus::wait_failed);
}

TEST(RegNotifyStatusValues, CountFromZeroToEight) {
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::stopped), 0);
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::no_param_size), 1);
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::no_parameters), 2);
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::no_endpoint_id), 3);
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::no_store), 4);
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::no_event), 5);
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::watch_failed), 6);
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::parameters_lost), 7);
  EXPECT_EQ(static_cast<int>(RegNotifyStatus::wait_failed), 8);
}

TEST_P(RegNotify, AfterItsEndChangesAreNotNoticedAndTheStreamsCarryOn) {
  bench.machine.script().fail(Step::fx_arm, kFail);
  bench.start();
  bench.play(pcm_format(48000, 16, 2), {});
  bench.machine.run_for(10);
  store(blob(kParamSize + 3, 9));
  bench.machine.run_for(50);
  EXPECT_EQ(changes(), 0u);
  EXPECT_EQ(bench.relay->RenderStatistics().streams, 1u);
}

// ---- Changes

TEST_P(RegNotify, AChangeOfTheLastOfSizeAndThreeBytesCounts) {
  start();
  std::vector<std::byte> changed = blob(kParamSize + 3);
  changed.back() = std::byte{0xEE};
  store(changed);
  bench.machine.run_for(1);
  EXPECT_EQ(changes(), 1u);
}

TEST_P(RegNotify, TheSameParametersStoredAgainCostOneComparison) {
  start();
  store(blob(kParamSize + 3));
  bench.machine.run_for(1);
  EXPECT_EQ(changes(), 0u);
  EXPECT_GE(armed(), 2u);
  EXPECT_EQ(status(), RegNotifyStatus::running);
}

TEST_P(RegNotify, AnyOtherValueCostsOneComparison) {
  start();
  bench.machine.fx().set_effect(sim::kMicArray, key_of_the_others(), blob(kParamSize + 3, 50));
  bench.machine.run_for(1);
  EXPECT_EQ(changes(), 0u);
  EXPECT_GE(armed(), 2u);
  EXPECT_EQ(status(), RegNotifyStatus::running);
}

TEST_P(RegNotify, NewParametersAreWhatTheNextOnesAreComparedWith) {
  start();
  store(blob(kParamSize + 3, 9));
  bench.machine.run_for(1);
  EXPECT_EQ(changes(), 1u);
  store(blob(kParamSize + 3, 9));
  bench.machine.run_for(1);
  EXPECT_EQ(changes(), 1u);
  store(blob(kParamSize + 3));
  bench.machine.run_for(1);
  EXPECT_EQ(changes(), 2u);
}

TEST_P(RegNotify, AChangeBetweenTheWakeUpAndTheNextWatchIsNoticed) {
  start();
  bench.machine.script().before(Step::fx_arm, 1, [&] { store(blob(kParamSize + 3, 30)); });
  store(blob(kParamSize + 3, 9));
  bench.machine.run_for(1);
  EXPECT_EQ(changes(), 2u);
}

TEST_P(RegNotify, AStopComesBeforeAChangeOfTheSameInstant) {
  start();
  bench.machine.script().before(Step::fx_arm, 1, [&] {
    bench.machine.scheduler().pass(10 * sim::kMillisecond);  // in which the relay is stopped
    store(blob(kParamSize + 3, 30));
  });
  store(blob(kParamSize + 3));  // has the watch armed anew
  bench.machine.run_for(1);
  bench.stop();
  EXPECT_EQ(status(), RegNotifyStatus::stopped);
  EXPECT_EQ(changes(), 0u);
}

TEST(RegNotifyRestart, TheCaptureStreamTakesTheNewParametersAndRenderIsLeftAlone) {
  RelayBench bench({}, Notebook::key_cancel);
  bench.store_key_cancel_parameters(1, 1);
  bench.start();
  bench.record(pcm_format(48000, 16, 2), {});
  bench.play(pcm_format(48000, 16, 2), {});
  bench.machine.run_for(50);
  bench.chains.key_cancel->clear();
  bench.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_KC_Param, blob(kParamSize + 2, 100));
  bench.machine.run_for(50);
  EXPECT_EQ(bench.log.count("[CAudioControl::RegNotifyThread] The registry changed.\n"), 1u);
  EXPECT_EQ(bench.relay->CaptureStatistics().streams, 2u);
  EXPECT_EQ(bench.relay->RenderStatistics().streams, 1u);
  ASSERT_EQ(bench.chains.key_cancel->opened_with.size(), kParamSize);
  EXPECT_EQ(bench.chains.key_cancel->opened_with[0], 102) << "the first byte after two flags";
}

TEST(RegNotifyWithoutAChain, EndsWithTwo) {
  RelayBench bench;
  bench.start();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.relay->RegNotifyResult(), RegNotifyStatus::no_parameters);
}

}  // namespace
}  // namespace sonivo::test
