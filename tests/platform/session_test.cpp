#include "platform/sim/session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "desktop_bench.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SessionTest : public DesktopBench {
 protected:
  SimSession& session = machine.session();
};

TEST_F(SessionTest, LockAndUnlockArePostedToTheWindowThatAsked) {
  const WindowHandle handle = window();
  window("other");
  const auto registration = session.notify(handle);
  ASSERT_NE(registration, nullptr);
  session.lock();
  session.unlock();
  EXPECT_THAT(seen, IsEmpty()) << "they are queued";
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmSessionChange, kSessionLock, 1},
                                  Message{handle, kWmSessionChange, kSessionUnlock, 1}));
}

TEST_F(SessionTest, TheConsoleIsToldWhenItComesAndGoesAndOfNoOtherSession) {
  session.set_process_session(3);
  session.set_console_session(3);
  const WindowHandle handle = window();
  const auto registration = session.notify(handle);
  session.set_console_session(2);
  session.set_console_session(5);
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmSessionChange, kSessionConsoleDisconnect, 3}));
  session.set_console_session(3);
  session.set_console_session(3);
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmSessionChange, kSessionConsoleConnect, 3}));
}

TEST_F(SessionTest, NothingIsToldAfterTheRegistrationEnds) {
  auto registration = session.notify(window());
  EXPECT_EQ(machine.leaks().session_registrations, 1u);
  registration.reset();
  EXPECT_EQ(machine.leaks().session_registrations, 0u);
  EXPECT_EQ(script.count(Step::session_unregister), 1u);
  session.lock();
  EXPECT_THAT(pump(), IsEmpty());
}

TEST_F(SessionTest, AWindowThatIsGoneIsToldNothing) {
  const WindowHandle handle = window();
  const auto registration = session.notify(handle);
  windows.destroy(handle);
  session.lock();
  EXPECT_THAT(pump(), IsEmpty());
  EXPECT_EQ(session.notify(handle), nullptr);
}

// ---- End of the session

TEST_F(SessionTest, AllWindowsAreAskedAndThenTold) {
  const WindowHandle lower = window("lower");
  const WindowHandle upper = window("upper");
  foreground.add_foreign("other", {});
  session.query_end();
  EXPECT_EQ(session.end_agreed(), std::nullopt);
  EXPECT_THAT(pump(), ElementsAre(Message{upper, kWmQueryEndSession, 0, 0}, Message{lower, kWmQueryEndSession, 0, 0},
                                  Message{upper, kWmEndSession, 1, 0}, Message{lower, kWmEndSession, 1, 0}));
  EXPECT_EQ(session.end_agreed(), true);
}

TEST_F(SessionTest, OneRefusalKeepsTheSession) {
  window();
  windows.create("refuses", {}, [this](const Message& message) {
    seen.push_back(message);
    return 0;
  });
  session.query_end();
  const auto messages = pump();
  EXPECT_EQ(session.end_agreed(), false);
  ASSERT_EQ(messages.size(), 4u);
  EXPECT_EQ(messages.back().message, kWmEndSession);
  EXPECT_EQ(messages.back().wParam, 0u);
}

TEST_F(SessionTest, ARefusalHoldsForOneQueryOnly) {
  const WindowHandle refuses = windows.create("refuses", {}, [](const Message&) { return 0; });
  window();
  session.query_end();
  pump();
  windows.destroy(refuses);
  session.query_end();
  EXPECT_EQ(session.end_agreed(), std::nullopt);
  pump();
  EXPECT_EQ(session.end_agreed(), true);
}

TEST_F(SessionTest, AProcedureThatQuitsStillHearsOfTheEndBeforeTheLoopEnds) {
  windows.create("quits", {}, [this](const Message& message) {
    seen.push_back(message);
    if (message.message == kWmQueryEndSession) desktop.post_quit_message(0);
    return 1;
  });
  machine.after(10, [&] { session.query_end(); });
  Message message;
  EXPECT_EQ(desktop.get_message(message), Got::quit);
  EXPECT_EQ(seen.size(), 2u);
  EXPECT_EQ(session.end_agreed(), true);
}

TEST_F(SessionTest, AWindowThatGoesInsteadOfAnsweringAgrees) {
  const WindowHandle goes = window("goes");
  window("stays");
  session.query_end();
  windows.destroy(goes);
  pump();
  EXPECT_EQ(session.end_agreed(), true);
}

// ---- Scripts

TEST_F(SessionTest, EveryOperationFailsAsScripted) {
  const WindowHandle handle = window();
  std::uint32_t own = 0;
  script.fail(Step::process_session, 1);
  EXPECT_FALSE(session.process_session(own));
  script.fail(Step::console_session, 1);
  EXPECT_EQ(session.console_session(), kNoSession);
  EXPECT_EQ(session.console_session(), 1u);
  script.fail(Step::session_register, 1);
  EXPECT_EQ(session.notify(handle), nullptr);
  EXPECT_EQ(machine.leaks().session_registrations, 0u);
}

}  // namespace
}  // namespace sonivo::sim
