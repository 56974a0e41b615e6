#include "base/text.h"

#include <gtest/gtest.h>

#include <string>

namespace sonivo {
namespace {

const std::string kBad8 = "\xEF\xBF\xBD";  // U+FFFD
const std::u16string kBad16 = u"\uFFFD";

TEST(ToUtf16, MapsEachWidthOfSequence) {
  EXPECT_EQ(to_utf16("A"), u"A");
  EXPECT_EQ(to_utf16("\xC3\xBC"), u"\u00FC");
  EXPECT_EQ(to_utf16("外付け"), u"\u5916\u4ED8\u3051");
  EXPECT_EQ(to_utf16("\xF0\x9F\x8E\xA4"), u"\xD83C\xDFA4");
}

TEST(ToUtf16, MapsTheLastAndFirstCodePointOfEachWidth) {
  EXPECT_EQ(to_utf16("\x7F"), u"\x7F");
  EXPECT_EQ(to_utf16("\xC2\x80"), u"\x80");
  EXPECT_EQ(to_utf16("\xDF\xBF"), u"\x7FF");
  EXPECT_EQ(to_utf16("\xE0\xA0\x80"), u"\x800");
  EXPECT_EQ(to_utf16("\xED\x9F\xBF"), u"\xD7FF");
  EXPECT_EQ(to_utf16("\xEE\x80\x80"), u"\xE000");
  EXPECT_EQ(to_utf16("\xEF\xBF\xBF"), u"\xFFFF");
  EXPECT_EQ(to_utf16("\xF0\x90\x80\x80"), u"\xD800\xDC00");
  EXPECT_EQ(to_utf16("\xF4\x8F\xBF\xBF"), u"\xDBFF\xDFFF");
}

TEST(ToUtf16, KeepsAZeroByteInTheMiddle) {
  EXPECT_EQ(to_utf16(std::string_view("a\0b", 3)), std::u16string(u"a\0b", 3));
}

TEST(ToUtf16, AnEmptyTextStaysEmpty) { EXPECT_EQ(to_utf16(""), u""); }

TEST(ToUtf16, AByteThatStartsNoSequenceIsReplaced) {
  EXPECT_EQ(to_utf16("a\x80z"), u"a\uFFFDz");
  EXPECT_EQ(to_utf16("a\xF5z"), u"a\uFFFDz");
  EXPECT_EQ(to_utf16("a\xFFz"), u"a\uFFFDz");
}

TEST(ToUtf16, EachByteOfACutSequenceIsReplacedByItself) {
  EXPECT_EQ(to_utf16("\xC3"), kBad16);
  EXPECT_EQ(to_utf16("\xE3\x81"), kBad16 + kBad16);
  EXPECT_EQ(to_utf16("\xF0\x9F\x8E"), kBad16 + kBad16 + kBad16);
}

TEST(ToUtf16, AnInterruptedSequenceLeavesTheInterruptingTextWhole) {
  EXPECT_EQ(to_utf16("\xE3\x81z"), kBad16 + kBad16 + u"z");
  EXPECT_EQ(to_utf16("\xC3\xC3\xBC"), kBad16 + u"\u00FC");
}

TEST(ToUtf16, OverlongSequencesAreRefused) {
  EXPECT_EQ(to_utf16("\xC0\x80"), kBad16 + kBad16);
  EXPECT_EQ(to_utf16("\xC1\xBF"), kBad16 + kBad16);
  EXPECT_EQ(to_utf16("\xE0\x9F\xBF"), kBad16 + kBad16 + kBad16);
  EXPECT_EQ(to_utf16("\xF0\x8F\xBF\xBF"), kBad16 + kBad16 + kBad16 + kBad16);
}

TEST(ToUtf16, SurrogatesAndCodePointsBeyondTheLastAreRefused) {
  EXPECT_EQ(to_utf16("\xED\xA0\x80"), kBad16 + kBad16 + kBad16);
  EXPECT_EQ(to_utf16("\xED\xBF\xBF"), kBad16 + kBad16 + kBad16);
  EXPECT_EQ(to_utf16("\xF4\x90\x80\x80"), kBad16 + kBad16 + kBad16 + kBad16);
}

TEST(ToUtf8, AnUnpairedSurrogateIsReplaced) {
  EXPECT_EQ(to_utf8(u"a\xD83Cz"), "a" + kBad8 + "z");
  EXPECT_EQ(to_utf8(u"a\xDFA4z"), "a" + kBad8 + "z");
  EXPECT_EQ(to_utf8(u"a\xD83C"), "a" + kBad8);
}

TEST(ToUtf8, SurrogatesInTheWrongOrderAreReplacedOneByOne) { EXPECT_EQ(to_utf8(u"\xDFA4\xD83C"), kBad8 + kBad8); }

TEST(ToUtf8, AHighSurrogateBeforeAPairIsReplacedAndThePairKept) {
  EXPECT_EQ(to_utf8(u"\xD83C\xD83C\xDFA4"), kBad8 + "\xF0\x9F\x8E\xA4");
}

TEST(ToUtf8, AnEmptyTextStaysEmpty) { EXPECT_EQ(to_utf8(u""), ""); }

TEST(Utf, EveryCodePointComesBackFromUtf16) {
  for (char32_t c = 0; c <= 0x10FFFF; c += c < 0x1000 ? 1 : 97) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    std::u16string wide;
    if (c < 0x10000) {
      wide.push_back(static_cast<char16_t>(c));
    } else {
      wide.push_back(static_cast<char16_t>(0xD800 + (c - 0x10000) / 0x400));
      wide.push_back(static_cast<char16_t>(0xDC00 + (c - 0x10000) % 0x400));
    }
    ASSERT_EQ(to_utf16(to_utf8(wide)), wide) << std::hex << static_cast<std::uint32_t>(c);
  }
}

TEST(ToLowerAscii, LowersOnlyTheAsciiLetters) {
  EXPECT_EQ(to_lower_ascii("\\\\?\\ROOT#Media@[`{AZaz09"), "\\\\?\\root#media@[`{azaz09");
}

TEST(ToLowerAscii, LeavesOtherScriptsAsTheyAre) { EXPECT_EQ(to_lower_ascii("ÄÖ デジタルX"), "ÄÖ デジタルx"); }

TEST(EqualsIgnoringCase, IgnoresTheCaseOfAsciiLettersOnly) {
  EXPECT_TRUE(equals_ignoring_case("{0.0.1.ABC}", "{0.0.1.abc}"));
  EXPECT_FALSE(equals_ignoring_case("Ä", "ä"));
  EXPECT_FALSE(equals_ignoring_case("@", "`"));  // 0x40 and 0x60: no letters
}

TEST(EqualsIgnoringCase, APrefixIsNotEqual) {
  EXPECT_FALSE(equals_ignoring_case("abc", "abcd"));
  EXPECT_FALSE(equals_ignoring_case("abcd", "abc"));
  EXPECT_FALSE(equals_ignoring_case("", "a"));
  EXPECT_TRUE(equals_ignoring_case("", ""));
}

TEST(Contains, MindsTheCase) {
  EXPECT_TRUE(contains("Speakers (Norvell Audio Relay)", "Norvell Audio Relay"));
  EXPECT_FALSE(contains("Speakers (norvell audio relay)", "Norvell Audio Relay"));
}

TEST(Contains, AnyTextContainsTheEmptyOne) {
  EXPECT_TRUE(contains("x", ""));
  EXPECT_TRUE(contains("", ""));
  EXPECT_FALSE(contains("", "x"));
}

}  // namespace
}  // namespace sonivo
