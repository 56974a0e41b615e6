#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "pipewire_bench.h"
#include "pretended_card.h"

namespace sonivo::test {
namespace {

constexpr char kSpeakers[] = "card.speakers";

/// Speakers that belong to a card.
class CardVolumeTest : public PipeWireTest {
 protected:
  void SetUp() override {
    PipeWireTest::SetUp();
    if (!half_) return;
    card_ = std::make_unique<PretendedCard>(server_->remote());
    ASSERT_TRUE(comes_true([&] { return card_->id() != SPA_ID_INVALID; }));
    server_->run({"pw-cli", "create-node", "adapter",
                  std::string("{ factory.name = support.null-audio-sink media.class = Audio/Sink node.name = ") +
                      kSpeakers + " device.id = " + std::to_string(card_->id()) +
                      " card.profile.device = 0 object.linger = true }"});
    ASSERT_TRUE(comes_true([&] { return endpoint(DataFlow::render, kSpeakers) != nullptr; }));
    ASSERT_EQ(endpoint(DataFlow::render, kSpeakers)->activate_volume(volume_), kOk);
  }
  /// Whether both a mute and its end come to be set with the route of this index.
  bool are_set_with(std::int32_t index) {
    const auto is_set = [&](bool muted) {
      EXPECT_EQ(volume_->set_mute(muted, nullptr), kOk);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      const auto set = card_->latest_set();
      return set && set->index == index && set->volume.muted == muted;
    };
    return comes_true([&] {
      const bool is_muted = is_set(true);  // which the session manager, as it does with a new route, may take back
      return is_set(false) && is_muted;
    });
  }

  std::unique_ptr<PretendedCard> card_;
  std::shared_ptr<EndpointVolume> volume_;
};

TEST_F(CardVolumeTest, AMuteAndALevelAreSetWithTheRouteOfTheNode) {
  EXPECT_TRUE(are_set_with(0));
  ASSERT_EQ(volume_->set_level_scalar(0.5f, nullptr), kOk);
  EXPECT_TRUE(comes_true([&] { return card_->latest_set()->volume.scalar() == 0.5f; }));
  EXPECT_NE(server_->run({"pw-cli", "enum-params", kSpeakers, "Props"}).find("Float 1.000000"), std::string::npos)
      << "the samples stay";
}

// Else the card would go back to where it came from.
TEST_F(CardVolumeTest, TheRouteIsTheOneInUseHoweverQuicklyItChanges) {
  for (const bool plugged : {true, false, true}) card_->plug(plugged);
  EXPECT_TRUE(are_set_with(1));
  for (const bool plugged : {false, true, false}) card_->plug(plugged);
  EXPECT_TRUE(are_set_with(0));
}

}  // namespace
}  // namespace sonivo::test
