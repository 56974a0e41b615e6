// What is wrong at present, and what was last.

#include "host/trouble_watch.h"

#include "rules_bench.h"

namespace sonivo::test {
namespace {

constexpr const char* kNoMicrophone = "there is no microphone";
constexpr const char* kClosedMicrophone = "the microphone can't be opened";
constexpr const char* kNoParameters = "the parameters of the microphone's chain are missing";

/// A host that is ready with its driver, and looked at every 200 ms.
class Troubles : public RulesBench, public ::testing::Test {
 protected:
  explicit Troubles(Notebook notebook = Notebook::plain) : RulesBench(notebook) { host.m_bDriverReady = 1; }

  /// The streams wait for an application.
  void start() {
    host.m_AudioControl.SetEndpoint(DataFlow::capture, {});
    host.m_AudioControl.SetEndpoint(DataFlow::render, {});
    host.m_AudioControl.Start();
    machine.run_for(1);
  }
  void open_recorder() { machine.driver().open_recorder(pcm_format(48000, 16, 2)); }
  void open_player() { machine.driver().open_player(pcm_format(48000, 16, 2), sim::memory_source({})); }
  /// Whatever is found wrong until then, each text once in a row.
  std::vector<std::string> look_for(std::uint32_t ms) {
    std::vector<std::string> found;
    for (std::uint32_t passed = 0; passed < ms; passed += 200) {
      const std::string& trouble = watch.Look();
      if (found.empty() || found.back() != trouble) found.push_back(trouble);
      machine.run_for(200);
    }
    return found;
  }
  std::string present() { return watch.Look(); }
  std::string last() const { return host.m_LastTrouble.Latest().text; }

  TroubleWatch watch{host};
};

TEST_F(Troubles, AreNoneWhereAllIsWell) {
  start();
  open_recorder();
  open_player();
  EXPECT_EQ(look_for(3000), std::vector<std::string>{""});
  EXPECT_EQ(last(), "");
}

TEST_F(Troubles, TellOfADriverThatStaysAway) {
  start();
  host.m_bDriverReady = 0;
  EXPECT_EQ(look_for(5000), std::vector<std::string>{""}) << "a resume takes a while";
  EXPECT_EQ(present(), "the driver is not connected");
  host.m_bDriverReady = 1;
  EXPECT_EQ(present(), "");
  EXPECT_EQ(last(), "the driver is not connected") << "though it is over";
}

TEST_F(Troubles, TellOfADriverThatRefuses) {
  start();
  host.m_bDriverReady = 0;
  script.fail_always(Step::control_open, error::kAccessDenied);
  driver.InitDriverInfo(control::kControlInterface);
  look_for(5000);
  EXPECT_EQ(present(), "the driver refuses the connection: error 5");
}

TEST_F(Troubles, TellOfAVirtualDeviceThatIsMissing) {
  for (const auto& [pin, text] : {std::pair{sim::PinId::speaker, "the virtual speaker can't be used"},
                                  std::pair{sim::PinId::mic, "the virtual microphone can't be used"}}) {
    machine.driver().surprise_remove(pin);
    host.m_AudioControl.Stop();
    start();
    EXPECT_EQ(look_for(1000), std::vector<std::string>{""}) << "each stream starts like this";
    EXPECT_EQ(present(), text);
    machine.driver().return_device(pin);
    machine.run_for(1000);
    EXPECT_EQ(present(), "");
    EXPECT_EQ(last(), text);
  }
}

TEST_F(Troubles, AreNoneWhileAnotherSessionHasTheDevices) {
  machine.session().set_console_session(9);
  start();
  EXPECT_EQ(look_for(3000), std::vector<std::string>{""});
}

TEST_F(Troubles, TellOfADirectionWithoutAnEndpoint) {
  host.m_AudioControl.Start();
  open_recorder();
  machine.run_for(1);
  EXPECT_EQ(present(), kNoMicrophone);
  host.m_AudioControl.SetEndpoint(DataFlow::capture, sim::kMicArray);
  EXPECT_EQ(present(), "") << "another endpoint, another try";
  open_player();
  machine.run_for(1);
  EXPECT_EQ(present(), "there is no speaker");
}

TEST_F(Troubles, TellOfAnEndpointThatCantBeOpenedUntilItCan) {
  start();
  script.fail_always(Step::client_initialize, kFail);
  open_recorder();
  machine.run_for(1);
  EXPECT_EQ(look_for(1000), std::vector<std::string>{kClosedMicrophone});
  script.pardon(Step::client_initialize);
  machine.run_for(200);
  EXPECT_EQ(present(), "");
  EXPECT_EQ(last(), kClosedMicrophone);

  script.fail_always(Step::client_initialize, kFail);
  open_player();
  machine.run_for(1);
  EXPECT_EQ(present(), "the speaker can't be opened");
}

TEST_F(Troubles, TellOfAnOpeningThatTakesOverASecond) {
  start();
  script.before(Step::client_initialize, 1, [this] { machine.scheduler().sleep_ms(2000); });
  open_recorder();
  machine.run_for(1);
  EXPECT_EQ(look_for(3000), (std::vector<std::string>{"", kClosedMicrophone, ""}));
}

TEST_F(Troubles, TellOfADeviceThatStandsStillWhileAnApplicationStreams) {
  start();
  script.fail_always(Step::client_start, kOk);  // as one that nobody links
  open_recorder();
  EXPECT_EQ(look_for(2400), (std::vector<std::string>{"", "the microphone is open, but no sound passes"}));
  machine.driver().close_client(sim::PinId::mic);
  look_for(400);
  open_player();
  EXPECT_EQ(look_for(2400), (std::vector<std::string>{"", "the speaker is open, but no sound passes"}));
  script.pardon(Step::client_start);
  look_for(400);
  EXPECT_EQ(present(), "");
}

TEST_F(Troubles, AreNotedWithTheTimeOfTheirBeginning) {
  start();
  script.fail_always(Step::client_initialize, kFail);
  open_recorder();
  machine.run_for(1);
  const std::uint64_t began = machine.scheduler().tick_ms();
  look_for(1000);
  EXPECT_EQ(host.m_LastTrouble.Latest().tick_ms, began);
}

TEST_F(Troubles, NoteARingThatRanEmptyThoughAllIsWellAgain) {
  start();
  open_recorder();
  look_for(400);
  for (const std::uint64_t packet : {1u, 2u}) {
    script.before(Step::capture_get_buffer, packet, [this] { machine.scheduler().sleep_ms(60); });
  }
  EXPECT_EQ(look_for(600), std::vector<std::string>{""});
  EXPECT_GT(host.m_AudioControl.CaptureStatistics().underruns, 0u);
  EXPECT_EQ(last(), "the ring of the microphone ran empty");
}

TEST_F(Troubles, LeaveOutThatTheRingRunsEmptyAtTheEnd) {
  start();
  for (int round = 0; round < 3; ++round) {
    open_player();
    look_for(600);
    machine.driver().close_client(sim::PinId::speaker);
    look_for(600);
  }
  EXPECT_EQ(last(), "");
}

class KeyCancelTroubles : public Troubles {
 protected:
  KeyCancelTroubles() : Troubles(Notebook::key_cancel) {}
};

TEST_F(KeyCancelTroubles, TellOfMissingParametersWhileTheAudioGoesOn) {
  start();
  open_recorder();
  machine.run_for(100);
  EXPECT_EQ(present(), kNoParameters);
  EXPECT_EQ(host.m_AudioControl.Stream(DataFlow::capture).State(), StreamState::ePhysicalStreaming);
  set_notebook(Notebook::plain);
  EXPECT_EQ(present(), "") << "no chain is called for";
}

class BeamFormingTroubles : public Troubles {
 protected:
  BeamFormingTroubles() : Troubles(Notebook::beam_forming) {}
};

TEST_F(BeamFormingTroubles, TellOfMissingParameters) {
  start();
  open_recorder();
  machine.run_for(100);
  EXPECT_EQ(present(), kNoParameters);
}

TEST_F(BeamFormingTroubles, TellOfAChainThatRefusesUntilItOpens) {
  store_parameters();
  chains.beam_forming->answer("Open", 1);
  start();
  open_recorder();
  machine.run_for(100);
  EXPECT_EQ(present(), "the microphone's chain can't be opened");
  chains.beam_forming->pardon("Open");
  machine.run_for(300);
  EXPECT_EQ(present(), "");
}

class SpeechTroubles : public Troubles {
 protected:
  SpeechTroubles() : Troubles(Notebook::ai_speech) {}
  /// Of the open at start-up.
  std::string opened() {
    start();
    host.m_AudioControl.SetAISpeechEnhanceOpen();
    return present();
  }
};

TEST_F(SpeechTroubles, TellOfMissingParametersBeforeAStreamNeedsThem) { EXPECT_EQ(opened(), kNoParameters); }

TEST_F(SpeechTroubles, TellOfAMissingModel) {
  store_parameters();
  chains.ai_speech->answer("Open", 7);
  EXPECT_EQ(opened(), "the model of the microphone's chain is missing");
}

TEST_F(SpeechTroubles, TellOfAModelThatTheChainRefuses) {
  store_parameters();
  make_file((folder.path() / "models" / "model_se_streaming_RTF0.10_v2.bin").string());
  chains.ai_speech->answer("Open", 7);
  EXPECT_EQ(opened(), "the microphone's chain can't be opened");
}

TEST_F(SpeechTroubles, AreNoneOnceTheChainIsOpen) {
  store_parameters();
  EXPECT_EQ(opened(), "");
}

}  // namespace
}  // namespace sonivo::test
