#include <string>
#include <vector>

#include "random_script.h"

namespace sonivo::test {
namespace {

struct Outcome {
  std::vector<std::byte> recorded;
  std::vector<std::byte> played;
  std::vector<std::string> machine_calls;
  std::vector<std::string> relay_traces;

  friend bool operator==(const Outcome&, const Outcome&) = default;
};

Outcome run_script(std::uint64_t seed, std::uint64_t jitter_seed) {
  RelayBench bench;
  if (jitter_seed != 0) bench.machine.scheduler().set_jitter(jitter_seed);
  bench.machine.script().start_trace();
  const auto format = pcm_format(48000, 16, 2);
  bench.record(format, numbered_pcm(48000, 16, 2));
  bench.play(format, numbered_pcm(48000, 16, 2, 7));
  bench.start();
  bench.machine.run_for(200);
  RandomScript(bench, seed, false).run();
  Outcome outcome{.recorded = bench.machine.driver().recording(),
                  .played = bench.machine.endpoint(sim::kSpeakers).played(),
                  .machine_calls = bench.machine.script().trace(),
                  .relay_traces = bench.log.traces()};
  return outcome;
}

TEST(TheSimulatedNotebook, GivesTheSameBytesAndTracesHoweverTheThreadsAreScheduled) {
  for (const std::uint64_t seed : {11u, 12u, 13u, 14u}) {
    SCOPED_TRACE(seed);
    const Outcome first = run_script(seed, 0);
    ASSERT_GT(first.machine_calls.size(), 500u);
    ASSERT_FALSE(first.recorded.empty() && first.played.empty());
    EXPECT_TRUE(run_script(seed, 0) == first);
    EXPECT_TRUE(run_script(seed, 99) == first);
    EXPECT_TRUE(run_script(seed, 4711) == first);
  }
}

TEST(TheSimulatedNotebook, GivesOtherTracesForOtherScripts) {
  EXPECT_FALSE(run_script(11, 0).machine_calls == run_script(12, 0).machine_calls);
}

}  // namespace
}  // namespace sonivo::test
