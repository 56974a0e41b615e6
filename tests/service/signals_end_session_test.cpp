#include "apps/service/signals_end_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <semaphore>
#include <thread>

namespace sonivo::test {
namespace {

using namespace std::chrono_literals;
using testing::Eq;
using testing::ExitedWithCode;

constexpr auto kNever = 10s;
constexpr const char* kSentence = "error: the session's threads have not ended within 0.2 s; ending without them\n";

/// What the process does whose end is looked at.
[[noreturn]] void never_end(int signal) {
  block_end_signals();
  const SignalsEndSession signals([] {}, 200ms);
  ::kill(::getpid(), signal);
  std::this_thread::sleep_for(kNever);
  std::_Exit(3);
}
[[noreturn]] void never_end_and_be_told_again_and_again() {
  block_end_signals();
  const SignalsEndSession signals([] {}, 200ms);
  for (const auto end = std::chrono::steady_clock::now() + kNever; std::chrono::steady_clock::now() < end;) {
    ::kill(::getpid(), SIGTERM);
    std::this_thread::sleep_for(20ms);
  }
  std::_Exit(3);
}
/// Ends its session once that was told so often.
[[noreturn]] void end_when_told(int times, int signal) {
  block_end_signals();
  {
    std::counting_semaphore<> told{0};
    const SignalsEndSession signals([&] { told.release(); }, kNever);
    for (int i = 0; i < times; ++i) {
      ::kill(::getpid(), signal);
      told.acquire();
    }
  }
  std::_Exit(0);
}

class SignalsEndSessionDeathTest : public testing::Test {
 protected:
  SignalsEndSessionDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(SignalsEndSessionDeathTest, ASessionThatDoesNotEndIsLeftWithASentence) {
  EXPECT_EXIT(never_end(SIGTERM), ExitedWithCode(1), Eq(kSentence));
  EXPECT_EXIT(never_end(SIGINT), ExitedWithCode(1), Eq(kSentence));
}

TEST_F(SignalsEndSessionDeathTest, FurtherSignalsDoNotPutThatOff) {
  EXPECT_EXIT(never_end_and_be_told_again_and_again(), ExitedWithCode(1), Eq(kSentence));
}

TEST_F(SignalsEndSessionDeathTest, ASessionThatEndsEndsAsItDoes) {
  EXPECT_EXIT(end_when_told(0, SIGTERM), ExitedWithCode(0), Eq(""));
  EXPECT_EXIT(end_when_told(1, SIGTERM), ExitedWithCode(0), Eq(""));
  EXPECT_EXIT(end_when_told(1, SIGINT), ExitedWithCode(0), Eq(""));
}

TEST_F(SignalsEndSessionDeathTest, ASecondSignalTellsTheSessionAgain) {
  EXPECT_EXIT(end_when_told(2, SIGTERM), ExitedWithCode(0), Eq(""));
}

}  // namespace
}  // namespace sonivo::test
