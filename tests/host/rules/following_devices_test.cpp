// The thread that has the rules applied when a default device changes, and its neighbours at work beside it.

#include <memory>
#include <vector>

#include "registry_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kForeignMicrophone = "Headset Microphone (USB Headset)";
constexpr const char* kBuiltInMicrophone = "内蔵マイク (Realtek High Definition Audio)";

/// ChangeThread at work, with headphones plugged in that it doesn't know of yet.
class FollowingBench : public RulesBench {
 protected:
  explicit FollowingBench(Notebook notebook) : RulesBench(notebook) { device.set_number(control::GetHeadphone, 1); }
  ~FollowingBench() {
    machine.session().set_console_session(machine.session().own());
    host.m_bThreadExit = 1;
    host.m_hEvent.Set(EventPair::kStop);
    for (const auto& thread : threads_) thread->join();
  }
  void create_events() {
    host.m_hEvent.Create(machine.seams().events, EventPair::kWork);
    host.m_hEvent.Create(machine.seams().events, EventPair::kStop);
  }
  void start(Routine routine = ChangeThread) {
    threads_.push_back(machine.scheduler().start("rules", [this, routine] { status = routine(host); }));
    machine.run_for(1);
  }
  /// A default device changes; all that follows at once.
  std::vector<Asked> wake() {
    asked();
    host.m_hEvent.Set(EventPair::kWork);
    machine.run_for(1);
    return asked();
  }

  std::uint32_t status = 77;

 private:
  std::vector<std::unique_ptr<Thread>> threads_;
};

class FollowingDevices : public FollowingBench, public ::testing::TestWithParam<Notebook> {
 protected:
  FollowingDevices() : FollowingBench(GetParam()) {}
};

TEST_P(FollowingDevices, LosesAChangeThatIsToldWhileTheRulesAreApplied) {
  use_microphone(kBuiltInMicrophone);
  create_events();
  start();
  script.before(Step::control_request, 3, [this] { host.m_hEvent.Set(EventPair::kWork); });
  EXPECT_FALSE(wake().empty());
  machine.run_for(1000);
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_P(FollowingDevices, StopsOnceItsSessionIsBack) {
  create_events();
  machine.session().set_console_session(machine.session().own() + 1);
  start();
  host.m_hEvent.Set(EventPair::kStop);
  machine.run_for(999);
  EXPECT_EQ(log.count("[ChangeThread] Not active session\n"), 5u) << "at 1, 201 to 801 ms";
  EXPECT_EQ(status, 77u);
  machine.session().set_console_session(machine.session().own());
  machine.run_for(200);
  EXPECT_EQ(status, 0u);
  EXPECT_FALSE(log.has("ChangeThread ERROR.\n"));
}

TEST_P(FollowingDevices, EndsWithTheErrorOfItsWaitOnceItsSessionIsBack) {
  machine.session().set_console_session(machine.session().own() + 1);
  start();  // without events
  machine.run_for(998);
  EXPECT_EQ(log.count("[ChangeThread] Not active session\n"), 5u) << "at 0, 200 to 800 ms";
  EXPECT_FALSE(log.has("ChangeThread ERROR.\n"));
  EXPECT_EQ(status, 77u);
  machine.session().set_console_session(machine.session().own());
  machine.run_for(200);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(log.count("ChangeThread ERROR.\n"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Notebooks, FollowingDevices, ::testing::Values(Notebook::beam_forming, Notebook::ai_speech));

class FollowingSpeechDevices : public FollowingBench, public ::testing::Test {
 protected:
  FollowingSpeechDevices() : FollowingBench(Notebook::ai_speech) {}
};

TEST_F(FollowingSpeechDevices, HasTheThreeRulesInTheirOrderOnce) {
  use_microphone(kForeignMicrophone);
  create_events();
  start();
  EXPECT_THAT(wake(),
              ElementsAre(Asked{control::NSV_GET_LAUNCHED_MTG}, Asked{control::GetHeadphone},
                          Asked{control::SetAispeechenhanceMTG, 0}, Asked{control::SetAispeechenhanceSetAiModelMTG, 0},
                          Asked{control::GetKeyboardCancelMTG}, Asked{control::GetBeamformingMTG},
                          Asked{control::GetAispeechenhanceMTG}, Asked{control::GetAispeechenhanceSetAiModelMTG},
                          Asked{control::SetBeamformingMTG, 0}))
      << "the last finds the change that the second noted";
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
}

class FollowingBeamFormingDevices : public FollowingBench, public ::testing::Test {
 protected:
  FollowingBeamFormingDevices() : FollowingBench(Notebook::beam_forming) {}
};

TEST_F(FollowingBeamFormingDevices, NotesTheHeadphonesBeforeItLooksAtTheMicrophone) {
  use_microphone(kForeignMicrophone);
  create_events();
  start();
  EXPECT_THAT(wake(), ElementsAre(Asked{control::NSV_GET_LAUNCHED_MTG}, Asked{control::GetHeadphone},
                                  Asked{control::SetBeamformingMTG, 0}, Asked{control::GetKeyboardCancelMTG},
                                  Asked{control::GetBeamformingMTG}, Asked{control::SetBeamformingMTG, 0}));
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
}

TEST_F(FollowingBeamFormingDevices, NoticesHeadphonesWithAHiddenPanelByAChangedDefaultDeviceOnly) {
  device.set_number(control::GetHeadphone, 0);
  use_microphone(kBuiltInMicrophone);
  show_panel();
  machine.desktop().windows().hide(host.m_hWnd);
  create_events();
  host.m_AudioControl.SetHostEvents(host.m_hEvent.Get(EventPair::kWork).get(),
                                    host.m_hEvent.Get(EventPair::kStop).get());
  host.m_AudioControl.Start();
  start(ChangeThread);
  start(SubThread);
  machine.run_for(500);
  driver.SetLaunchedMTG(1);
  asked();

  device.set_number(control::GetHeadphone, 1);
  machine.run_for(1000);
  EXPECT_EQ(host.m_dwHeadPhone, 0u);
  EXPECT_THAT(asked(), IsEmpty());

  machine.endpoints().set_default(DataFlow::render, Role::console, sim::kHeadphones);
  machine.run_for(1);
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 1})) << "the user's, with headphones";
}

// ---- All threads of the rules

class RulesAtOnce : public RegistryBench, public ::testing::Test {
 protected:
  RulesAtOnce() : RegistryBench(Notebook::ai_speech, sim::Schedule::free) {
    use_microphone(kForeignMicrophone);
    for (const std::size_t index : {EventPair::kWork, EventPair::kStop}) {
      host.m_hEvent.Create(machine.seams().events, index);
    }
  }
  void choose(std::int32_t position) {
    host.m_iMeetingModeTmp = position;
    host.m_bModeChangeRequest = 1;
  }
};

TEST_F(RulesAtOnce, ComeToTheLatestModeAndHeadphones) {
  start(SubThread);
  start(ChangeThread);
  start(ChangeRegistryThread);
  for (std::uint32_t round = 0; round < 30; ++round) {
    device.set_number(control::GetHeadphone, round % 2);
    choose(static_cast<std::int32_t>(round % 3));
    host.m_hEvent.Set(EventPair::kWork);
    touch();
    machine.run_for(round % 4 * 50 + 1);
  }
  choose(2);
  machine.run_for(1000);
  EXPECT_EQ(device.number(control::NSV_GET_LAUNCHED_MTG), 1u);
  EXPECT_EQ(device.number(control::NSV_GET_ALL_SP_MTG), 1u);

  const std::uint32_t other = host.m_dwHeadPhone == 0 ? 1 : 0;
  device.set_number(control::GetHeadphone, other);
  device.set_number(control::GetAispeechenhance_UI_MTG, 3);
  host.m_hEvent.Set(EventPair::kWork);
  machine.run_for(1000);
  EXPECT_EQ(host.m_dwHeadPhone, other);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_EQ(device.number(control::GetAispeechenhanceMTG), 3u) << "the user's in this mode";

  host.m_bThreadExit = 1;  // the first then ends the others
  join();
  EXPECT_EQ(status, 0u);
}

}  // namespace
}  // namespace sonivo::test
