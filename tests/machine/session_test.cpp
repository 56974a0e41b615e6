#include <signal.h>

#include <memory>
#include <optional>

#include "../platform/linux/mocked_bus.h"
#include "audible_bench.h"

namespace sonivo::test {
namespace {

constexpr char kMicrophoneFile[] = "microphone.wav";
constexpr char kSpeakersFile[] = "speakers.wav";

/// The programs in a session of which a mocked logind tells.
class SessionTest : public AudibleMachineTest {
 protected:
  void SetUp() override {
    AudibleMachineTest::SetUp();
    if (!server_) return;
    bus_ = std::make_unique<MockedBus>();
    logind_ = std::make_unique<MockedLogind>(*bus_);
  }
  std::vector<std::string> service_command() override {
    return {"env", "DBUS_SYSTEM_BUS_ADDRESS=" + bus_->address(), "XDG_SESSION_ID=7", SONIVO_SERVICE_PROGRAM};
  }

  /// Both directions, and everybody who has a part in them.
  void start_applications() {
    applications_.push_back(speak_into("notebook.microphone"));
    applications_.push_back(play());
    applications_.push_back(record(kMicrophoneFile));
    applications_.push_back(record_speakers(kSpeakersFile));
  }
  bool are_heard(const Moment& microphone, const Moment& speakers) {
    return is_heard(microphone, kMicrophoneFile) && is_heard(speakers, kSpeakersFile);
  }
  bool becomes(const std::string& part) {
    return comes_true([&] { return status().has(part); });
  }
  /// Both directions since these moments, at which so many streams had begun.
  void expect_unbroken_both(const Moment& microphone, const Moment& speakers, const Streams& streams) {
    expect_unbroken("the microphone", microphone, kMicrophoneFile);
    expect_unbroken("the speakers", speakers, kSpeakersFile);
    EXPECT_EQ(streams_so_far(), streams);
  }

  /// What sleeps with the machine: all programs but logind, which tells of it.
  void signal_all(int signal) {
    server_->send(signal);
    driver().send(signal);
    service().send(signal);
    for (ChildProcess& each : applications_) each.send(signal);
  }

  std::unique_ptr<MockedBus> bus_;
  std::unique_ptr<MockedLogind> logind_;
  std::vector<ChildProcess> applications_;
};

TEST_F(SessionTest, AudioGoesOnWhileTheSessionIsLocked) {
  start_service();
  start_applications();
  ASSERT_TRUE(are_heard({}, {}));
  const Streams streams = streams_so_far();
  const Moment microphone = now(kMicrophoneFile);
  const Moment speakers = now(kSpeakersFile);
  logind_->ask_session("Lock");
  EXPECT_TRUE(becomes("\"pause\": \"locked\""));
  EXPECT_EQ(status().code, 0) << "which is healthy";
  EXPECT_TRUE(are_heard(now(kMicrophoneFile), now(kSpeakersFile)));
  logind_->ask_session("Unlock");
  EXPECT_TRUE(are_heard(now(kMicrophoneFile), now(kSpeakersFile)));
  EXPECT_TRUE(becomes("\"pause\": \"none\""));
  EXPECT_TRUE(becomes("\"driver_ready\": true"));
  expect_unbroken_both(microphone, speakers, streams);
}

TEST_F(SessionTest, AudioIsBackInTimeAfterTheMachineHasSlept) {
  start_service();
  start_applications();
  ASSERT_TRUE(are_heard({}, {}));
  ASSERT_TRUE(logind_->becomes_inhibited(true));
  logind_->signal_sleep(true);
  EXPECT_TRUE(logind_->becomes_inhibited(false));
  EXPECT_TRUE(status().has("\"pause\": \"asleep\"")) << status().text;
  signal_all(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  signal_all(SIGCONT);
  const Moment microphone = now(kMicrophoneFile);
  const Moment speakers = now(kSpeakersFile);
  logind_->signal_sleep(false);
  expect_back("the microphone after a sleep", microphone, kMicrophoneFile);
  expect_back("the speakers after a sleep", speakers, kSpeakersFile);
  EXPECT_TRUE(logind_->becomes_inhibited(true)) << "before the next sleep";
  EXPECT_TRUE(becomes("\"pause\": \"none\""));
  EXPECT_TRUE(becomes("\"driver_ready\": true"));
}

TEST_F(SessionTest, AServiceThatStartsInALockedSessionCarriesAudio) {
  logind_->set("LockedHint", true);
  start_service();
  start_applications();
  EXPECT_TRUE(are_heard({}, {}));
  const Streams streams = streams_so_far();
  const Moment microphone = now(kMicrophoneFile);
  const Moment speakers = now(kSpeakersFile);
  logind_->ask_session("Unlock");
  EXPECT_TRUE(are_heard(now(kMicrophoneFile), now(kSpeakersFile)));
  EXPECT_TRUE(status().has("\"driver_ready\": true")) << status().text;
  expect_unbroken_both(microphone, speakers, streams);
}

TEST_F(SessionTest, AServiceThatStartsInTheBackgroundLeavesTheDevicesToOthersUntilItsSessionIsActive) {
  logind_->set("Active", false);
  const ChildProcess service = server_->start(service_command());
  ASSERT_TRUE(comes_true([&] { return !server_->state_of(kVirtualMic).empty(); }));
  start_applications();
  for (const char* const node : {kVirtualMic, kVirtualSpeaker}) {
    ASSERT_TRUE(comes_true([&] { return server_->state_of(node) == "running"; })) << node;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // in which it looks at its session again
  EXPECT_EQ(server_->state_of("sonivo.microphone"), "");
  EXPECT_EQ(server_->state_of("sonivo.speaker"), "");
  const Moment microphone = now(kMicrophoneFile);
  const Moment speakers = now(kSpeakersFile);
  logind_->set("Active", true);
  expect_back("the microphone in the foreground", microphone, kMicrophoneFile);
  expect_back("the speakers in the foreground", speakers, kSpeakersFile);
}

}  // namespace
}  // namespace sonivo::test
