#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "random_script.h"
#include "support/used_steps.h"

namespace sonivo::test {
namespace {

#if defined(SONIVO_TSAN)
constexpr std::uint64_t kScripts = 60;
constexpr auto kSchedule = sim::Schedule::free;
#elif defined(SONIVO_ASAN)
constexpr std::uint64_t kScripts = 300;
constexpr auto kSchedule = sim::Schedule::serial;
#else
constexpr std::uint64_t kScripts = 2000;
constexpr auto kSchedule = sim::Schedule::serial;
#endif

constexpr std::uint32_t kQuietMs = 4000;

/// The state table, as far as it can be seen: each state with those that may come next. A stopped stream starts over in
/// the first one.
void expect_path_of_the_table(const std::vector<std::string>& states) {
  static const std::map<std::string, std::set<std::string>> kNext{
      {"eWaitVirtualDriver", {"eWaitVirtualDriver", "eWaitVirtualStream"}},
      {"eWaitVirtualStream", {"eWaitVirtualDriver", "eVirtualStreaming"}},
      {"eVirtualStreaming", {"eWaitVirtualDriver", "ePhysicalStreaming"}},
      {"ePhysicalStreaming", {"eWaitVirtualDriver"}},
  };
  for (std::size_t i = 0; i + 1 < states.size(); ++i) {
    ASSERT_TRUE(kNext.at(states[i]).contains(states[i + 1])) << states[i] << " to " << states[i + 1];
  }
}

void expect_mutes(RelayBench& bench, bool muted) {
  bench.machine.run_for(1);
  EXPECT_EQ(bench.machine.endpoint(sim::kMicArray).volume().muted(), muted);
  EXPECT_EQ(bench.machine.endpoint(sim::kVirtualMic).volume().muted(), muted);
}

/// Both endpoints agree as they were left, and after a change from either side and by the program.
void expect_mutes_agree(RelayBench& bench) {
  auto& physical = bench.machine.endpoint(sim::kMicArray).volume();
  auto& virtual_mic = bench.machine.endpoint(sim::kVirtualMic).volume();
  expect_mutes(bench, physical.muted());
  const bool muted = physical.muted();
  physical.set_mute(!muted);
  expect_mutes(bench, !muted);
  virtual_mic.set_mute(muted);
  expect_mutes(bench, muted);
  EXPECT_EQ(bench.relay->SetMuteAction(!muted), kOk);
  expect_mutes(bench, !muted);
}

void expect_ends_in_time(RelayBench& bench) {
  const std::uint64_t before = bench.machine.scheduler().tick_ms();
  bench.relay->Stop();
  EXPECT_LE(bench.machine.scheduler().tick_ms() - before, kStopLimitMs);
}

void expect_nothing_left(RelayBench& bench) {
  bench.relay.reset();
  EXPECT_EQ(bench.machine.leaks(), sim::Leaks{});
}

class TwoThousandRandomScripts : public ::testing::TestWithParam<std::uint64_t> {};

constexpr std::array kNotebooks{Notebook::plain, Notebook::key_cancel, Notebook::beam_forming, Notebook::ai_speech};

// In eight shares, so that they can run side by side.
constexpr std::uint64_t kShares = 8;

TEST_P(TwoThousandRandomScripts, LeaveTheRelayStreamingAndInAgreement) {
  for (std::uint64_t seed = GetParam(); seed < kScripts; seed += kShares) {
    SCOPED_TRACE("script " + std::to_string(seed));
    const bool deadly = seed % 5 == 0;
    sim::Config config;
    config.schedule = kSchedule;
    config.pins.drift_ppm = static_cast<double>(seed % 3) * 500 - 500;
    config.echo_filter = seed % 2 == 0;
    const Notebook notebook = kNotebooks[seed % kNotebooks.size()];
    RelayBench bench(config, notebook);
    bench.store_key_cancel_parameters(1, 1);
    bench.store_beam_forming_parameters();
    if (notebook == Notebook::ai_speech) {
      ASSERT_EQ(bench.relay->SetAISpeechEnhanceOpen(), kOk);
    }
    RandomScript script(bench, seed, deadly);
    bench.start();
    script.run();
    script.calm_down();
    bench.machine.run_for(kQuietMs);
    if (!deadly) {
      EXPECT_EQ(bench.relay->Stream(DataFlow::capture).State(), StreamState::ePhysicalStreaming);
      EXPECT_EQ(bench.relay->Stream(DataFlow::render).State(), StreamState::ePhysicalStreaming);
      expect_mutes_agree(bench);
    }
    expect_ends_in_time(bench);
    expect_path_of_the_table(bench.log.states("[cap]"));
    expect_path_of_the_table(bench.log.states("[ren]"));
    expect_nothing_left(bench);
    if (HasFailure()) break;
  }
}

INSTANTIATE_TEST_SUITE_P(Shares, TwoThousandRandomScripts, ::testing::Range<std::uint64_t>(0, kShares));

using Overtaking = void (*)(RelayBench&);

struct Mishap {
  const char* name;
  Overtaking happen;
};
void PrintTo(const Mishap& mishap, std::ostream* out) { *out << mishap.name; }

std::string name_of(Notebook notebook) {
  switch (notebook) {
    case Notebook::plain:
      return "Plain";
    case Notebook::key_cancel:
      return "KeyCancel";
    case Notebook::beam_forming:
      return "BeamForming";
    case Notebook::ai_speech:
      return "AISpeech";
  }
  return {};
}

const std::vector<Mishap> kMishaps{
    {"MicDeviceGone", [](RelayBench& b) { b.machine.driver().surprise_remove(sim::PinId::mic); }},
    {"SpeakerDeviceGone", [](RelayBench& b) { b.machine.driver().surprise_remove(sim::PinId::speaker); }},
    {"RecorderLeaves", [](RelayBench& b) { b.machine.driver().close_client(sim::PinId::mic); }},
    {"PlayerLeaves", [](RelayBench& b) { b.machine.driver().close_client(sim::PinId::speaker); }},
    {"MicUnplugged", [](RelayBench& b) { b.machine.endpoints().set_state(sim::kMicArray, kDeviceUnplugged); }},
    {"CaptureRestarts", [](RelayBench& b) { b.relay->Stream(DataFlow::capture).RequestRestart(); }},
    {"RenderRestarts", [](RelayBench& b) { b.relay->Stream(DataFlow::render).RequestRestart(); }},
    {"DefaultMicChanges",
     [](RelayBench& b) { b.machine.endpoints().set_default(DataFlow::capture, sim::kHeadsetMic); }},
    {"MutedFromBothSides",
     [](RelayBench& b) {
       b.machine.endpoint(sim::kMicArray).volume().set_mute(true);
       b.machine.endpoint(sim::kVirtualMic).volume().set_mute(true);
     }},
    {"ParametersChange",
     [](RelayBench& b) {
       b.store_key_cancel_parameters(9, 9);
       b.store_beam_forming_parameters(9);
     }},
    {"SpeakersUnplugged", [](RelayBench& b) { b.machine.endpoints().set_state(sim::kSpeakers, kDeviceUnplugged); }},
};

class AMishapDuringEachCall : public ::testing::TestWithParam<std::tuple<Notebook, Mishap>> {
 protected:
  struct Call {
    sim::Step step;
    std::uint64_t nth;
  };

  static Notebook notebook() { return std::get<Notebook>(GetParam()); }
  static std::unique_ptr<RelayBench> make_bench() {
    sim::Config config;
    config.schedule = kSchedule;
    auto bench = std::make_unique<RelayBench>(config, notebook());
    bench->store_key_cancel_parameters(1, 1);
    bench->store_beam_forming_parameters();
    if (notebook() == Notebook::ai_speech) {
      EXPECT_EQ(bench->relay->SetAISpeechEnhanceOpen(), kOk);
    }
    calm_down(*bench);
    return bench;
  }
  static ChainScript& chain(RelayBench& bench) {
    return *(notebook() == Notebook::key_cancel     ? bench.chains.key_cancel
             : notebook() == Notebook::beam_forming ? bench.chains.beam_forming
                                                    : bench.chains.ai_speech);
  }

  /// Sets the stage anew, whatever has become of it. Mishaps that are still to come don't come any more.
  static void calm_down(RelayBench& bench) { RandomScript(bench, 0, false).calm_down(); }

  /// The part of a life that a mishap falls into: the start, a stream, its end and another stream.
  static void live(RelayBench& bench) {
    bench.start();
    bench.machine.run_for(150);
    for (const DataFlow flow : {DataFlow::capture, DataFlow::render}) bench.relay->Stream(flow).RequestRestart();
    bench.machine.run_for(150);
  }

  static void expect_recovery(RelayBench& bench) {
    constexpr std::uint32_t kRecoveryMs = 1500;  // the longest pause is one of 1000 ms
    calm_down(bench);
    bench.machine.run_for(kRecoveryMs);
    EXPECT_EQ(bench.relay->Stream(DataFlow::capture).State(), StreamState::ePhysicalStreaming);
    EXPECT_EQ(bench.relay->Stream(DataFlow::render).State(), StreamState::ePhysicalStreaming);
    chain(bench).clear();
    bench.machine.run_for(50);
    EXPECT_GE(chain(bench).count("Execute"), 4u);
    expect_mutes_agree(bench);
    expect_ends_in_time(bench);
    expect_path_of_the_table(bench.log.states("[cap]"));
    expect_path_of_the_table(bench.log.states("[ren]"));
    expect_nothing_left(bench);
  }

  /// The first, second and fifth call of each step in a life without a mishap, as far as there are so many.
  static std::vector<Call> calls() {
    const auto undisturbed = make_bench();
    const sim::Script& script = undisturbed->machine.script();
    std::map<sim::Step, std::uint64_t> earlier;
    for (const sim::Step step : used_steps(script)) earlier[step] = script.count(step);
    live(*undisturbed);
    std::vector<Call> calls;
    for (const sim::Step step : used_steps(script)) {
      for (const std::uint64_t nth : {1u, 2u, 5u}) {
        if (nth <= script.count(step) - earlier[step]) calls.push_back({step, nth});
      }
    }
    expect_recovery(*undisturbed);
    return calls;
  }
};

TEST_P(AMishapDuringEachCall, IsRecoveredFrom) {
  constexpr bool kFree = kSchedule == sim::Schedule::free;
  constexpr std::size_t kStride = kFree ? 7 : 1;
  const std::vector<Call> all = calls();
  ASSERT_GT(all.size(), 100u);
  for (std::size_t i = static_cast<std::size_t>(notebook()) % kStride; i < all.size(); i += kStride) {
    const auto [step, nth] = all[i];
    SCOPED_TRACE(std::string(to_string(step)) + " call " + std::to_string(nth));
    const auto bench = make_bench();
    std::atomic<bool> happened = false;
    bench->machine.script().before(step, nth, [&] {
      happened = true;
      std::get<Mishap>(GetParam()).happen(*bench);
    });
    live(*bench);
    bench->machine.script().clear_faults();
    EXPECT_TRUE(happened || kFree);
    expect_recovery(*bench);
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Mishaps, AMishapDuringEachCall,
    ::testing::Combine(::testing::Values(Notebook::key_cancel, Notebook::beam_forming, Notebook::ai_speech),
                       ::testing::ValuesIn(kMishaps)),
    [](const auto& test) { return name_of(std::get<Notebook>(test.param)) + "_" + std::get<Mishap>(test.param).name; });

}  // namespace
}  // namespace sonivo::test
