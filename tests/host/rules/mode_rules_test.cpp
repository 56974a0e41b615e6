// The meeting mode as the driver is told it, and the effective settings that follow the headphones.

#include "host/mode_rules.h"

#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// ---- SetMeetingModeDriver

class MeetingModeDriver : public RulesBench, public ::testing::Test {};

TEST_F(MeetingModeDriver, LaunchesThePositionMinusOne) {
  EXPECT_EQ(SetMeetingModeDriver(host, 1), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 0}, Asked{control::NSV_SET_LAUNCHED_MTG, 1}));
  EXPECT_EQ(SetMeetingModeDriver(host, 3), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{control::NSV_SET_ALL_SP_MTG, 2}, Asked{control::NSV_SET_ALL_HP_MTG, 2}));
}

TEST_F(MeetingModeDriver, LaunchesTwoMoreWithRoomCorrection) {
  host.m_RoomCorrection = 1;
  EXPECT_EQ(SetMeetingModeDriver(host, 2), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 3}, Asked{control::NSV_SET_LAUNCHED_MTG, 1}));
}

TEST_F(MeetingModeDriver, GoesOffWithTheModeOfRoomCorrection) {
  SetMeetingModeDriver(host, 1);
  asked();
  EXPECT_EQ(SetMeetingModeDriver(host, 0), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 0}, Asked{control::NSV_SET_LAUNCHED_MTG, 0}));
  SetMeetingModeDriver(host, 1);
  asked();
  host.m_RoomCorrection = 1;
  EXPECT_EQ(SetMeetingModeDriver(host, 0), 1);
  EXPECT_THAT(asked(), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 2}, Asked{control::NSV_SET_LAUNCHED_MTG, 0}));
}

TEST_F(MeetingModeDriver, AnswersWhatTheDriverDid) {
  device.fail(control::NSV_SET_LAUNCHED_MTG, 31);
  EXPECT_EQ(SetMeetingModeDriver(host, 1), 0);
}

TEST_F(MeetingModeDriver, WaitsForTheDriverLock) {
  host.m_csDriver.lock();
  const auto setter = machine.scheduler().start("setter", [this] { SetMeetingModeDriver(host, 1); });
  machine.run_for(20);
  EXPECT_THAT(asked(), IsEmpty());
  host.m_csDriver.unlock();
  setter->join();
  EXPECT_EQ(asked().size(), 2u);
}

// ---- headphoneUpdate

enum class Cell { off, users };

struct HeadphoneRow {
  std::uint32_t headphone;
  std::uint32_t launched;  ///< as GetLaunchedMTG answers it
  std::optional<Cell> beamforming;
  std::optional<Cell> enhance;
  std::optional<Cell> voice_model;
};
void PrintTo(const HeadphoneRow& row, std::ostream* out) {
  *out << "headphone " << row.headphone << " launched " << row.launched;
}

constexpr HeadphoneRow kHeadphoneRows[] = {
    {0, 0, Cell::off, Cell::off, Cell::off},       {0, 1, Cell::users, Cell::users, Cell::users},
    {0, 2, Cell::off, Cell::users, Cell::off},     {0, 3, Cell::users, Cell::users, Cell::users},
    {0, 4, Cell::off, Cell::users, Cell::off},     {0, 5, std::nullopt, std::nullopt, std::nullopt},
    {1, 0, Cell::off, Cell::off, Cell::off},       {1, 1, Cell::users, Cell::users, Cell::users},
    {1, 2, Cell::users, Cell::users, Cell::users}, {1, 3, Cell::users, Cell::users, Cell::users},
    {1, 4, Cell::users, Cell::users, Cell::users}, {1, 5, std::nullopt, std::nullopt, std::nullopt},
    {7, 2, Cell::users, Cell::users, Cell::users},
};

class HeadphoneUpdate : public RulesBench, public ::testing::TestWithParam<HeadphoneRow> {
 protected:
  /// The jack has changed to the row's state, in the row's mode.
  void prepare(Notebook notebook) {
    set_notebook(notebook);
    device.set_number(control::GetHeadphone, GetParam().headphone);
    host.m_dwHeadPhone = GetParam().headphone == 0 ? 1 : 0;
    device.set_number(control::NSV_GET_LAUNCHED_MTG, GetParam().launched == 0 ? 0 : 1);
    device.set_number(control::NSV_GET_ALL_SP_MTG, GetParam().launched - 1);
  }
  /// What is written where the user's setting has this value.
  static void expect(std::vector<Asked>& written, std::uint32_t code, std::optional<Cell> cell, std::uint32_t users) {
    if (cell) written.push_back({code, *cell == Cell::users ? users : 0});
  }
  std::vector<Asked> beamforming(std::uint32_t users) const {
    std::vector<Asked> expected;
    expect(expected, control::SetBeamformingMTG, GetParam().beamforming, users);
    return expected;
  }
  std::vector<Asked> speech(std::uint32_t enhance, std::uint32_t voice_model) const {
    std::vector<Asked> expected;
    expect(expected, control::SetAispeechenhanceMTG, GetParam().enhance, enhance);
    expect(expected, control::SetAispeechenhanceSetAiModelMTG, GetParam().voice_model, voice_model);
    return expected;
  }
};

TEST_P(HeadphoneUpdate, SetsBeamformingUnderTheSecondGate) {
  for (const std::uint32_t users : {0u, 1u, 2u}) {
    prepare(Notebook::beam_forming);
    device.set_number(control::NSV_GET_BEAMFORMING_UI_MTG, users);
    EXPECT_EQ(headphoneUpdate(host), GetParam().headphone);
    EXPECT_EQ(written(), beamforming(users == 1 ? 1 : 0)) << users;
  }
}

TEST_P(HeadphoneUpdate, SetsEnhancementAndVoiceModelUnderTheThirdGate) {
  for (const std::uint32_t users : {0u, 1u, 2u}) {
    prepare(Notebook::ai_speech);
    device.set_number(control::GetAispeechenhance_UI_MTG, users);
    device.set_number(control::GetAispeechenhanceSetAiModel_UI_MTG, (users + 1) % 3);
    EXPECT_EQ(headphoneUpdate(host), GetParam().headphone);
    EXPECT_EQ(written(), speech(users, (users + 1) % 3)) << users;
  }
}

TEST_P(HeadphoneUpdate, TakesAUsersSettingThatCantBeReadForOn) {
  for (const auto code : {control::NSV_GET_BEAMFORMING_UI_MTG, control::GetAispeechenhance_UI_MTG,
                          control::GetAispeechenhanceSetAiModel_UI_MTG}) {
    device.set_number(code, 0);
  }
  const auto write_without = [this](std::uint32_t code) {
    device.fail(code, 31);
    headphoneUpdate(host);
    device.pardon(code);
    return written();
  };
  prepare(Notebook::beam_forming);
  EXPECT_EQ(write_without(control::NSV_GET_BEAMFORMING_UI_MTG), beamforming(1));
  prepare(Notebook::ai_speech);
  EXPECT_EQ(write_without(control::GetAispeechenhance_UI_MTG), speech(1, 0));
  EXPECT_EQ(write_without(control::GetAispeechenhanceSetAiModel_UI_MTG), speech(0, 1));
}

TEST_P(HeadphoneUpdate, SetsNothingUnderTheOtherGates) {
  for (const Notebook notebook : {Notebook::plain, Notebook::key_cancel}) {
    prepare(notebook);
    EXPECT_EQ(headphoneUpdate(host), GetParam().headphone);
    EXPECT_THAT(written(), IsEmpty());
  }
}

TEST_P(HeadphoneUpdate, ChangesNothingForTheSameHeadphones) {
  for (const Notebook notebook : {Notebook::beam_forming, Notebook::ai_speech}) {
    prepare(notebook);
    host.m_dwHeadPhone = GetParam().headphone;
    EXPECT_EQ(headphoneUpdate(host), GetParam().headphone);
    EXPECT_THAT(written(), IsEmpty());
  }
}

TEST_P(HeadphoneUpdate, LeavesTheVariablesOfTheHost) {
  prepare(Notebook::ai_speech);
  headphoneUpdate(host);
  EXPECT_EQ(host.m_dwHeadPhone, GetParam().headphone == 0 ? 1u : 0u);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_EQ(host.m_RoomCorrection, 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, HeadphoneUpdate, ::testing::ValuesIn(kHeadphoneRows));

class HeadphoneUpdateLock : public RulesBench, public ::testing::Test {};

TEST_F(HeadphoneUpdateLock, IsHeldForTheTwoReadsAlone) {
  set_notebook(Notebook::beam_forming);
  device.set_number(control::GetHeadphone, 1);
  driver.SetLaunchedMTG(0);
  EXPECT_EQ(held_during([this] { headphoneUpdate(host); }), (Held{{control::NSV_GET_LAUNCHED_MTG, true},
                                                                  {control::NSV_GET_ALL_SP_MTG, true},
                                                                  {control::GetHeadphone, true},
                                                                  {control::NSV_GET_BEAMFORMING_UI_MTG, false},
                                                                  {control::SetBeamformingMTG, false}}));
}

class HeadphoneReads : public RulesBench, public ::testing::Test {
 protected:
  HeadphoneReads() : RulesBench(Notebook::beam_forming) {
    host.m_dwHeadPhone = 1;
    device.set_number(control::GetHeadphone, 1);
    device.set_number(control::NSV_GET_LAUNCHED_MTG, 1);
  }
};

TEST_F(HeadphoneReads, ThatFailMeanNoHeadphones) {
  device.fail(control::GetHeadphone, 31);
  EXPECT_EQ(headphoneUpdate(host), 0u);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 1}));
}

TEST_F(HeadphoneReads, ThatFailMeanNoMeeting) {
  host.m_dwHeadPhone = 0;
  device.fail(control::NSV_GET_LAUNCHED_MTG, 31);
  EXPECT_EQ(headphoneUpdate(host), 1u);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 0}));
}

TEST_F(HeadphoneReads, GoInTwoSpansOfTheDriverLockAndTheRestWithoutIt) {
  host.m_dwHeadPhone = 0;
  std::vector<bool> free;
  const auto note = [&] {
    const auto other = machine.scheduler().start("other", [&] {
      free.push_back(host.m_csDriver.try_lock());
      if (free.back()) host.m_csDriver.unlock();
    });
    other->join();
  };
  for (std::uint64_t request = 1; request <= 5; ++request) script.before(Step::control_request, request, note);
  headphoneUpdate(host);
  EXPECT_EQ(asked().size(), 5u) << "launched, mode, headphones, the user's setting, the effective one";
  EXPECT_THAT(free, ElementsAre(false, false, false, true, true));
}

// ---- SetHeadphoneState

class HeadphoneState : public RulesBench, public ::testing::Test {};

TEST_F(HeadphoneState, IsNotedWithAChangeToConclude) {
  SetHeadphoneState(host, 1);
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
  EXPECT_EQ(host.m_bMicDeviceDirty, 1u);
}

TEST_F(HeadphoneState, ChangesNothingWhenItIsTheSame) {
  show_panel();
  host.m_dwHeadPhone = 1;
  SetHeadphoneState(host, 1);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_FALSE(painted());
}

TEST_F(HeadphoneState, PaintsAPanelThatShows) {
  show_panel();
  SetHeadphoneState(host, 1);
  EXPECT_TRUE(painted());
  machine.desktop().windows().hide(host.m_hWnd);
  SetHeadphoneState(host, 0);
  EXPECT_EQ(script.count(Step::window_invalidate), 1u);
}

TEST_F(HeadphoneState, DoesWithoutAPanel) {
  SetHeadphoneState(host, 1);
  EXPECT_EQ(script.count(Step::window_invalidate), 0u);
}

}  // namespace
}  // namespace sonivo::test
