#include "platform/sim/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace sonivo::sim {
namespace {

using testing::ElementsAre;

TEST(Script, TheNthCallFromNowFailsAndNoOther) {
  Script script;
  script.enter(Step::device_transfer);
  script.fail(Step::device_transfer, 1167, 2);
  EXPECT_EQ(script.enter(Step::device_transfer), std::nullopt);
  EXPECT_EQ(script.enter(Step::device_feedback), std::nullopt);
  EXPECT_EQ(script.enter(Step::device_transfer), 1167u);
  EXPECT_EQ(script.enter(Step::device_transfer), std::nullopt);
}

TEST(Script, ANegativeStatusKeepsItsBits) {
  Script script;
  script.fail(Step::client_start, std::int32_t(0x88890004));
  EXPECT_EQ(script.enter(Step::client_start), 0x88890004u);
}

TEST(Script, ALastingFailureEndsWithAPardon) {
  Script script;
  script.fail_always(Step::wait_any, 6);
  EXPECT_EQ(script.enter(Step::wait_any), 6u);
  EXPECT_EQ(script.enter(Step::wait_any), 6u);
  script.pardon(Step::wait_any);
  EXPECT_EQ(script.enter(Step::wait_any), std::nullopt);
}

TEST(Script, AnActionRunsBeforeItsCallAndMayScriptTheNextOne) {
  Script script;
  int ran_at = 0;
  script.before(Step::sleep, 2, [&] {
    ran_at = static_cast<int>(script.count(Step::sleep));
    script.fail(Step::sleep, 5);
  });
  EXPECT_EQ(script.enter(Step::sleep), std::nullopt);
  EXPECT_EQ(ran_at, 0);
  EXPECT_EQ(script.enter(Step::sleep), std::nullopt);
  EXPECT_EQ(ran_at, 2);
  EXPECT_EQ(script.enter(Step::sleep), 5u);
}

TEST(Script, CountsEachStepAndTracesFromWhereItIsAskedTo) {
  Script script;
  std::atomic<Time> now = 1;
  script.follow(now);
  script.enter(Step::bus_interfaces);
  script.start_trace();
  now = 2;
  script.enter(Step::bus_interfaces);
  now = 30;
  script.enter(Step::fx_arm);
  EXPECT_EQ(script.count(Step::bus_interfaces), 2u);
  EXPECT_EQ(script.count(Step::fx_arm), 1u);
  EXPECT_THAT(script.trace(), ElementsAre("2 bus_interfaces", "30 fx_arm"));
}

TEST(Script, EveryStepHasANameOfItsOwn) {
  std::set<std::string> names;
  for (std::size_t i = 0; i < kStepCount; ++i) names.insert(to_string(static_cast<Step>(i)));
  EXPECT_EQ(names.size(), kStepCount);
  EXPECT_STREQ(to_string(Step::device_wait_stream), "device_wait_stream");
  EXPECT_STREQ(to_string(Step::render_release_buffer), "render_release_buffer");
}

}  // namespace
}  // namespace sonivo::sim
