#include "own_machine_bench.h"
#include "pretended_card.h"

namespace sonivo::test {
namespace {

class HeadphonesTest : public DrivenMachineTest {
 protected:
  void SetUp() override {
    DrivenMachineTest::SetUp();
    if (!server_) return;
    ASSERT_EQ(sonivo({"setup", "--chain", "beamforming"}).code, 0);
    start_service();
  }
  bool driver_has(const std::string& value) {
    return comes_true([&] { return sonivo({"settings", "get", "headphone"}).text == value + "\n"; });
  }
};

TEST_F(HeadphonesTest, ThoseThatArePluggedInReachTheDriverAndTheService) {
  PretendedCard card(server_->remote());
  card.plug(true);
  EXPECT_TRUE(driver_has("on"));
  EXPECT_TRUE(comes_true([&] { return status().has("\"headphones\": true"); }));
  card.plug(false);
  EXPECT_TRUE(driver_has("off"));
  EXPECT_TRUE(comes_true([&] { return status().has("\"headphones\": false"); }));
}

TEST_F(HeadphonesTest, ANewDriverIsToldOfThoseThatAreIn) {
  PretendedCard card(server_->remote());
  card.plug(true);
  ASSERT_TRUE(driver_has("on"));
  end_driver();
  start_driver();
  EXPECT_TRUE(driver_has("on"));
}

}  // namespace
}  // namespace sonivo::test
