#include "platform/linux/pipewire/headphone_watch.h"

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "pipewire_bench.h"
#include "pretended_card.h"

namespace sonivo::test {
namespace {

class HeadphoneWatchTest : public PipeWireTest {
 protected:
  void SetUp() override {
    PipeWireTest::SetUp();
    if (half_)
      watch_.emplace(half_->connection, [this](bool plugged) {
        std::scoped_lock lock(mutex_);
        told_.push_back(plugged);
      });
  }
  void TearDown() override { watch_.reset(); }

  std::vector<bool> told() {
    std::scoped_lock lock(mutex_);
    return told_;
  }
  bool is_told(const std::vector<bool>& all) {
    return comes_true([&] { return told() == all; });
  }

  std::mutex mutex_;
  std::vector<bool> told_;
  std::optional<pipewire::HeadphoneWatch> watch_;
};

TEST_F(HeadphoneWatchTest, AMachineWithoutCardsHasNone) { EXPECT_TRUE(is_told({false})); }

TEST_F(HeadphoneWatchTest, APlugThatGoesInAndOutIsToldOnce) {
  PretendedCard card(server_->remote());
  ASSERT_TRUE(is_told({false}));
  card.plug(true);
  EXPECT_TRUE(is_told({false, true}));
  card.plug(true);
  card.plug(false);
  EXPECT_TRUE(is_told({false, true, false}));
}

TEST_F(HeadphoneWatchTest, AHeadsetCountsAsLongAsItsCardIsThere) {
  ASSERT_TRUE(is_told({false}));
  auto headset = std::make_unique<PretendedCard>(server_->remote(), "headset");
  EXPECT_TRUE(is_told({false, true}));
  headset.reset();
  EXPECT_TRUE(is_told({false, true, false}));
}

TEST_F(HeadphoneWatchTest, HeadphonesThatAreInBeforeTheWatchAreToldFirst) {
  PretendedCard card(server_->remote());
  card.plug(true);
  ASSERT_TRUE(is_told({false, true}));
  pipewire::HeadphoneWatch late(half_->connection, [this](bool plugged) {
    std::scoped_lock lock(mutex_);
    told_ = {plugged, plugged, plugged};
  });
  EXPECT_TRUE(is_told({true, true, true}));
}

TEST_F(HeadphoneWatchTest, AManagerThatIsRestartedChangesNothing) {
  auto card = std::make_unique<PretendedCard>(server_->remote());
  card->plug(true);
  ASSERT_TRUE(is_told({false, true}));
  for (const bool manager_goes_first : {true, false}) {
    if (manager_goes_first) server_->kill_manager();
    card.reset();
    if (!manager_goes_first) server_->kill_manager();
    server_->start_manager();
    ASSERT_TRUE(comes_true([&] { return default_id(DataFlow::capture) == "notebook.microphone"; }));
    EXPECT_EQ(told(), (std::vector<bool>{false, true}));
    card = std::make_unique<PretendedCard>(server_->remote());
    card->plug(true);
  }
  card->plug(false);
  ASSERT_TRUE(is_told({false, true, false}));
}

TEST_F(HeadphoneWatchTest, CardsThatStayAwayWithTheirManagerAreNotWaitedForWithoutEnd) {
  auto card = std::make_unique<PretendedCard>(server_->remote());
  card->plug(true);
  ASSERT_TRUE(is_told({false, true}));
  server_->kill_manager();
  card.reset();
  EXPECT_TRUE(is_told({false, true, false}));
}

TEST_F(HeadphoneWatchTest, AServerThatIsKilledChangesNothingUntilItsCardsAreKnownAgain) {
  {
    PretendedCard card(server_->remote());
    card.plug(true);
    ASSERT_TRUE(is_told({false, true}));
    server_->kill_server();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(told(), (std::vector<bool>{false, true}));
  }
  server_->start_server();
  EXPECT_TRUE(is_told({false, true, false}));
}

}  // namespace
}  // namespace sonivo::test
