// The report of the service, as its reader understands it, and when the driver is given one.

#include "apps/tool/status_report.h"

#include <limits>

#include "host/status_report.h"
#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class ReportOfService : public RulesBench, public ::testing::Test {
 protected:
  std::string text(const std::string& trouble = {}) { return StatusReport(host, trouble); }
  tool::ServiceReport report() { return tool::read_service_report(text()); }
  void store_key_cancel_parameters() {
    machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_KC_Param,
                            std::vector<std::byte>(2 + chains.key_cancel->param_size));
  }
  void follow_defaults() {
    host.m_AudioControl.SetEndpoint(DataFlow::capture, {});
    host.m_AudioControl.SetEndpoint(DataFlow::render, {});
  }
};

TEST_F(ReportOfService, HasTheHostsVariables) {
  host.m_dwGeneration = 11;
  host.m_Function = std::numeric_limits<std::uint32_t>::max();
  host.m_dwGenerationMic = 5;
  host.m_FunctionMic = 9;
  host.SetMeetingModes(3);
  const tool::ServiceReport told = report();
  EXPECT_EQ(told.generation, 11u);
  EXPECT_EQ(told.function, 4294967295u);
  EXPECT_EQ(told.generation_mic, 5u);
  EXPECT_EQ(told.function_mic, 9u);
  EXPECT_EQ(told.meeting_mode, 3u);
}

TEST_F(ReportOfService, HasEachFlag) {
  struct Flag {
    SharedValue& of_host;
    bool tool::ServiceReport::*told;
  };
  for (const Flag& flag : {Flag{host.m_bDriverReady, &tool::ServiceReport::driver_ready},
                           Flag{host.m_RoomCorrection, &tool::ServiceReport::room_correction},
                           Flag{host.m_dwHeadPhone, &tool::ServiceReport::headphones},
                           Flag{host.m_dwAutoMute, &tool::ServiceReport::auto_mute}}) {
    EXPECT_FALSE(report().*flag.told);
    flag.of_host = 1;
    EXPECT_TRUE(report().*flag.told);
    flag.of_host = 0;
  }
  host.m_dwAutoMute = 2;
  EXPECT_FALSE(report().auto_mute) << "1 alone is on";
}

TEST_F(ReportOfService, HasTroubleAndTheLastOne) {
  EXPECT_EQ(report().trouble, "");
  EXPECT_EQ(report().last_trouble, "");
  EXPECT_EQ(report().last_trouble_ms, 0u);
  host.m_LastTrouble.Note("an earlier one", 1234567890123);
  const tool::ServiceReport told = tool::read_service_report(text("the present one"));
  EXPECT_EQ(told.trouble, "the present one");
  EXPECT_EQ(told.last_trouble, "an earlier one");
  EXPECT_EQ(told.last_trouble_ms, 1234567890123u);
}

TEST_F(ReportOfService, QuotesWhatJsonDoesNotTakeAsItIs) {
  const std::string strange =
      "a\"b\\c\nd\te\x01"
      "f\x1f/マイク";
  EXPECT_EQ(tool::read_service_report(text(strange)).trouble, strange);
  EXPECT_THAT(text(strange), HasSubstr(R"("a\"b\\c\u000ad\u0009e\u0001f\u001f/マイク")"));
}

TEST_F(ReportOfService, HasStateAndEndpointOfEachDirection) {
  follow_defaults();
  EXPECT_EQ(report().capture.state, "eWaitVirtualDriver");
  EXPECT_EQ(report().capture.endpoint, sim::kMicArray);
  EXPECT_EQ(report().render.endpoint, sim::kSpeakers);
  host.m_AudioControl.Start();
  machine.driver().open_player(pcm_format(48000, 16, 2), sim::memory_source({}));
  machine.run_for(1);
  EXPECT_EQ(report().capture.state, "eWaitVirtualStream");
  EXPECT_EQ(report().render.state, "ePhysicalStreaming");
  EXPECT_EQ(report().render.streams, 1u);
}

TEST_F(ReportOfService, NamesTheEndpointsThatThereAre) {
  EXPECT_THAT(report().capture.endpoints, Contains(sim::kMicArray));
  EXPECT_THAT(report().render.endpoints, Contains(sim::kSpeakers));
  EXPECT_THAT(report().render.endpoints, Not(Contains(sim::kMicArray)));
}

TEST_F(ReportOfService, NamesNoEndpointsWhereThereAreTooManyToNameAll) {
  for (int i = 0; i < 30; ++i) {
    machine.endpoints().add({.id = "speaker-" + std::to_string(i) + std::string(100, 'x'), .flow = DataFlow::render});
  }
  EXPECT_THAT(report().render.endpoints, IsEmpty());
  EXPECT_THAT(report().capture.endpoints, Contains(sim::kMicArray));
  EXPECT_LT(text().size(), control::kMaxReportBytes);
}

TEST_F(ReportOfService, TellsOfBlocksWhereThereIsAChainAlone) {
  EXPECT_THAT(text(), HasSubstr("\"blocks\":0"));
  const std::string whole = text();
  EXPECT_THAT(whole.substr(whole.find("\"render\"")), Not(HasSubstr("blocks")));
}

TEST_F(ReportOfService, HasWhatTheMicrophoneDidWithFramesInMilliseconds) {
  set_notebook(Notebook::key_cancel);
  store_key_cancel_parameters();
  chains.key_cancel->latency = 441;
  follow_defaults();
  host.m_AudioControl.Start();
  machine.driver().open_recorder(pcm_format(44100, 16, 2));
  machine.run_for(200);
  for (const std::uint64_t packet : {1u, 2u}) {  // the ring runs empty
    script.before(Step::capture_get_buffer, packet, [this] { machine.scheduler().sleep_ms(60); });
  }
  machine.run_for(1800);
  const StreamStatistics did = host.m_AudioControl.CaptureStatistics();
  const tool::CaptureReport told = report().capture;
  EXPECT_EQ(told.streams, 1u);
  EXPECT_EQ(told.underruns, did.underruns);
  EXPECT_GT(told.underruns, 0u);
  EXPECT_EQ(told.overruns, did.overruns);
  EXPECT_EQ(told.feedback, did.feedback);
  EXPECT_EQ(told.blocks, did.blocks);
  EXPECT_GT(told.blocks, 100u);
  EXPECT_EQ(told.silenced, 0u);
  EXPECT_EQ(told.unenhanced, 0u);
  EXPECT_EQ(told.chain_latency_ms, 10.0);
  EXPECT_NEAR(told.fill_min_ms, did.fill_min / 44.1, 1e-3);
  EXPECT_NEAR(told.fill_mean_ms, static_cast<double>(did.fill_sum) / static_cast<double>(did.fill_count) / 44.1, 1e-3);
  const double mean_us = static_cast<double>(did.execute_sum_ns) / static_cast<double>(did.executions) / 1000;
  EXPECT_GT(mean_us, 0);
  EXPECT_NEAR(told.execute_mean_us, mean_us, mean_us * 1e-5);
  EXPECT_NEAR(told.execute_max_us, static_cast<double>(did.execute_max_ns) / 1000, mean_us);
  EXPECT_NEAR(told.load, mean_us / 10000, mean_us / 10000 * 1e-5);
}

TEST_F(ReportOfService, CountsBlocksThatAChainSilencedOrLetPass) {
  set_notebook(Notebook::key_cancel);
  store_key_cancel_parameters();
  chains.key_cancel->process = [](float* block, std::size_t, std::size_t) {
    *block = std::numeric_limits<float>::quiet_NaN();
  };
  follow_defaults();
  record();
  machine.run_for(100);
  EXPECT_GT(report().capture.silenced, 0u);
  EXPECT_EQ(report().capture.silenced, report().capture.blocks);
}

// ---- The chain that runs

class ReportedChain : public ReportOfService {
 protected:
  using Chains = std::pair<std::string, std::string>;

  /// Before an application records, and while it does.
  Chains chain_of(Notebook notebook) {
    set_notebook(notebook);
    store_key_cancel_parameters();
    store_parameters();
    if (notebook == Notebook::ai_speech) host.m_AudioControl.SetAISpeechEnhanceOpen();
    follow_defaults();
    std::string before = report().chain;
    record();
    machine.run_for(100);
    return {std::move(before), report().chain};
  }
};

TEST_F(ReportedChain, IsNoneOnAPlainNotebook) { EXPECT_EQ(chain_of(Notebook::plain), Chains("none", "none")); }
TEST_F(ReportedChain, IsTheFirst) { EXPECT_EQ(chain_of(Notebook::key_cancel), Chains("none", "keycancel")); }
TEST_F(ReportedChain, IsTheSecond) { EXPECT_EQ(chain_of(Notebook::beam_forming), Chains("none", "beamforming")); }
TEST_F(ReportedChain, IsTheThird) { EXPECT_EQ(chain_of(Notebook::ai_speech), Chains("none", "ai")); }

TEST_F(ReportedChain, IsNoneWhereItsParametersAreMissing) {
  set_notebook(Notebook::key_cancel);
  follow_defaults();
  record();
  machine.run_for(100);
  EXPECT_EQ(report().capture.state, "ePhysicalStreaming");
  EXPECT_EQ(report().chain, "none");
}

TEST_F(ReportedChain, IsNoneOnceTheGatesCallForAnother) {
  chain_of(Notebook::key_cancel);
  set_notebook(Notebook::beam_forming);
  EXPECT_EQ(report().chain, "none") << "that one opens with the next stream";
}

// ---- Publishing

class PublishedReport : public ReportOfService {
 protected:
  PublishedReport() { host.m_bDriverReady = 1; }
  /// Reports that reached the driver so far.
  std::size_t published() {
    const auto requests = device.requests();
    return static_cast<std::size_t>(std::count_if(requests.begin(), requests.end(), [](const sim::ControlRecord& each) {
      return each.code == control::NSV_PUBLISH_REPORT;
    }));
  }
  void publish_after(std::uint32_t ms) {
    machine.run_for(ms);
    publisher.Publish();
  }

  StatusPublisher publisher{host};
};

TEST_F(PublishedReport, IsTheOneOfTheMoment) {
  publisher.Publish();
  EXPECT_EQ(device.report(), text());
}

TEST_F(PublishedReport, ComesOnceASecondAtMost) {
  publisher.Publish();
  host.m_dwHeadPhone = 1;
  publish_after(999);
  EXPECT_EQ(published(), 1u);
  publish_after(1);
  EXPECT_EQ(published(), 2u);
  EXPECT_TRUE(tool::read_service_report(device.report()).headphones);
}

TEST_F(PublishedReport, IsRepeatedEveryFiveSecondsWhenNothingChanges) {
  host.m_AudioControl.Start();
  for (int second = 0; second < 5; ++second) publish_after(1000);
  EXPECT_EQ(published(), 1u);
  publish_after(1000);
  EXPECT_EQ(published(), 2u);
  for (int second = 0; second < 10; ++second) publish_after(1000);
  EXPECT_EQ(published(), 4u);
}

TEST_F(PublishedReport, IsRepeatedToADriverThatIsConnectedAnew) {
  host.m_AudioControl.Start();
  publish_after(1000);
  driver.CloseDriverHandles();
  publish_after(1000);
  EXPECT_EQ(published(), 1u);
  driver.InitDriverInfo(control::kControlInterface);
  publish_after(1);
  EXPECT_EQ(published(), 2u) << "at once";
}

TEST_F(PublishedReport, IsTriedAgainWhereTheDriverRefusedIt) {
  host.m_AudioControl.Start();
  machine.run_for(1000);
  device.fail(control::NSV_PUBLISH_REPORT, 31);
  publisher.Publish();
  device.pardon(control::NSV_PUBLISH_REPORT);
  publish_after(200);
  EXPECT_EQ(published(), 2u);
  EXPECT_EQ(device.report(), text());
}

TEST_F(PublishedReport, SaysWhyThereWillBeNoneForAWhile) {
  publisher.Publish();
  EXPECT_EQ(tool::read_service_report(device.report()).pause, "none");
  host.m_Pause = Pause::locked;
  ReportAtOnce(host);
  EXPECT_EQ(tool::read_service_report(device.report()).pause, "locked") << "at once";
  host.m_Pause = Pause::asleep;
  ReportAtOnce(host);
  EXPECT_EQ(tool::read_service_report(device.report()).pause, "asleep");
  publish_after(5000);
  EXPECT_EQ(tool::read_service_report(device.report()).pause, "asleep") << "who publishes meanwhile says so too";
}

TEST_F(PublishedReport, OfAPauseStillSaysWhatIsWrong) {
  host.m_AudioControl.Start();
  machine.driver().open_recorder(pcm_format(48000, 16, 2));
  publish_after(10);
  host.m_Pause = Pause::locked;
  ReportAtOnce(host);
  EXPECT_EQ(tool::read_service_report(device.report()).trouble, "there is no microphone");
}

TEST_F(PublishedReport, SaysWhatIsWrong) {
  host.m_AudioControl.Start();
  machine.driver().open_recorder(pcm_format(48000, 16, 2));
  publish_after(10);
  EXPECT_EQ(tool::read_service_report(device.report()).trouble, "there is no microphone");
  EXPECT_EQ(tool::read_service_report(device.report()).last_trouble, "there is no microphone");
}

}  // namespace
}  // namespace sonivo::test
