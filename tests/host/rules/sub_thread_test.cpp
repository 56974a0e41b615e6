// The thread that turns a chosen position into driver settings and polls the headphone jack and key cancel.

#include <algorithm>
#include <array>

#include "host/threads.h"
#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A host with SubThread at work, from the start of a case on.
class SubThreadBench : public RulesBench {
 protected:
  ~SubThreadBench() { stop(); }

  void start() {
    thread_ = machine.scheduler().start("SubThread", [this] { status = SubThread(host); });
    machine.run_for(1);
  }
  void stop() {
    host.m_bThreadExit = 1;
    if (thread_) thread_->join();
    thread_.reset();
  }
  /// The position is chosen, and what that writes; a meeting runs in the driver beforehand.
  std::vector<Asked> choose(std::int32_t position) {
    host.m_iMeetingModeTmp = position;
    host.m_bModeChangeRequest = 1;
    asked();
    machine.run_for(200);
    return written();
  }
  /// The chosen position leads to this launched mode in the driver; 0: off.
  static std::vector<Asked> launch(std::uint32_t mode) {
    if (mode == 0) return {{control::NSV_SET_MODE_MTG, 0}, {control::NSV_SET_LAUNCHED_MTG, 0}};
    return {{control::NSV_SET_MODE_MTG, mode - 1}, {control::NSV_SET_LAUNCHED_MTG, 1}};
  }

  std::uint32_t status = 77;

 private:
  std::unique_ptr<Thread> thread_;
};

// ---- A chosen position

struct Choice {
  std::uint32_t function;  ///< of the panel
  std::uint32_t headphones;
  std::int32_t position;
  std::uint32_t mode;  ///< that is launched, as a position; 0: off
  enum class Key { alone, off, users } key;
};
void PrintTo(const Choice& row, std::ostream* out) {
  *out << "function " << row.function << " headphones " << row.headphones << " position " << row.position;
}

using Key = Choice::Key;
constexpr Choice kChoices[] = {
    {0, 0, 0, 0, Key::alone}, {0, 0, 1, 1, Key::alone}, {0, 0, 2, 2, Key::alone}, {0, 1, 0, 0, Key::alone},
    {0, 1, 1, 1, Key::alone}, {0, 1, 2, 2, Key::alone}, {1, 0, 0, 0, Key::alone}, {1, 0, 1, 1, Key::alone},
    {1, 0, 2, 2, Key::alone}, {1, 1, 0, 0, Key::alone}, {1, 1, 1, 1, Key::alone}, {1, 1, 2, 2, Key::alone},
    {2, 0, 0, 0, Key::off},   {2, 0, 1, 1, Key::users}, {2, 0, 2, 2, Key::users}, {2, 0, 3, 3, Key::users},
    {2, 1, 0, 0, Key::off},   {2, 1, 1, 1, Key::users}, {2, 1, 2, 2, Key::alone}, {2, 1, 3, 1, Key::users},
    {2, 9, 3, 1, Key::users}, {3, 0, 3, 3, Key::users},
};

class ChosenPosition : public SubThreadBench, public ::testing::TestWithParam<Choice> {
 protected:
  void prepare(Notebook notebook) {
    set_notebook(notebook);
    host.m_Function = GetParam().function;
    host.m_dwHeadPhone = GetParam().headphones;
    if (GetParam().mode == 0) {  // going off needs a meeting to go off from
      driver.SetLaunchedMTG(1);
      device.set_number(control::NSV_GET_ALL_SP_MTG, 0);
    }
    start();
  }
  std::vector<Asked> expected() const { return launch(GetParam().mode); }
  void expect_key(std::vector<Asked>& all, std::uint32_t users) const {
    if (GetParam().key == Key::off) all.push_back({control::SetKeyboardCancelMTG, 0});
    if (GetParam().key == Key::users && users != 0) all.push_back({control::SetKeyboardCancelMTG, 1});
  }
  /// Beamforming of the position, where the user's setting has this value.
  void expect_beamforming(std::vector<Asked>& all, std::uint32_t users) const {
    const bool off = GetParam().position == 0 || GetParam().position == 2;
    if (off) all.push_back({control::SetBeamformingMTG, 0});
    if (!off && users == 1) all.push_back({control::SetBeamformingMTG, 1});
  }
  /// Enhancement and voice model of the position, where the user's settings have these values.
  void expect_speech(std::vector<Asked>& all, std::uint32_t enhance, std::uint32_t voice_model) const {
    const std::int32_t p = GetParam().position;
    all.push_back({control::SetAispeechenhanceMTG, p == 0 ? 0 : enhance});
    all.push_back({control::SetAispeechenhanceSetAiModelMTG, p == 0 || p == 2 ? 0 : voice_model});
  }
};

TEST_P(ChosenPosition, SetsTheModeAloneUnderTheFirstGateAndWithoutAny) {
  for (const Notebook notebook : {Notebook::plain, Notebook::key_cancel}) {
    prepare(notebook);
    EXPECT_EQ(choose(GetParam().position), expected());
    EXPECT_EQ(host.m_bModeChangeRequest, 0u);
    stop();
    host.m_bThreadExit = 0;
    driver.SetLaunchedMTGOff(false);
  }
}

TEST_P(ChosenPosition, SetsKeyCancelAndBeamformingUnderTheSecondGate) {
  for (const std::uint32_t users : {0u, 1u, 2u}) {
    device.set_number(control::NSV_GET_KEYCANSEL_UI_MTG, users);
    device.set_number(control::NSV_GET_BEAMFORMING_UI_MTG, users);
    prepare(Notebook::beam_forming);
    auto all = expected();
    expect_key(all, users);
    expect_beamforming(all, users);
    EXPECT_EQ(choose(GetParam().position), all) << users;
    stop();
    host.m_bThreadExit = 0;
    driver.SetLaunchedMTGOff(false);
  }
}

TEST_P(ChosenPosition, TakesAUsersSettingThatCantBeReadForOn) {
  device.fail(control::NSV_GET_KEYCANSEL_UI_MTG, 31);
  device.fail(control::NSV_GET_BEAMFORMING_UI_MTG, 31);
  prepare(Notebook::beam_forming);
  auto all = expected();
  expect_key(all, 1);
  expect_beamforming(all, 1);
  EXPECT_EQ(choose(GetParam().position), all);
}

TEST_P(ChosenPosition, SetsEnhancementAndVoiceModelUnderTheThirdGate) {
  for (const std::uint32_t users : {0u, 1u, 2u}) {
    const std::uint32_t users_model = (users + 1) % 3;
    device.set_number(control::GetAispeechenhance_UI_MTG, users);
    device.set_number(control::GetAispeechenhanceSetAiModel_UI_MTG, users_model);
    prepare(Notebook::ai_speech);
    auto all = expected();
    expect_speech(all, users, users_model);
    EXPECT_EQ(choose(GetParam().position), all) << users;
    stop();
    host.m_bThreadExit = 0;
    driver.SetLaunchedMTGOff(false);
  }
}

TEST_P(ChosenPosition, TakesTheUsersEnhancementThatCantBeReadForOn) {
  device.set_number(control::GetAispeechenhance_UI_MTG, 0);
  device.set_number(control::GetAispeechenhanceSetAiModel_UI_MTG, 0);
  device.fail(control::GetAispeechenhance_UI_MTG, 31);
  prepare(Notebook::ai_speech);
  auto all = expected();
  expect_speech(all, 1, 0);
  EXPECT_EQ(choose(GetParam().position), all);
}

TEST_P(ChosenPosition, TakesTheUsersVoiceModelThatCantBeReadForOn) {
  device.set_number(control::GetAispeechenhance_UI_MTG, 0);
  device.set_number(control::GetAispeechenhanceSetAiModel_UI_MTG, 0);
  device.fail(control::GetAispeechenhanceSetAiModel_UI_MTG, 31);
  prepare(Notebook::ai_speech);
  auto all = expected();
  expect_speech(all, 0, 1);
  EXPECT_EQ(choose(GetParam().position), all);
}

INSTANTIATE_TEST_SUITE_P(Table, ChosenPosition, ::testing::ValuesIn(kChoices));

class ModeChange : public SubThreadBench, public ::testing::Test {};

TEST_F(ModeChange, TakesRoomCorrectionFromTheDriversMode) {
  start();
  device.set_number(control::NSV_GET_ALL_SP_MTG, 2);
  EXPECT_THAT(choose(1), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 2}, Asked{control::NSV_SET_LAUNCHED_MTG, 1}));
  EXPECT_EQ(host.m_RoomCorrection, 1u);
  device.set_number(control::NSV_GET_ALL_SP_MTG, 1);
  EXPECT_THAT(choose(2), ElementsAre(Asked{control::NSV_SET_ALL_SP_MTG, 1}, Asked{control::NSV_SET_ALL_HP_MTG, 1}));
  EXPECT_EQ(host.m_RoomCorrection, 0u);
}

TEST_F(ModeChange, LeavesRoomCorrectionWhenTheModeCantBeRead) {
  start();
  host.m_RoomCorrection = 1;
  device.fail(control::NSV_GET_ALL_SP_MTG, 31);
  EXPECT_THAT(choose(1), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 2}, Asked{control::NSV_SET_LAUNCHED_MTG, 1}));
  EXPECT_EQ(host.m_RoomCorrection, 1u);
}

TEST_F(ModeChange, KeepsRoomCorrectionOnTheFourPositionPanelToo) {
  host.m_Function = 2;
  host.m_dwHeadPhone = 1;
  device.set_number(control::NSV_GET_ALL_SP_MTG, 3);
  start();
  EXPECT_THAT(choose(3), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 2}, Asked{control::NSV_SET_LAUNCHED_MTG, 1}))
      << "the first position's";
  EXPECT_THAT(choose(2), ElementsAre(Asked{control::NSV_SET_ALL_SP_MTG, 3}, Asked{control::NSV_SET_ALL_HP_MTG, 3}));
  EXPECT_THAT(choose(0), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 2}, Asked{control::NSV_SET_LAUNCHED_MTG, 0}));
  EXPECT_EQ(host.m_RoomCorrection, 1u);
}

TEST_F(ModeChange, ReadsEachUsersSettingRightBeforeItSetsTheEffectiveOne) {
  set_notebook(Notebook::ai_speech);
  device.set_number(control::GetAispeechenhanceSetAiModel_UI_MTG, 1);
  start();
  host.m_iMeetingModeTmp = 1;
  host.m_bModeChangeRequest = 1;
  machine.run_for(200);
  EXPECT_THAT(asked(),
              ElementsAre(Asked{control::NSV_GET_ALL_SP_MTG}, Asked{control::NSV_SET_MODE_MTG, 0},
                          Asked{control::NSV_SET_LAUNCHED_MTG, 1}, Asked{control::GetAispeechenhance_UI_MTG},
                          Asked{control::SetAispeechenhanceMTG, 1}, Asked{control::GetAispeechenhanceSetAiModel_UI_MTG},
                          Asked{control::SetAispeechenhanceSetAiModelMTG, 1}));
}

TEST_F(ModeChange, GoesOnWhenTheDriverRefusesAPart) {
  set_notebook(Notebook::beam_forming);
  host.m_Function = 2;
  driver.SetLaunchedMTG(0);
  start();
  for (const auto code : {control::NSV_SET_MODE_MTG, control::NSV_SET_LAUNCHED_MTG, control::SetKeyboardCancelMTG}) {
    device.fail(code, 31);
  }
  log.clear();
  EXPECT_THAT(choose(0), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 0}, Asked{control::NSV_SET_LAUNCHED_MTG, 0},
                                     Asked{control::SetKeyboardCancelMTG, 0}, Asked{control::SetBeamformingMTG, 0}));
  EXPECT_EQ(host.m_bModeChangeRequest, 0u);
  EXPECT_THAT(log.traces(), ElementsAre("[CSonivoDriverAccess] request 8000E16C failed: error 31\n",
                                        "[CSonivoDriverAccess] request 8000E124 failed: error 31\n",
                                        "[CSonivoDriverAccess] request 8000E17C failed: error 31\n"));
}

TEST_F(ModeChange, SetsTheVoiceModelWhenTheEnhancementIsRefused) {
  set_notebook(Notebook::ai_speech);
  start();
  device.fail(control::SetAispeechenhanceMTG, 31);
  EXPECT_THAT(choose(2), ElementsAre(Asked{control::NSV_SET_MODE_MTG, 1}, Asked{control::NSV_SET_LAUNCHED_MTG, 1},
                                     Asked{control::SetAispeechenhanceMTG, 1},
                                     Asked{control::SetAispeechenhanceSetAiModelMTG, 0}));
}

TEST_F(ModeChange, ReadsTheModeUnderTheDriverLock) {
  host.m_csDriver.lock();
  host.m_bModeChangeRequest = 1;
  start();
  machine.run_for(10);
  EXPECT_THAT(asked(), IsEmpty());
  EXPECT_EQ(host.m_bModeChangeRequest, 1u);
  host.m_csDriver.unlock();
  machine.run_for(1);
  EXPECT_EQ(asked().front(), Asked{control::NSV_GET_ALL_SP_MTG});
  EXPECT_EQ(host.m_bModeChangeRequest, 0u);
}

TEST_F(ModeChange, KeepsAChoiceThatIsMadeWhileAnEarlierOneIsSet) {
  start();
  device.set_delay(control::NSV_SET_MODE_MTG, 20);
  host.m_iMeetingModeTmp = 1;
  host.m_bModeChangeRequest = 1;
  machine.after(209, [this] {  // while the first of the two requests is under way
    host.m_iMeetingModeTmp = 2;
    host.m_bModeChangeRequest = 1;
  });
  machine.run_for(300);
  EXPECT_EQ(written(), launch(1));
  EXPECT_EQ(host.m_bModeChangeRequest, 1u);
  machine.run_for(200);
  EXPECT_THAT(written(), ElementsAre(Asked{control::NSV_SET_ALL_SP_MTG, 1}, Asked{control::NSV_SET_ALL_HP_MTG, 1}));
  EXPECT_EQ(host.m_bModeChangeRequest, 0u);
}

TEST_F(ModeChange, TakesThePositionThatHoldsOnceTheRequestIsCleared) {
  start();
  script.before(Step::control_request, 1, [this] { host.m_iMeetingModeTmp = 2; });  // the mode is read
  EXPECT_EQ(choose(1), launch(2));
}

TEST_F(ModeChange, ComesBeforeHeadphonesAndKeyCancelOfItsRound) {
  set_notebook(Notebook::key_cancel);
  show_panel();
  host.m_iMeetingModeTmp = 1;
  host.m_bModeChangeRequest = 1;
  start();
  EXPECT_THAT(asked(), ElementsAre(Asked{control::NSV_GET_ALL_SP_MTG}, Asked{control::NSV_SET_MODE_MTG, 0},
                                   Asked{control::NSV_SET_LAUNCHED_MTG, 1}, Asked{control::GetHeadphone},
                                   Asked{control::GetKeyboardCancelMTG}));
}

TEST_F(ModeChange, HoldsTheDriverLockForTheModeAloneNotForTheSettings) {
  set_notebook(Notebook::beam_forming);
  host.m_Function = 2;
  start();
  host.m_iMeetingModeTmp = 1;
  host.m_bModeChangeRequest = 1;
  EXPECT_EQ(held_during([this] { machine.run_for(200); }), (Held{{control::NSV_GET_ALL_SP_MTG, true},
                                                                 {control::NSV_SET_MODE_MTG, true},
                                                                 {control::NSV_SET_LAUNCHED_MTG, true},
                                                                 {control::NSV_GET_KEYCANSEL_UI_MTG, false},
                                                                 {control::SetKeyboardCancelMTG, false},
                                                                 {control::NSV_GET_BEAMFORMING_UI_MTG, false},
                                                                 {control::SetBeamformingMTG, false}}));
}

TEST_F(ModeChange, HappensOnceForEachRequest) {
  start();
  choose(1);
  machine.run_for(1000);
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(ModeChange, DoesNothingWithAnUnknownPositionBeyondTheMode) {
  for (const Notebook notebook : {Notebook::beam_forming, Notebook::ai_speech}) {
    set_notebook(notebook);
    host.m_bThreadExit = 0;
    start();
    EXPECT_EQ(choose(4), launch(4));
    stop();
    driver.SetLaunchedMTGOff(false);
  }
}

// ---- The headphone jack

class HeadphonePoll : public SubThreadBench, public ::testing::Test {
 protected:
  void plug() { device.set_number(control::GetHeadphone, 1); }
};

TEST_F(HeadphonePoll, TakesTheValueUpWithoutModeThreads) {
  show_panel();
  start();
  plug();
  machine.run_for(200);
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_TRUE(painted());
  machine.run_for(400);
  EXPECT_FALSE(painted());
}

TEST_F(HeadphonePoll, LeavesTheValueToTheModeThreads) {
  for (const Notebook notebook : {Notebook::beam_forming, Notebook::ai_speech}) {
    set_notebook(notebook);
    host.m_bThreadExit = 0;
    host.m_bMicDeviceDirty = 0;
    if (host.m_hWnd == WindowHandle::none) show_panel();
    start();
    plug();
    machine.run_for(200);
    EXPECT_EQ(host.m_dwHeadPhone, 0u);
    EXPECT_EQ(host.m_bMicDeviceDirty, 1u);
    EXPECT_TRUE(painted());
    EXPECT_THAT(written(), IsEmpty());
    stop();
    painted();
  }
}

TEST_F(HeadphonePoll, ChangesNothingForTheSameValue) {
  set_notebook(Notebook::beam_forming);
  show_panel();
  start();
  machine.run_for(600);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_FALSE(painted());
}

TEST_F(HeadphonePoll, TakesWhatCantBeReadForUnplugged) {
  plug();
  host.m_dwHeadPhone = 1;
  device.fail(control::GetHeadphone, 31);
  show_panel();
  start();
  EXPECT_EQ(host.m_dwHeadPhone, 0u);
  EXPECT_TRUE(painted());
}

TEST_F(HeadphonePoll, LeavesWhatCantBeReadToTheModeThreads) {
  set_notebook(Notebook::beam_forming);
  plug();
  host.m_dwHeadPhone = 1;
  device.fail(control::GetHeadphone, 31);
  show_panel();
  start();
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
  EXPECT_EQ(host.m_bMicDeviceDirty, 1u);
  EXPECT_TRUE(painted());
}

TEST_F(HeadphonePoll, NeedsAPanelThatShows) {
  start();
  plug();
  machine.run_for(400);
  EXPECT_THAT(asked(), IsEmpty()) << "there is none";
  show_panel();
  machine.desktop().windows().hide(host.m_hWnd);
  machine.run_for(400);
  EXPECT_THAT(asked(), IsEmpty()) << "it is hidden";
  EXPECT_EQ(host.m_dwHeadPhone, 0u);
}

TEST_F(HeadphonePoll, WaitsForTheDriverLock) {
  show_panel();
  plug();
  host.m_csDriver.lock();
  start();
  machine.run_for(400);
  EXPECT_EQ(host.m_dwHeadPhone, 0u);
  host.m_csDriver.unlock();
  machine.run_for(1);
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
}

// ---- Key cancel

class KeyCancelPoll : public SubThreadBench, public ::testing::Test {
 protected:
  KeyCancelPoll() {
    set_notebook(Notebook::key_cancel);
    machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_KC_Param,
                            std::vector<std::byte>(2 + chains.key_cancel->param_size));
    chains.key_cancel->process = [](float* block, std::size_t frames, std::size_t channels) {
      std::fill_n(block, frames * channels, 0.25f);
    };
  }
  /// What an application hears that has recorded the silent microphone for a while: the chain's constant or nothing.
  std::int16_t heard() {
    use_microphone("Microphone Array (Realtek High Definition Audio)");
    record();
    machine.run_for(1000);
    const auto recording = machine.driver().recording();
    std::int16_t last = -1;
    std::memcpy(&last, recording.data() + recording.size() - sizeof last, sizeof last);
    return last;
  }
};

TEST_F(KeyCancelPoll, FollowsTheDriverFiveTimesASecond) {
  start();
  asked();
  machine.run_for(1000);
  EXPECT_EQ(asked(), std::vector<Asked>(5, Asked{control::GetKeyboardCancelMTG}));
}

TEST_F(KeyCancelPoll, LeavesTheDriverLockFree) {
  start();
  EXPECT_EQ(held_during([this] { machine.run_for(200); }), (Held{{control::GetKeyboardCancelMTG, false}}));
}

TEST_F(KeyCancelPoll, PassesOnThatItIsOff) {
  device.set_number(control::GetKeyboardCancelMTG, 0);
  start();
  EXPECT_EQ(heard(), 0);
}

TEST_F(KeyCancelPoll, PassesOnThatItIsOn) {
  device.set_number(control::GetKeyboardCancelMTG, 2);
  host.m_AudioControl.UpdateKeyCancelState(false);
  start();
  EXPECT_EQ(heard(), 8192);  // 0.25 of 32768
}

TEST_F(KeyCancelPoll, TakesWhatCantBeReadForOn) {
  device.set_number(control::GetKeyboardCancelMTG, 0);
  device.fail(control::GetKeyboardCancelMTG, 31);
  host.m_AudioControl.UpdateKeyCancelState(false);
  start();
  EXPECT_EQ(heard(), 8192);
}

TEST_F(KeyCancelPoll, AsksNothingUnderTheOtherGates) {
  for (const Notebook notebook : {Notebook::plain, Notebook::beam_forming, Notebook::ai_speech}) {
    set_notebook(notebook);
    host.m_bThreadExit = 0;
    start();
    machine.run_for(400);
    stop();
  }
  EXPECT_THAT(asked(), IsEmpty());
}

// ---- The thread

class SubThreadLife : public SubThreadBench, public ::testing::TestWithParam<Notebook> {
 protected:
  SubThreadLife() {
    set_notebook(GetParam());
    for (EventPair* pair : {&host.m_hEvent, &host.m_hRegistryEvent, &host.m_hRegistryEvent_Quit}) {
      pair->Create(machine.seams().events, EventPair::kWork);
      pair->Create(machine.seams().events, EventPair::kStop);
    }
  }
  bool signalled(const EventPair& pair, std::size_t index) {
    const auto event = pair.Get(index);
    const std::array<Event*, 1> one{event.get()};
    return machine.scheduler().wait_any(one, 0).index.has_value();
  }
};

TEST_P(SubThreadLife, RunsAtTheHighestPriority) {
  start();
  const auto threads = machine.scheduler().threads();
  ASSERT_EQ(threads.size(), 1u);
  EXPECT_EQ(threads[0].priority, Priority::highest);
}

TEST_P(SubThreadLife, LooksAtItsFlagEvery200Milliseconds) {
  start();
  machine.run_for(250);
  stop();
  EXPECT_EQ(now_ms(), 400u);
  EXPECT_EQ(status, 0u);
}

TEST_P(SubThreadLife, DoesNothingWhenItIsToStopAtOnce) {
  host.m_bThreadExit = 1;
  host.m_bModeChangeRequest = 1;
  start();
  EXPECT_EQ(status, 0u);
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_P(SubThreadLife, SetsTheStopEventsAtItsEndWhereThereAreModeThreads) {
  start();
  const auto stops = [this] {
    return std::vector<bool>{signalled(host.m_hEvent, EventPair::kStop),
                             signalled(host.m_hRegistryEvent, EventPair::kStop),
                             signalled(host.m_hRegistryEvent_Quit, EventPair::kStop)};
  };
  EXPECT_THAT(stops(), ElementsAre(false, false, false));
  stop();
  const bool mode_threads = GetParam() == Notebook::beam_forming || GetParam() == Notebook::ai_speech;
  EXPECT_THAT(stops(), ElementsAre(mode_threads, mode_threads, mode_threads));
  for (EventPair* pair : {&host.m_hEvent, &host.m_hRegistryEvent, &host.m_hRegistryEvent_Quit}) {
    EXPECT_FALSE(signalled(*pair, EventPair::kWork));
  }
}

INSTANTIATE_TEST_SUITE_P(Notebooks, SubThreadLife,
                         ::testing::Values(Notebook::plain, Notebook::key_cancel, Notebook::beam_forming,
                                           Notebook::ai_speech));

class SubThreadWithoutEvents : public SubThreadBench, public ::testing::Test {};

TEST_F(SubThreadWithoutEvents, EndsAllTheSame) {
  set_notebook(Notebook::ai_speech);
  start();
  stop();
  EXPECT_EQ(status, 0u);
}

}  // namespace
}  // namespace sonivo::test
