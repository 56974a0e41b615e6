// The meeting mode that is launched in the driver, and what is remembered of it.

#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kGetLaunched = 0x8000E128;
constexpr std::uint32_t kSetLaunched = 0x8000E124;
constexpr std::uint32_t kGetSpeakerMode = 0x8000E130;
constexpr std::uint32_t kSetSpeakerMode = 0x8000E12C;
constexpr std::uint32_t kSetHeadphoneMode = 0x8000E160;
constexpr std::uint32_t kSetMode = 0x8000E16C;

class LaunchedMode : public RulesBench, public ::testing::Test {
 protected:
  /// The driver has this mode launched, and the channel knows.
  void launched(std::uint32_t mode) {
    device.set_number(kGetLaunched, 1);
    device.set_number(kGetSpeakerMode, mode);
    ASSERT_EQ(driver.GetLaunchedMTG(&value), 1);
    asked();
  }
  /// Whether the channel remembers a launched mode: setting that very mode asks nothing then.
  bool remembers(std::uint32_t mode) {
    asked();
    driver.SetLaunchedMTG(mode);
    return asked().empty();
  }

  std::uint32_t value = 77;
};

TEST_F(LaunchedMode, IsTheDriversPlusOne) {
  for (const std::uint32_t mode : {0u, 1u, 3u}) {
    device.set_number(kGetLaunched, 1);
    device.set_number(kGetSpeakerMode, mode);
    EXPECT_EQ(driver.GetLaunchedMTG(&value), 1);
    EXPECT_EQ(value, mode + 1);
    EXPECT_THAT(asked(), ElementsAre(Asked{kGetLaunched}, Asked{kGetSpeakerMode}));
    EXPECT_TRUE(remembers(mode));
  }
}

TEST_F(LaunchedMode, IsZeroWhenOffAndTheModeIsNotAskedFor) {
  device.set_number(kGetSpeakerMode, 2);
  EXPECT_EQ(driver.GetLaunchedMTG(&value), 1);
  EXPECT_EQ(value, 0u);
  EXPECT_THAT(asked(), ElementsAre(Asked{kGetLaunched}));
}

TEST_F(LaunchedMode, CountsAsLaunchedForEveryFlagButZero) {
  device.set_number(kGetLaunched, 2);
  device.set_number(kGetSpeakerMode, 1);
  EXPECT_EQ(driver.GetLaunchedMTG(&value), 1);
  EXPECT_EQ(value, 2u);
  EXPECT_TRUE(remembers(1));
  EXPECT_EQ(driver.SetLaunchedMTGOff(false), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetMode, 0}, Asked{kSetLaunched, 0}));
}

TEST_F(LaunchedMode, IsForgottenWhenTheFlagCantBeRead) {
  launched(1);
  device.fail(kGetLaunched, 31);
  EXPECT_EQ(driver.GetLaunchedMTG(&value), 0);
  EXPECT_EQ(value, 0u);
  EXPECT_THAT(asked(), ElementsAre(Asked{kGetLaunched}));
  EXPECT_EQ(driver.SetLaunchedMTG(1), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetMode, 1}, Asked{kSetLaunched, 1}));
}

TEST_F(LaunchedMode, IsForgottenWhenTheModeCantBeRead) {
  launched(1);
  device.fail(kGetSpeakerMode, 31);
  value = 77;
  EXPECT_EQ(driver.GetLaunchedMTG(&value), 0);
  EXPECT_EQ(value, 0u);
  EXPECT_FALSE(remembers(1));
}

TEST_F(LaunchedMode, IsForgottenWithoutAHandle) {
  launched(1);
  driver.CloseDriverHandles();
  EXPECT_EQ(driver.GetLaunchedMTG(&value), 0);
  EXPECT_EQ(value, 0u);
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(LaunchedMode, AloneIsReadWithoutTheFlagAndNotRemembered) {
  device.set_number(kGetSpeakerMode, 2);
  EXPECT_EQ(driver.GetLaunchedMTGMode(&value), 1);
  EXPECT_EQ(value, 3u);
  EXPECT_THAT(asked(), ElementsAre(Asked{kGetSpeakerMode}));
  EXPECT_FALSE(remembers(2));

  launched(1);
  device.set_number(kGetSpeakerMode, 3);
  EXPECT_EQ(driver.GetLaunchedMTGMode(&value), 1);
  EXPECT_TRUE(remembers(1)) << "the mode of the last GetLaunchedMTG";
}

TEST_F(LaunchedMode, AloneIsZeroWhenItCantBeRead) {
  launched(1);
  device.fail(kGetSpeakerMode, 31);
  EXPECT_EQ(driver.GetLaunchedMTGMode(&value), 0);
  EXPECT_EQ(value, 0u);
  EXPECT_TRUE(remembers(1));
}

TEST_F(LaunchedMode, IsSetBeforeTheLaunch) {
  EXPECT_EQ(driver.SetLaunchedMTG(3), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetMode, 3}, Asked{kSetLaunched, 1}));
  EXPECT_TRUE(remembers(3));
}

TEST_F(LaunchedMode, ChangesForSpeakerAndHeadphonesWhileLaunched) {
  launched(0);
  EXPECT_EQ(driver.SetLaunchedMTG(2), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetSpeakerMode, 2}, Asked{kSetHeadphoneMode, 2}));
  EXPECT_TRUE(remembers(2));
}

TEST_F(LaunchedMode, StaysWithoutARequestWhenUnchanged) {
  launched(2);
  EXPECT_EQ(driver.SetLaunchedMTG(2), 1);
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(LaunchedMode, CountsAsLaunchedWhenTheLaunchSucceedsWhateverTheModeDid) {
  device.fail(kSetMode, 31);
  EXPECT_EQ(driver.SetLaunchedMTG(1), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetMode, 1}, Asked{kSetLaunched, 1}));
  EXPECT_TRUE(remembers(1));
}

TEST_F(LaunchedMode, IsNotLaunchedWhenTheLaunchFails) {
  device.fail(kSetLaunched, 31);
  EXPECT_EQ(driver.SetLaunchedMTG(1), 0);
  asked();
  EXPECT_EQ(driver.SetLaunchedMTG(1), 0);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetMode, 1}, Asked{kSetLaunched, 1}));
}

TEST_F(LaunchedMode, ChangesWithTheHeadphonesWhateverTheSpeakerDid) {
  launched(0);
  device.fail(kSetSpeakerMode, 31);
  EXPECT_EQ(driver.SetLaunchedMTG(2), 1);
  EXPECT_TRUE(remembers(2));
  device.pardon(kSetSpeakerMode);
  device.fail(kSetHeadphoneMode, 31);
  EXPECT_EQ(driver.SetLaunchedMTG(1), 0);
  EXPECT_TRUE(remembers(2)) << "a change that failed is none";
}

TEST_F(LaunchedMode, GoesOffWithTheModeOfRoomCorrection) {
  launched(1);
  EXPECT_EQ(driver.SetLaunchedMTGOff(false), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetMode, 0}, Asked{kSetLaunched, 0}));
  launched(1);
  EXPECT_EQ(driver.SetLaunchedMTGOff(true), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetMode, 2}, Asked{kSetLaunched, 0}));
  EXPECT_FALSE(remembers(1));
}

TEST_F(LaunchedMode, IsLeftAloneByGoingOffTwice) {
  launched(1);
  driver.SetLaunchedMTGOff(false);
  asked();
  EXPECT_NE(driver.SetLaunchedMTGOff(false), 0);
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(LaunchedMode, StaysRememberedWhenItCantGoOff) {
  launched(1);
  device.fail(kSetLaunched, 31);
  EXPECT_EQ(driver.SetLaunchedMTGOff(false), 0);
  EXPECT_TRUE(remembers(1));
}

TEST_F(LaunchedMode, GoesOffWhateverTheModeDid) {
  launched(1);
  device.fail(kSetMode, 31);
  EXPECT_EQ(driver.SetLaunchedMTGOff(true), 1);
  EXPECT_FALSE(remembers(1));
}

TEST_F(LaunchedMode, GoesOffAloneAndStaysRemembered) {
  launched(1);
  EXPECT_EQ(driver.SetLaunchedMTGOff2(), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetLaunched, 0}));
  EXPECT_TRUE(remembers(1));
  EXPECT_EQ(device.number(kGetLaunched), 0u);
}

TEST_F(LaunchedMode, GoesOffAloneEvenWhenNothingIsKnownOfIt) {
  EXPECT_EQ(driver.SetLaunchedMTGOff2(), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{kSetLaunched, 0}));
  device.fail(kSetLaunched, 31);
  EXPECT_EQ(driver.SetLaunchedMTGOff2(), 0);
}

}  // namespace
}  // namespace sonivo::test
