#include "classic/par_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "test_files.h"

namespace sonivo::classic {
namespace {

class ParFileTest : public testing::Test {
 protected:
  void write(const std::string& text) { write_file(path(), text); }
  std::string path() const { return folder_ / "tuning.par"; }
  std::string messages() const { return messages_.str(); }

  const TemporaryFolder folder_;
  std::ostringstream messages_;
  ParFile file_{path(), messages_};
};

TEST_F(ParFileTest, FindsKeysInAnyOrder) {
  write("b = 2\na = 1.5\n");
  EXPECT_EQ(file_.number("a"), 1.5);
  EXPECT_EQ(file_.number("b"), 2.0);
  EXPECT_EQ(messages(), "");
}

TEST_F(ParFileTest, TakesTheFirstOfTwoLines) {
  write("a = 1\na = 2\n");
  EXPECT_EQ(file_.number("a"), 1.0);
}

TEST_F(ParFileTest, PassesOverAKeyThatBeginsWithTheWantedOne) {
  write("delay_frame = 1\ndelay = 2\n");
  EXPECT_EQ(file_.number("delay"), 2.0);
}

TEST_F(ParFileTest, StopsAtTheFirstLineOfAKeyEvenWhenItIsMalformed) {
  write("a = none\na = 2\n");
  EXPECT_EQ(file_.number("a"), std::nullopt);
  EXPECT_EQ(messages(), "a = none is bad format\n");
}

TEST_F(ParFileTest, NamesAMissingKey) {
  write("a 1\n");
  EXPECT_EQ(file_.number("a"), std::nullopt);
  EXPECT_EQ(messages(), "a is not include par file\n");
}

TEST_F(ParFileTest, NamesItselfWhenItCannotBeOpened) {
  EXPECT_EQ(file_.number("a"), std::nullopt);
  EXPECT_EQ(file_.token("b"), std::nullopt);
  const std::string line = "can not open par file " + path() + "\n";
  EXPECT_EQ(messages(), line + line);
}

TEST_F(ParFileTest, IsNoFolder) {
  ParFile folder(folder_ / "", messages_);
  EXPECT_EQ(folder.number("a"), std::nullopt);
  EXPECT_EQ(messages(), "can not open par file " + (folder_ / "") + "\n");
}

TEST_F(ParFileTest, IsReadAnewForEachKey) {
  write("a = 1\n");
  EXPECT_EQ(file_.number("a"), 1.0);
  write("a = 2\n");
  EXPECT_EQ(file_.number("a"), 2.0);
}

TEST_F(ParFileTest, ReadsTheLastLineWithoutLineFeedAndLinesOfOtherSystems) {
  write("a = 1\r\nname = x.bin\r\nb = 2");
  EXPECT_EQ(file_.number("a"), 1.0);
  EXPECT_EQ(file_.token("name"), "x.bin");
  EXPECT_EQ(file_.number("b"), 2.0);
}

TEST_F(ParFileTest, TakesTheRestOfALongLineAsALine) {
  write(std::string(255, '#') + "a = 1\n" + std::string(254, '#') + "b = 2\n");
  EXPECT_EQ(file_.number("a"), 1.0);
  EXPECT_EQ(file_.number("b"), std::nullopt);
}

TEST_F(ParFileTest, ReadsNumbersAsFarAsTheyGo) {
  write("sign = -+3\nminus = -.5\ntwice = 1-2\ndots = 1.2.3\nnone = --\n");
  EXPECT_EQ(file_.number("sign"), 0.0);
  EXPECT_EQ(file_.number("minus"), -0.5);
  EXPECT_EQ(file_.number("twice"), 1.0);
  EXPECT_EQ(file_.number("dots"), 1.2);
  EXPECT_EQ(file_.number("none"), 0.0);
}

TEST_F(ParFileTest, NamesTheKeyOfAMalformedQuotedText) {
  write("title = plain\nother = \"one\" # two\n");
  EXPECT_EQ(file_.quoted("title"), std::nullopt);
  EXPECT_EQ(messages(), "title is bad format\n");
  EXPECT_EQ(file_.quoted("other"), "one");
}

TEST_F(ParFileTest, NamesTheLineOfAMissingToken) {
  write("name =  \n");
  EXPECT_EQ(file_.token("name"), std::nullopt);
  EXPECT_EQ(messages(), "name =   is bad format\n");
}

TEST_F(ParFileTest, PutsTheHomeFolderBeforeAPath) {
  write("home = ~/tuning\nother = /a~b\n");
  const std::string home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
  ::setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(file_.path("home"), "/home/someone/tuning");
  EXPECT_EQ(file_.path("other"), "/a~b");
  EXPECT_EQ(messages(), "");
  ::unsetenv("HOME");
  EXPECT_EQ(file_.path("home"), std::nullopt);
  EXPECT_EQ(messages(), "environment HOME is NULL\n");
  ::setenv("HOME", home.c_str(), 1);
}

TEST_F(ParFileTest, KeepsTheLineFeedOfARawValueAlone) {
  write("note = keep, this \nempty=\nname = x.bin\nlast=end");
  EXPECT_EQ(file_.raw("note"), " keep, this \n");
  EXPECT_EQ(file_.raw("empty"), "\n");
  EXPECT_EQ(file_.raw("last"), "end");
  EXPECT_EQ(file_.path("name"), "x.bin");
  EXPECT_EQ(file_.token("name"), "x.bin");
}

TEST_F(ParFileTest, HasNoRawValueWhenTheFirstLineOfTheKeyHasNoEquals) {
  write("note 1\nnote=2\n");
  EXPECT_EQ(file_.raw("note"), std::nullopt);
  EXPECT_EQ(messages(), "");
}

TEST_F(ParFileTest, HasNoMessageForAMissingRawValue) {
  write("note = a\n");
  EXPECT_EQ(file_.raw("other"), std::nullopt);
  EXPECT_EQ(messages(), "");
}

TEST_F(ParFileTest, ReadsAReferencedFileFromItsOwnFolder) {
  write("flt = taps.bin\n");
  write_file(folder_ / "taps.bin", std::string(3071, 'x') + "y" + "more");
  const auto bytes = file_.referenced("flt");
  ASSERT_TRUE(bytes.has_value());
  ASSERT_EQ(bytes->size(), 3072u);
  EXPECT_EQ(bytes->front(), std::byte{'x'});
  EXPECT_EQ(bytes->back(), std::byte{'y'});
  EXPECT_EQ(messages(), "");
}

TEST_F(ParFileTest, NamesKeyAndPathOfAMissingReferencedFile) {
  write("flt = taps.bin\n");
  EXPECT_EQ(file_.referenced("flt"), std::nullopt);
  EXPECT_EQ(messages(), "flt is bad value\ncan not open " + (folder_ / "taps.bin") + "\n");
}

TEST_F(ParFileTest, NamesKeyAndPathOfAShortReferencedFile) {
  write("flt = taps.bin\n");
  write_file(folder_ / "taps.bin", std::string(3071, 'x'));
  EXPECT_EQ(file_.referenced("flt"), std::nullopt);
  EXPECT_EQ(messages(), "flt is bad value\ncan not read " + (folder_ / "taps.bin") + "\n");
}

TEST_F(ParFileTest, NamesOnlyTheKeyOfAMissingReference) {
  write("\n");
  EXPECT_EQ(file_.referenced("flt"), std::nullopt);
  EXPECT_EQ(messages(), "flt is not include par file\n");
}

TEST(ParFileMessages, GoToStandardOutput) {
  testing::internal::CaptureStdout();
  ParFile file("/nowhere/tuning.par");
  EXPECT_EQ(file.number("a"), std::nullopt);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "can not open par file /nowhere/tuning.par\n");
}

}  // namespace
}  // namespace sonivo::classic
