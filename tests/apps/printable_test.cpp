#include "apps/tool/printable.h"

#include <gtest/gtest.h>

namespace sonivo::tool {
namespace {

TEST(Printable, LeavesTextAsItIs) {
  for (const std::string text : {"", "in.wav", "~ \\n",
                                 "Gr\xC3\xBC\xC3\x9F"
                                 "e \xE2\x82\xAC \xF0\x9F\x8E\xA4"}) {
    EXPECT_EQ(printable(text), text);
  }
}

TEST(Printable, WritesOutControlCharacters) {
  EXPECT_EQ(printable("a\nb\rc\td"), "a\\nb\\rc\\td");
  EXPECT_EQ(printable("\x1b[2J\x07\x1f\x7f"), "\\x1b[2J\\x07\\x1f\\x7f");
  EXPECT_EQ(printable(std::string("\0", 1)), "\\x00");
}

TEST(Printable, WritesOutTheControlCharactersBeyondAscii) {
  EXPECT_EQ(printable("\xC2\x80 \xC2\x9B"
                      "31m \xC2\x9F"),
            "\\xc2\\x80 \\xc2\\x9b31m \\xc2\\x9f");
  EXPECT_EQ(printable("\xC2\xA0"), "\xC2\xA0");
}

TEST(Printable, WritesOutBytesThatAreNoText) {
  EXPECT_EQ(printable("a\x9b"
                      "1mb"),
            "a\\x9b1mb");
  EXPECT_EQ(printable("\xC3"), "\\xc3");
  EXPECT_EQ(printable("\xE2\x82z"), "\\xe2\\x82z");
}

TEST(Printable, KeepsTheReplacementCharacterItself) { EXPECT_EQ(printable("\xEF\xBF\xBD"), "\xEF\xBF\xBD"); }

}  // namespace
}  // namespace sonivo::tool
