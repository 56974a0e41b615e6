#include "classic/par_line.h"

#include <gtest/gtest.h>

#include <string>

#include "classic/par_source.h"

namespace sonivo::classic {
namespace {

using Reader = LineValue (*)(std::string_view, std::string_view);

void expect_value(Reader reader, std::string_view line, std::string_view value) {
  const LineValue read = reader(line, "key");
  EXPECT_EQ(read.match, LineMatch::found) << line;
  EXPECT_EQ(read.text, value) << line;
}

void expect_no_value(Reader reader, std::string_view line, LineMatch match) {
  const LineValue read = reader(line, "key");
  EXPECT_EQ(read.match, match) << line;
  EXPECT_EQ(read.text, "") << line;
}

TEST(ParLineNumber, StandsBehindKeyAndEquals) {
  for (const std::string_view line : {"key=12", "key = 12", "key\t=\t12", "key, ,= 12", "key =\"12\"", "key = = 12"}) {
    expect_value(number_of, line, "12");
  }
}

TEST(ParLineNumber, EndsWhereOtherCharactersBegin) {
  expect_value(number_of, "key = -3.5dB", "-3.5");
  expect_value(number_of, "key = 7 milliseconds, 9", "7");
  expect_value(number_of, "key = 1e5", "1");
  expect_value(number_of, "key = 0x10", "0");
  expect_value(number_of, "key = 1-2+.3", "1-2+.3");
}

TEST(ParLineNumber, SkipsWhatStandsBeforeIt) {
  expect_value(number_of, "key = about +.25", "+.25");
  expect_value(number_of, "key = -", "-");
}

TEST(ParLineNumber, IsMissingWhereTheLineEnds) {
  for (const std::string_view line : {"key =", "key=", "key = abc", "key ", "key\t, "}) {
    expect_no_value(number_of, line, LineMatch::bad);
  }
}

TEST(ParLineNumber, OfOtherLinesIsNoMatch) {
  for (const std::string_view line : {"", "key", "ke = 1", " key = 1", "#key = 1", "keys = 1", "key_frame = 1",
                                      "key[0] = 1", "key: = 1", "key 12", "key , 12", "Key = 1", "\tkey = 1"}) {
    expect_no_value(number_of, line, LineMatch::none);
  }
}

TEST(ParLineToken, EndsAtBlanksTabsAndCommas) {
  for (const std::string_view line :
       {"key = a/b.bin", "key=a/b.bin", "key = , a/b.bin, more", "key =\ta/b.bin\tmore", "key = a/b.bin # more"}) {
    expect_value(token_of, line, "a/b.bin");
  }
  expect_value(token_of, "key = \"x\"", "\"x\"");
}

TEST(ParLineToken, IsMissingWhereNothingStands) {
  for (const std::string_view line : {"key =", "key = ", "key = \t,,", "key "}) {
    expect_no_value(token_of, line, LineMatch::bad);
  }
  expect_no_value(token_of, "keys = a", LineMatch::none);
}

TEST(ParLineQuoted, RunsToTheNextQuote) {
  expect_value(quoted_of, "key = \"two words, and more\"", "two words, and more");
  expect_value(quoted_of, "key\t=\t\"x\" \t# what it is", "x");
  expect_value(quoted_of, "key=\"\"", "");
  expect_value(quoted_of, "key=\"x\"#", "x");
}

TEST(ParLineQuoted, RefusesWhatStandsAround) {
  for (const std::string_view line :
       {"key = x", "key = ,\"x\"", "key = \"x", "key = \"x\" y", "key = \"x\",", "key = a\"x\"", "key =", "key "}) {
    expect_no_value(quoted_of, line, LineMatch::bad);
  }
}

TEST(ParLineQuoted, HasNoCommaBehindItsKey) {
  expect_no_value(quoted_of, "key, = \"x\"", LineMatch::none);
  expect_no_value(quoted_of, "key , = \"x\"", LineMatch::none);
}

TEST(ParLineRaw, IsEverythingBehindTheFirstEquals) {
  expect_value(raw_of, "key =  a = b, \"c\" # d ", "  a = b, \"c\" # d ");
  expect_value(raw_of, "key=", "");
  expect_value(raw_of, "key= a \r\n", " a \r\n");
  expect_value(raw_of, "keys and more=1", "1");
  expect_no_value(raw_of, "key 1", LineMatch::bad);
  expect_no_value(raw_of, " key=1", LineMatch::none);
}

TEST(ParKeys, TakeTheirIndexFromTheName) {
  EXPECT_EQ(indexed("g_floor[%d]", 0), "g_floor[0]");
  EXPECT_EQ(indexed("g_floor[%d]", 59), "g_floor[59]");
  EXPECT_EQ(indexed("npm_band[%d][%%d]", 1), "npm_band[1][%d]");
  EXPECT_EQ(indexed(indexed("npm_band[%d][%%d]", 1), 2), "npm_band[1][2]");
  EXPECT_EQ(indexed("fd_fbf_ain_flt[%d][%d]", 1, 0), "fd_fbf_ain_flt[1][0]");
  EXPECT_EQ(indexed("nbin", 3), "nbin");
}

}  // namespace
}  // namespace sonivo::classic
