#include "platform/linux/logind.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "base/trace.h"
#include "mocked_bus.h"

namespace sonivo::test {
namespace {

using linux::LogindOptions;
using linux::SessionState;
using testing::ElementsAre;
using testing::IsEmpty;

/// What logind was heard to say.
class LogindTest : public testing::Test {
 protected:
  void follow(const std::string& session = "7") {
    follow(LogindOptions{.address = bus.address(), .session = session, .first_retry = std::chrono::milliseconds(10)});
  }
  void follow(LogindOptions options) {
    logind.emplace(std::move(options),
                   linux::LogindEvents{
                       .changed = [this](const SessionState& state) { note([&] { states.push_back(state); }); },
                       .suspends =
                           [this](std::shared_ptr<linux::SleepDelay> delay) {
                             note([&] {
                               delays.push_back(std::move(delay));
                               sleeps.push_back(true);
                             });
                           },
                       .resumed = [this] { note([&] { sleeps.push_back(false); }); },
                   });
  }
  void note(const std::function<void()>& what) { happening.change(what); }
  bool becomes(const std::function<bool(const SessionState&)>& what) {
    return happening.wait_until([&] { return !states.empty() && what(states.back()); });
  }

  MockedBus bus;
  Happening happening;
  std::vector<SessionState> states;
  std::vector<bool> sleeps;
  std::vector<std::shared_ptr<linux::SleepDelay>> delays;
  std::optional<linux::Logind> logind;
};

TEST_F(LogindTest, WithoutLogindTheSessionCountsAsActiveWhichIsSaidOnce) {
  std::vector<std::string> traces;
  const ScopedTraceSink sink([&](TraceLevel, std::string_view text) { traces.emplace_back(text); });
  follow();
  logind.reset();
  EXPECT_THAT(states, ElementsAre(SessionState{.logind = false, .active = true}));
  EXPECT_THAT(traces, ElementsAre("there is no logind: the session counts as the active one\n"));
}

TEST_F(LogindTest, WithoutABusTheSessionCountsAsActive) {
  follow({.address = "unix:path=/nowhere/bus", .first_retry = std::chrono::milliseconds(1)});
  EXPECT_THAT(states, ElementsAre(SessionState{}));
}

TEST_F(LogindTest, TheStateOfTheNamedSessionIsToldFirst) {
  MockedLogind mocked(bus);
  mocked.add_session("c9", false);
  mocked.set("LockedHint", true, "c9");
  follow("c9");
  EXPECT_THAT(states, ElementsAre(SessionState{.logind = true, .id = "c9", .active = false, .locked = true}));
}

TEST_F(LogindTest, WithoutANameItIsTheSessionOfTheProcess) {
  MockedLogind mocked(bus);
  mocked.add_session_method("GetSessionByPID", "u", "7");
  follow("");
  EXPECT_THAT(states, ElementsAre(SessionState{.logind = true, .id = "7", .active = true}));
}

TEST_F(LogindTest, AProcessOutsideOfSessionsFollowsTheOneThatItsUserSees) {
  MockedLogind mocked(bus);
  follow("");
  EXPECT_THAT(states, ElementsAre(SessionState{.logind = true, .active = false})) << "there is none yet";
  mocked.show_to_user("7");
  mocked.signal_new_session("7");
  EXPECT_TRUE(becomes([](const SessionState& state) { return state.id == "7" && state.active; }));
}

TEST_F(LogindTest, LockUnlockAndItsHintAreTheSameChange) {
  MockedLogind mocked(bus);
  follow();
  mocked.ask_session("Lock");
  EXPECT_TRUE(becomes([](const SessionState& state) { return state.locked; }));
  mocked.set("LockedHint", true);
  mocked.set("LockedHint", false);
  EXPECT_TRUE(becomes([](const SessionState& state) { return !state.locked; }));
  mocked.ask_session("Unlock");
  mocked.set("LockedHint", true);
  EXPECT_TRUE(becomes([](const SessionState& state) { return state.locked; }));
  EXPECT_EQ(states.size(), 4u);
}

TEST_F(LogindTest, TheForegroundOfTheSeatAndTheIdlingAreFollowed) {
  MockedLogind mocked(bus);
  follow();
  mocked.set("Active", false);
  EXPECT_TRUE(becomes([](const SessionState& state) { return !state.active; }));
  mocked.set("Active", true);
  EXPECT_TRUE(becomes([](const SessionState& state) { return state.active; }));
  mocked.set("IdleHint", true);
  EXPECT_TRUE(becomes([](const SessionState& state) { return state.idle; }));
}

// ---- Sleep

TEST_F(LogindTest, TheSleepWaitsUntilTheLastOneLetsGo) {
  MockedLogind mocked(bus);
  follow();
  EXPECT_THAT(mocked.inhibitors(), ElementsAre("sleep delay"));
  mocked.signal_sleep(true);
  ASSERT_TRUE(happening.wait_until([&] { return sleeps == std::vector{true}; }));
  auto other = delays[0];
  delays.clear();
  EXPECT_THAT(mocked.inhibitors(), ElementsAre("sleep delay"));
  other.reset();
  EXPECT_TRUE(mocked.becomes_inhibited(false));
  mocked.signal_sleep(false);
  EXPECT_TRUE(happening.wait_until([&] { return sleeps == std::vector{true, false}; }));
  EXPECT_THAT(mocked.inhibitors(), ElementsAre("sleep delay")) << "for the next sleep";
}

TEST_F(LogindTest, TheSleepDoesNotWaitForEver) {
  MockedLogind mocked(bus);
  follow({.address = bus.address(), .session = "7", .longest_delay = std::chrono::milliseconds(20)});
  mocked.signal_sleep(true);
  ASSERT_TRUE(happening.wait_until([&] { return !delays.empty(); }));
  EXPECT_TRUE(mocked.becomes_inhibited(false)) << "though the delay is held";
  mocked.signal_sleep(false);
  EXPECT_TRUE(mocked.becomes_inhibited(true));
}

TEST_F(LogindTest, NothingIsHeldAfterwards) {
  MockedLogind mocked(bus);
  follow();
  logind.reset();
  EXPECT_TRUE(mocked.becomes_inhibited(false));
}

// ---- Absences

TEST_F(LogindTest, ALogindThatStartsAnewIsFollowedAgain) {
  MockedLogind mocked(bus);
  follow();
  mocked.ask_session("Lock");
  EXPECT_TRUE(becomes([](const SessionState& state) { return state.locked; }));
  mocked.stop();
  mocked.start();
  EXPECT_TRUE(becomes([](const SessionState& state) { return !state.locked; })) << "as the new one says";
  EXPECT_TRUE(mocked.becomes_inhibited(true));
  mocked.set("Active", false);
  EXPECT_TRUE(becomes([](const SessionState& state) { return !state.active; }));
}

TEST_F(LogindTest, ALogindThatComesLateIsHeardOf) {
  follow();
  MockedLogind mocked(bus);
  mocked.signal_new_session("7");
  EXPECT_TRUE(becomes([](const SessionState& state) { return state.logind && state.id == "7"; }));
}

TEST_F(LogindTest, ABusThatGoesAndComesBackIsConnectedAgain) {
  MockedLogind mocked(bus);
  follow();
  mocked.stop();
  bus.stop();
  bus.start();
  mocked.start();
  mocked.signal_new_session("7");
  EXPECT_TRUE(mocked.becomes_inhibited(true));
  mocked.set("LockedHint", true);
  EXPECT_TRUE(becomes([](const SessionState& state) { return state.locked; }));
  for (const SessionState& state : states) EXPECT_TRUE(state.logind) << "its last word held";
}

}  // namespace
}  // namespace sonivo::test
