#include "apps/tool/events_command.h"

#include <gtest/gtest.h>

namespace sonivo::tool {
namespace {

TEST(EventNames, SayWhatEachCommandMeans) {
  EXPECT_EQ(event_name(1), "player on");
  EXPECT_EQ(event_name(2), "player off");
  EXPECT_EQ(event_name(3), "wake the display");
  EXPECT_EQ(event_name(12), "auto mute on");
  EXPECT_EQ(event_name(13), "auto mute off");
  EXPECT_EQ(event_name(14), "capture endpoint changed");
  EXPECT_EQ(event_name(15), "render endpoint changed");
  EXPECT_EQ(event_name(16), "nothing");
  EXPECT_EQ(event_name(99), "driver exits");
  for (const std::uint32_t other : {0u, 4u, 11u, 17u, 98u, 100u}) EXPECT_EQ(event_name(other), "unknown") << other;
}

}  // namespace
}  // namespace sonivo::tool
