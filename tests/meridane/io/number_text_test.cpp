#include "meridane/io/number_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "meridane/error.h"

namespace meridane {
namespace {

using testing::ThrowsMessage;

using Floats = std::numeric_limits<float>;

std::string refusal(const std::string& text) { return "Invalid number \"" + text + "\""; }

TEST(NumberText, OfAFloatReadsAsTheSameFloat) {
  std::mt19937 generator(1);
  for (int i = 0; i < 300'000; ++i) {
    const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(generator()));
    if (std::isnan(value)) continue;
    const std::string text = number_text(value);
    ASSERT_EQ(std::bit_cast<std::uint32_t>(float_of(text)), std::bit_cast<std::uint32_t>(value)) << text;
  }
  for (const float value : {0.0f, -0.0f, Floats::min(), Floats::denorm_min(), -Floats::denorm_min(), Floats::max(),
                            Floats::lowest(), Floats::infinity(), -Floats::infinity()}) {
    EXPECT_EQ(std::bit_cast<std::uint32_t>(float_of(number_text(value))), std::bit_cast<std::uint32_t>(value));
  }
  EXPECT_TRUE(std::isnan(float_of(number_text(Floats::quiet_NaN()))));
}

TEST(NumberText, IsShort) {
  EXPECT_EQ(number_text(0.1f), "0.1");
  EXPECT_EQ(number_text(-3.0f), "-3");
  EXPECT_EQ(number_text(1e-5f), "1e-05");
  EXPECT_EQ(number_text(0), "0");
  EXPECT_EQ(number_text(-2147483647 - 1), "-2147483648");
}

TEST(NumberText, TakesTheFormsOfAFloat) {
  EXPECT_EQ(float_of("1"), 1);
  EXPECT_EQ(float_of("+1.5"), 1.5f);
  EXPECT_EQ(float_of("-.5"), -0.5f);
  EXPECT_EQ(float_of("5."), 5);
  EXPECT_EQ(float_of("1E3"), 1000);
  EXPECT_EQ(float_of("1e+03"), 1000);
  EXPECT_EQ(float_of("inf"), Floats::infinity());
  EXPECT_EQ(float_of("1e-45"), Floats::denorm_min());
  EXPECT_EQ(float_of("16777217"), 16777216);  // to the nearest, ties to even
}

TEST(NumberText, RefusesWhatIsNotOneFloat) {
  for (const std::string text : {"",
                                 " ",
                                 "+",
                                 "-",
                                 ".",
                                 "e",
                                 "1 ",
                                 " 1",
                                 "1 2",
                                 "1,",
                                 "1x",
                                 "x1",
                                 "0x10",
                                 "1e",
                                 "1e+",
                                 "--1",
                                 "++1",
                                 "+-1",
                                 "-+1",
                                 "1.2.3",
                                 "one",
                                 "1f",
                                 "\xef\xbb\xbf"
                                 "1"}) {
    EXPECT_THAT([&] { float_of(text); }, ThrowsMessage<BaseRuntimeError>(refusal(text)));
  }
  EXPECT_THROW(float_of(std::string_view("1\0", 2)), BaseRuntimeError);
}

/// The smallest float is 2^-149, 1.4013e-45; half of it, a tie, is 7.00649232162408535...e-46.
TEST(NumberText, TakesWhatIsTooSmallForAFloatForTheNearest) {
  EXPECT_EQ(float_of("7.006492321624086e-46"), Floats::denorm_min());
  EXPECT_EQ(float_of("-7.1e-46"), -Floats::denorm_min());
  EXPECT_EQ(float_of("2e-45"), Floats::denorm_min());
  for (const std::string text : {"7.006492321624085e-46", "1e-60", "+1e-60", "1E-60", "1e-400",
                                 "1e-99999999999999999999", "123456e-99", "1000.5e-400", ".5e-400", "0.00e-400"}) {
    EXPECT_EQ(std::bit_cast<std::uint32_t>(float_of(text)), 0u) << text;
    if (text.front() == '+') continue;
    EXPECT_EQ(std::bit_cast<std::uint32_t>(float_of("-" + text)), 0x80000000u) << text;
  }
  const std::string zeros(400, '0');
  EXPECT_EQ(float_of("0." + zeros + "1"), 0);
  EXPECT_EQ(float_of("0." + zeros + "1e50"), 0);
  EXPECT_EQ(float_of("0." + zeros + "1e401"), 1);
  EXPECT_EQ(float_of("1" + zeros + "e-500"), 0);
}

TEST(NumberText, RefusesFloatsOutOfRange) {
  const std::string zeros(400, '0');
  for (const std::string& text :
       {std::string("1e39"), std::string("-1e39"), std::string("1e400"), std::string("1e99999999999"),
        std::string("1e+99999999999999999999"), std::string("0.001e99999999999999999999"), "1" + zeros,
        "1" + zeros + "e-50", "0." + zeros + "1e800"}) {
    EXPECT_THAT([&] { float_of(text); }, ThrowsMessage<BaseRuntimeError>(refusal(text)));
  }
}

TEST(NumberText, OfAnIntReadsAsTheSameInt) {
  using Ints = std::numeric_limits<int>;
  for (const int value : {0, 1, -1, 255, Ints::max(), Ints::min()}) EXPECT_EQ(int_of(number_text(value)), value);
  EXPECT_EQ(int_of("+7"), 7);
  EXPECT_EQ(int_of("007"), 7);
}

TEST(NumberText, RefusesWhatIsNotOneInt) {
  for (const std::string text :
       {"", "-", "1.0", "1e3", "2147483648", "-2147483649", "99999999999999999999", " 1", "1 ", "0x1", "+-1", "one"}) {
    EXPECT_THAT([&] { int_of(text); }, ThrowsMessage<BaseRuntimeError>(refusal(text)));
  }
}

TEST(NumberText, TakesSizesOf64Bits) {
  EXPECT_EQ(size_of("0"), 0);
  EXPECT_EQ(size_of("18446744073709551615"), std::numeric_limits<std::uint64_t>::max());
  for (const std::string text : {"", "-1", "-0", "18446744073709551616", "1.0", "one"}) {
    EXPECT_THAT([&] { size_of(text); }, ThrowsMessage<BaseRuntimeError>(refusal(text)));
  }
}

}  // namespace
}  // namespace meridane
