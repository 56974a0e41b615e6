#include "platform/linux/real_time.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "base/trace.h"
#include "mocked_bus.h"
#include "platform/linux/overrun_guard.h"
#include "platform/linux/screen_saver.h"
#include "platform/linux/threads.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kMockInterface = "org.freedesktop.DBus.Mock";

/// A mocked service that schedules threads of others, and what it was asked for.
class MockedGranter {
 public:
  MockedGranter(MockedBus& bus, const char* name, const char* path, const char* interface, const char* code = "")
      : bus_(bus), name_(name), path_(path), program_(bus.mock({name, path, interface}, name)) {
    bus_.call(name_, path_, kMockInterface, "AddProperty", "ssv", interface, "MaxRealtimePriority", "i", 8);
    bus_.call(name_, path_, kMockInterface, "AddProperty", "ssv", interface, "RTTimeUSecMax", "x",
              std::int64_t{200'000});
    bus_.call(name_, path_, kMockInterface, "AddMethod", "sssss", interface, "MakeThreadRealtimeWithPID", "ttu", "",
              code);
  }

  using Asked = std::tuple<std::uint64_t, std::uint64_t, std::uint32_t>;  ///< process, thread, priority
  std::vector<Asked> asked() {
    const auto reply = bus_.call(name_, path_, kMockInterface, "GetMethodCalls", "s", "MakeThreadRealtimeWithPID");
    sd_bus_message* const calls = reply.get();
    std::vector<Asked> all;
    sd_bus_message_enter_container(calls, 'a', "(tav)");
    std::uint64_t time = 0, process = 0, thread = 0;
    std::uint32_t priority = 0;
    while (sd_bus_message_read(calls, "(tav)", &time, 3, "t", &process, "t", &thread, "u", &priority) > 0) {
      all.emplace_back(process, thread, priority);
    }
    return all;
  }

 private:
  MockedBus& bus_;
  const char* const name_;
  const char* const path_;
  const std::unique_ptr<HelperProgram> program_;
};

constexpr const char* kRefuse =
    "raise dbus.exceptions.DBusException('no', name='org.freedesktop.DBus.Error.AccessDenied')";

class RealTimeTest : public testing::Test {
 protected:
  MockedGranter portal(const char* code = "") {
    return {bus, "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop", "org.freedesktop.portal.Realtime",
            code};
  }
  MockedGranter kit(const char* code = "") {
    return {bus, "org.freedesktop.RealtimeKit1", "/org/freedesktop/RealtimeKit1", "org.freedesktop.RealtimeKit1", code};
  }
  static MockedGranter::Asked own_thread(std::uint32_t priority) {
    return {static_cast<std::uint64_t>(::getpid()), static_cast<std::uint64_t>(::gettid()), priority};
  }

  MockedBus bus;
  std::vector<int> own_limits_asked;
  bool own_limits_grant = true;
  linux::RealTime real_time{
      {.user_bus = bus.address(), .system_bus = bus.address(), .own_limits = [this](int priority) {
         own_limits_asked.push_back(priority);
         return own_limits_grant;
       }}};
};

TEST_F(RealTimeTest, ThePortalIsAskedFirst) {
  MockedGranter first = portal();
  MockedGranter second = kit();
  EXPECT_TRUE(real_time.grant(5));
  EXPECT_THAT(first.asked(), ElementsAre(own_thread(5)));
  EXPECT_THAT(second.asked(), IsEmpty());
  EXPECT_THAT(own_limits_asked, IsEmpty());
}

TEST_F(RealTimeTest, RealtimeKitIsAskedNextForNoMoreThanItGrantsAndWithALimitOnTheTime) {
  MockedGranter refuses = portal(kRefuse);
  MockedGranter second = kit();
  std::thread([&] {
    EXPECT_TRUE(real_time.grant(10));
    EXPECT_THAT(second.asked(), ElementsAre(own_thread(8)));
  }).join();
  EXPECT_THAT(own_limits_asked, IsEmpty());
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_RTTIME, &limit), 0);
  EXPECT_LE(limit.rlim_max, 200'000u);
  EXPECT_LE(limit.rlim_cur, 100'000u);
}

TEST_F(RealTimeTest, NoPortalIsStarted) {
  const TemporaryFolder folder;
  bus.let_start("org.freedesktop.portal.Desktop", "/bin/touch " + folder / "started");
  EXPECT_TRUE(real_time.grant(5));
  EXPECT_FALSE(std::filesystem::exists(folder / "started"));
  EXPECT_THAT(own_limits_asked, ElementsAre(5));
}

TEST_F(RealTimeTest, TheOwnLimitsAreTheLastResort) {
  EXPECT_TRUE(real_time.grant(5));
  EXPECT_THAT(own_limits_asked, ElementsAre(5));
}

TEST_F(RealTimeTest, ARefusalIsToldInTheWordsOfTheOneWhoRefuses) {
  own_limits_grant = false;
  std::string refusal = "of before";
  EXPECT_FALSE(real_time.grant(5, refusal));
  EXPECT_EQ(refusal, "") << "nobody is there";
  MockedGranter busy =
      kit("raise dbus.exceptions.DBusException('Device or resource busy', "
          "name='org.freedesktop.DBus.Error.AccessDenied')");
  EXPECT_FALSE(real_time.grant(5, refusal));
  EXPECT_EQ(refusal, "Device or resource busy");
}

TEST_F(RealTimeTest, ARefusalByAllIsToldOnce) {
  std::vector<std::string> traces;
  const ScopedTraceSink sink([&](TraceLevel, std::string_view text) { traces.emplace_back(text); });
  MockedGranter refuses = kit(kRefuse);
  own_limits_grant = false;
  EXPECT_FALSE(real_time.grant(5));
  EXPECT_FALSE(real_time.grant(5));
  EXPECT_THAT(traces, ElementsAre("no real-time scheduling is granted: audio runs at ordinary priority\n"));
}

TEST(OverrunGuard, AThreadThatComputesForTooLongFallsBackToOrdinaryScheduling) {
  linux::ProcessThreads threads;
  int before = 0;
  int after = SCHED_RR;
  threads
      .start("computes",
             [&] {
               if (threads.enter_audio_class() == 0) return;
               before = ::sched_getscheduler(0);
               ASSERT_TRUE(linux::limit_real_time(200'000));
               linux::guard_this_thread();
               const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
               while (after == SCHED_RR && std::chrono::steady_clock::now() < end) after = ::sched_getscheduler(0);
             })
      ->join();
  if (before == 0) GTEST_SKIP() << "this machine grants no real-time scheduling";
  EXPECT_EQ(after, SCHED_OTHER | SCHED_RESET_ON_FORK);
}

TEST(RealTimeThreads, AskWhomTheyWereGivenForTheAudioClassAndTheTimeCritical) {
  std::vector<int> asked;
  bool granted = true;
  linux::ProcessThreads threads([&](int priority) {
    asked.push_back(priority);
    return granted;
  });
  EXPECT_NE(threads.enter_audio_class(), 0u);
  granted = false;
  EXPECT_EQ(threads.enter_audio_class(), 0u);
  threads.start("critical", [&] { threads.set_current_priority(Priority::time_critical); })->join();
  EXPECT_THAT(asked, ElementsAre(10, 10, 5));
}

TEST(ScreenSaver, IsToldThatTheUserIsThere) {
  MockedBus bus;
  constexpr const char* kName = "org.freedesktop.ScreenSaver";
  constexpr const char* kPath = "/org/freedesktop/ScreenSaver";
  const auto mocked = bus.mock({kName, kPath, kName}, kName);
  bus.call(kName, kPath, kMockInterface, "AddMethod", "sssss", kName, "SimulateUserActivity", "", "", "");
  EXPECT_TRUE(linux::simulate_user_activity(bus.address()));
  const auto calls = bus.call(kName, kPath, kMockInterface, "GetMethodCalls", "s", "SimulateUserActivity");
  EXPECT_GT(sd_bus_message_enter_container(calls.get(), 'a', "(tav)"), 0);
  EXPECT_EQ(sd_bus_message_at_end(calls.get(), 0), 0) << "one call";
  EXPECT_FALSE(linux::simulate_user_activity("unix:path=/nowhere/bus"));
}

}  // namespace
}  // namespace sonivo::test
