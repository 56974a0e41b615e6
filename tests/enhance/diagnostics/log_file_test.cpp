#include "enhance/log_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "enhance/log.h"
#include "files.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

void log_a_line_of_each_level() {
  log_text(LogLevel::info0, "a %d\n", 0);
  log_text(LogLevel::error, "b\n");
  log_text(LogLevel::warning, "c\n");
  log_text(LogLevel::info1, "d\n");
  log_text(LogLevel::info2, "e\n");
  log_text(LogLevel::info3, "f\n");
  log_text(LogLevel::debug, "g\n");
}

/// What each line holds behind its time.
std::string texts(const std::string& log) {
  const std::string time = "[0000/00/00 00:00:00.000] ";
  std::istringstream lines(log);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    if (shape_of(line.substr(0, time.size())) != time) return "no time: " + line;
    result += line.substr(time.size()) + "|";
  }
  return result;
}

class LogFile : public ::testing::Test {
 protected:
  /// The log of a line of each level; nothing when no file was made.
  std::string log_at(const char* level) {
    const ScopedVariable number("AI_SPEECH_ENHANCE_LOG_LEVEL", level);
    const ScopedVariable folder("AI_SPEECH_ENHANCE_LOG_DIR", folder_.path().c_str());
    log_open();
    log_a_line_of_each_level();
    log_close();
    const auto files = files_in(folder_.path());
    return files.empty() ? "no file" : content_of(files.front());
  }

  TemporaryFolder folder_;
};

TEST_F(LogFile, HoldsAllLevelsUpToItsOwn) {
  EXPECT_EQ(texts(log_at("4000")), "[INFO0] a 0|[ERROR] b|[WARN ] c|[INFO1] d|[INFO2] e|[INFO3] f|[DEBUG] g|");
}

TEST_F(LogFile, Of999HasTheLifeCycleAlone) { EXPECT_EQ(texts(log_at("999")), "[INFO0] a 0|"); }

TEST_F(LogFile, Of2000EndsWithWarnings) { EXPECT_EQ(texts(log_at("2000")), "[INFO0] a 0|[ERROR] b|[WARN ] c|"); }

TEST_F(LogFile, OfALevelBelowAllIsAnEmptyFile) { EXPECT_EQ(log_at("998"), ""); }

TEST_F(LogFile, OfANegativeLevelIsAnEmptyFile) {
  EXPECT_EQ(log_at("-1"), "");
  EXPECT_EQ(log_at("-4000"), "");
}

TEST_F(LogFile, IsNotMadeWithoutALevel) { EXPECT_EQ(log_at(nullptr), "no file"); }

TEST_F(LogFile, IsNotMadeAtLevel0) { EXPECT_EQ(log_at("0"), "no file"); }

TEST_F(LogFile, IsNotMadeForAWord) { EXPECT_EQ(log_at("all"), "no file"); }

TEST_F(LogFile, IsNamedAfterTheLocalTime) {
  log_at("999");
  const auto files = files_in(folder_.path());
  ASSERT_THAT(files, SizeIs(1));
  EXPECT_EQ(shape_of(files[0].filename()), "AISpeechEnhance_00000000_000000.log");
}

TEST_F(LogFile, LiesInTheCurrentFolderWithoutAnother) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  const ScopedVariable number("AI_SPEECH_ENHANCE_LOG_LEVEL", "999");
  const ScopedVariable folder("AI_SPEECH_ENHANCE_LOG_DIR", nullptr);
  log_open();
  log_close();
  std::filesystem::current_path(before);
  EXPECT_THAT(files_in(folder_.path()), SizeIs(1));
}

TEST_F(LogFile, StaysOffWhereNoFileCanBeMade) {
  const ScopedVariable number("AI_SPEECH_ENHANCE_LOG_LEVEL", "4000");
  const ScopedVariable folder("AI_SPEECH_ENHANCE_LOG_DIR", (folder_.path() / "none").c_str());
  log_open();
  log_a_line_of_each_level();
  log_close();
  EXPECT_THAT(files_in(folder_.path()), IsEmpty());
}

TEST_F(LogFile, CutsAMessageAt511Characters) {
  const ScopedVariable number("AI_SPEECH_ENHANCE_LOG_LEVEL", "1000");
  const ScopedVariable folder("AI_SPEECH_ENHANCE_LOG_DIR", folder_.path().c_str());
  log_open();
  log_text(LogLevel::error, "%s", std::string(600, 'x').c_str());
  log_close();
  EXPECT_EQ(texts(content_of(files_in(folder_.path()).front())), "[ERROR] " + std::string(511, 'x') + "|");
}

TEST_F(LogFile, IsWrittenNoMoreOnceItIsClosed) {
  log_at("4000");
  log_a_line_of_each_level();
  const auto files = files_in(folder_.path());
  ASSERT_THAT(files, SizeIs(1));
  EXPECT_EQ(texts(content_of(files[0])), "[INFO0] a 0|[ERROR] b|[WARN ] c|[INFO1] d|[INFO2] e|[INFO3] f|[DEBUG] g|");
}

TEST_F(LogFile, LeavesAnotherHookAloneWhereNoneIsAskedFor) {
  static int messages;
  messages = 0;
  set_log_hook([](LogLevel, const char*) { ++messages; });
  EXPECT_EQ(log_at(nullptr), "no file");
  EXPECT_EQ(messages, 7);
  set_log_hook(nullptr);
}

TEST_F(LogFile, IsWrittenLineByLine) {
  const ScopedVariable number("AI_SPEECH_ENHANCE_LOG_LEVEL", "1000");
  const ScopedVariable folder("AI_SPEECH_ENHANCE_LOG_DIR", folder_.path().c_str());
  log_open();
  log_text(LogLevel::error, "one\n");
  EXPECT_EQ(texts(content_of(files_in(folder_.path()).front())), "[ERROR] one|");
  log_close();
}

}  // namespace
}  // namespace sonivo::test
