#include "base/trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace sonivo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// What arrives at a sink while this lives.
struct Sinks {
  std::vector<std::pair<TraceLevel, std::string>> traces;
  std::vector<std::string> debug_strings;
  ScopedTraceSink sink{[this](TraceLevel level, std::string_view text) { traces.emplace_back(level, text); },
                       [this](std::string_view text) { debug_strings.emplace_back(text); }};
};

TEST(Trace, GoesToTheSinkFormattedAndWithItsLevel) {
  Sinks sinks;
  trace(TraceLevel::error, "%s feedback %ld\n", "[cap]", -1L);
  trace(TraceLevel::debug, "[ren] received data from virtual speaker\n");
  EXPECT_THAT(sinks.traces, ElementsAre(Pair(TraceLevel::error, "[cap] feedback -1\n"),
                                        Pair(TraceLevel::debug, "[ren] received data from virtual speaker\n")));
  EXPECT_THAT(sinks.debug_strings, IsEmpty());
}

TEST(Trace, DebuggerTextsGoToTheirOwnSink) {
  Sinks sinks;
  output_debug_string("KeyCancel version: %u.%u\n", 0u, 4u);
  EXPECT_THAT(sinks.debug_strings, ElementsAre("KeyCancel version: 0.4\n"));
  EXPECT_THAT(sinks.traces, IsEmpty());
}

TEST(Trace, ATextOfAnyLengthArrivesWhole) {
  Sinks sinks;
  const std::string name(5000, 'x');
  trace(TraceLevel::info, "%s|\n", name.c_str());
  output_debug_string("%s|\n", name.c_str());
  EXPECT_THAT(sinks.traces, ElementsAre(Pair(TraceLevel::info, name + "|\n")));
  EXPECT_THAT(sinks.debug_strings, ElementsAre(name + "|\n"));
}

TEST(Trace, AnEmptyTextArrivesEmpty) {
  Sinks sinks;
  trace(TraceLevel::info, "%s", "");
  EXPECT_THAT(sinks.traces, ElementsAre(Pair(TraceLevel::info, "")));
}

TEST(Trace, WithoutASinkNothingIsKeptForALaterOne) {
  trace(TraceLevel::error, "lost\n");
  output_debug_string("lost\n");
  Sinks sinks;
  EXPECT_THAT(sinks.traces, IsEmpty());
  EXPECT_THAT(sinks.debug_strings, IsEmpty());
}

TEST(Trace, ASinkGetsNothingAfterItsEnd) {
  std::vector<std::string> texts;
  {
    const ScopedTraceSink sink([&](TraceLevel, std::string_view text) { texts.emplace_back(text); },
                               [&](std::string_view text) { texts.emplace_back(text); });
    trace(TraceLevel::info, "within\n");
  }
  trace(TraceLevel::info, "after\n");
  output_debug_string("after\n");
  EXPECT_THAT(texts, ElementsAre("within\n"));
}

TEST(Trace, ASinkMayLeaveOutTheDebuggerTexts) {
  std::vector<std::string> texts;
  const ScopedTraceSink sink([&](TraceLevel, std::string_view text) { texts.emplace_back(text); });
  output_debug_string("unheard\n");
  trace(TraceLevel::info, "heard\n");
  EXPECT_THAT(texts, ElementsAre("heard\n"));
}

TEST(Trace, ASinkMayBeForTheMostImportantLevelsAlone) {
  std::vector<std::string> texts;
  const auto keep = [&](TraceLevel, std::string_view text) { texts.emplace_back(text); };
  const ScopedTraceSink sink(keep, {}, TraceLevel::error);
  trace(TraceLevel::notice, "notice\n");
  trace(TraceLevel::error, "error\n");
  trace(TraceLevel::warning, "warning\n");
  trace(TraceLevel::debug, "debug\n");
  EXPECT_THAT(texts, ElementsAre("notice\n", "error\n"));
}

TEST(Trace, TextsOfSeveralThreadsArriveWholeAndEachOnce) {
  constexpr int kThreads = 4;
  constexpr int kTexts = 200;
  Sinks sinks;
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([t] {
        for (int i = 0; i < kTexts; ++i) trace(TraceLevel::info, "%d:%d\n", t, i);
      });
    }
  }
  ASSERT_EQ(sinks.traces.size(), std::size_t{kThreads * kTexts});
  std::vector<int> next(kThreads, 0);  // each thread's own texts keep their order
  for (const auto& [level, text] : sinks.traces) {
    const auto t = static_cast<std::size_t>(text[0] - '0');
    EXPECT_EQ(text, std::to_string(t) + ":" + std::to_string(next.at(t)++) + "\n");
  }
}

}  // namespace
}  // namespace sonivo
