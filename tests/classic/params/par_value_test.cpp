#include "classic/par_value.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <sstream>
#include <vector>

namespace sonivo::classic {
namespace {

constexpr double kHopSamples = 192;

/// Numbers by key, with messages that can be looked at.
class Numbers final : public ParSource {
 public:
  explicit Numbers(std::map<std::string, double> numbers) : ParSource(text_), numbers_(std::move(numbers)) {}

  std::optional<double> number(const std::string& key) override {
    asked_.push_back(key);
    const auto entry = numbers_.find(key);
    return entry == numbers_.end() ? std::nullopt : std::optional(entry->second);
  }

  std::string text() const { return text_.str(); }
  const std::vector<std::string>& asked() const { return asked_; }

 private:
  std::ostringstream text_;
  std::map<std::string, double> numbers_;
  std::vector<std::string> asked_;
};

template <typename T>
T read(double number, const Conversion& conversion, const std::string& message = "") {
  Numbers numbers({{"key", number}});
  T value{};
  EXPECT_EQ(ReadValue(numbers, "key", conversion, value), 0);
  EXPECT_EQ(numbers.text(), message);
  return value;
}

Conversion with_hop(Unit unit) { return {.unit = unit, .hop = kHopSamples}; }

Conversion fixed(int bits, Unit unit = Unit::real) {
  return {.unit = unit, .storage = Storage::fixed_point, .fraction_bits = bits};
}

TEST(ParConversion, CountsLoseTheirFraction) {
  EXPECT_EQ(read<std::uint16_t>(3.7, {.unit = Unit::count}), 3);
  EXPECT_EQ(read<std::int16_t>(-3.7, {.unit = Unit::count}), -3);
  EXPECT_EQ(read<std::int32_t>(70000, {.unit = Unit::count}), 70000);
}

TEST(ParConversion, CountsBeyondAFieldKeepTheirLowBits) {
  EXPECT_EQ(read<std::uint16_t>(-1, {.unit = Unit::count}), 65535);
  EXPECT_EQ(read<std::uint16_t>(65537, {.unit = Unit::count}), 1);
  EXPECT_EQ(read<std::int32_t>(1e30, {.unit = Unit::count}), 2147483647);
  EXPECT_EQ(read<std::int32_t>(-1e30, {.unit = Unit::count}), -2147483647 - 1);
}

TEST(ParConversion, RealsStayAsTheyAre) {
  EXPECT_EQ(read<float>(0.1, {.unit = Unit::real}), 0.1f);
  EXPECT_EQ(read<double>(0.1, {.unit = Unit::real}), 0.1);
}

TEST(ParConversion, DecibelsBecomeAmplitudesAndPowers) {
  EXPECT_FLOAT_EQ(read<float>(-20, {.unit = Unit::db_amplitude}), 0.1f);
  EXPECT_FLOAT_EQ(read<float>(6, {.unit = Unit::db_amplitude, .scale = 1000}), 1995.26231f);
  EXPECT_FLOAT_EQ(read<float>(-20, {.unit = Unit::db_power}), 0.01f);
  EXPECT_FLOAT_EQ(read<float>(3, {.unit = Unit::db_power, .scale = 1000}), 1995262.31f);
}

TEST(ParConversion, MillisecondsBecomeSamplesAndFrames) {
  EXPECT_EQ(read<std::uint16_t>(2.5, with_hop(Unit::ms_samples)), 120);
  EXPECT_EQ(read<std::uint16_t>(0.03, with_hop(Unit::ms_samples)), 1);   // 1.44
  EXPECT_EQ(read<std::int16_t>(-0.04, with_hop(Unit::ms_samples)), -2);  // -1.92
  EXPECT_EQ(read<std::uint16_t>(400, with_hop(Unit::ms_frames)), 100);
  EXPECT_EQ(read<std::uint16_t>(10, with_hop(Unit::ms_frames)), 3);   // 2.5
  EXPECT_EQ(read<std::uint16_t>(9.9, with_hop(Unit::ms_frames)), 2);  // 2.475
}

TEST(ParConversion, MillisecondsBecomeCoefficients) {
  EXPECT_FLOAT_EQ(read<float>(40, with_hop(Unit::ms_coefficient)), 0.9f);  // 1 - 4 / 40
  EXPECT_FLOAT_EQ(read<float>(4, with_hop(Unit::ms_coefficient)), 0.0f);
  EXPECT_FLOAT_EQ(read<float>(2, with_hop(Unit::ms_coefficient)), -1.0f);
  EXPECT_EQ(read<float>(0, with_hop(Unit::ms_coefficient)), -HUGE_VALF);
}

TEST(ParConversion, SlopesBecomeFactorsPerFrame) {
  EXPECT_FLOAT_EQ(read<float>(5000, with_hop(Unit::db_per_second)), 10.0f);  // 20 dB in 4 ms
  EXPECT_FLOAT_EQ(read<float>(-5000, with_hop(Unit::db_per_second_less_1)), -0.9f);
}

TEST(ParConversion, DecayTimesEndSixtyDecibelsLower) {
  EXPECT_FLOAT_EQ(read<float>(4, with_hop(Unit::ms_decay)), 0.001f);
  EXPECT_FLOAT_EQ(read<float>(12, with_hop(Unit::ms_decay)), 0.1f);
}

TEST(ParConversion, RoundsHalvesAwayFromZero) {
  EXPECT_EQ(round_half_away(2.5), 3.0);
  EXPECT_EQ(round_half_away(-2.5), -3.0);
  EXPECT_EQ(round_half_away(2.49), 2.0);
  EXPECT_EQ(round_half_away(-2.49), -2.0);
  EXPECT_EQ(round_half_away(0.0), 0.0);
}

TEST(ParFixedPoint, ScalesAnyUnit) {
  EXPECT_EQ(read<std::int16_t>(0.5, fixed(15)), 16384);
  EXPECT_EQ(read<std::int16_t>(-0.75, fixed(1)), -2);
  EXPECT_EQ(read<std::int16_t>(-20, fixed(10, Unit::db_amplitude)), 102);  // 102.4
  EXPECT_EQ(read<std::int32_t>(0.25, fixed(31)), 536870912);
}

TEST(ParFixedPoint, SaturatesWithAMessage) {
  const std::string message = "over flow : key\n";
  EXPECT_EQ(read<std::int16_t>(1, fixed(15), message), 32767);
  EXPECT_EQ(read<std::int16_t>(32767.5, fixed(0), message), 32767);
  EXPECT_EQ(read<std::int16_t>(-32768.5, fixed(0), message), -32768);
  EXPECT_EQ(read<std::int32_t>(1, fixed(31), message), 0x7fffffff);
  EXPECT_EQ(read<std::int32_t>(-1.1, fixed(31), message), -0x7fffffff - 1);
  EXPECT_EQ(read<std::int32_t>(0, {.unit = Unit::ms_coefficient, .storage = Storage::fixed_point, .hop = 1}, message),
            -0x7fffffff - 1);
}

TEST(ParFixedPoint, TakesTheWholeRangeWithoutAMessage) {
  EXPECT_EQ(read<std::int16_t>(32767.4, fixed(0)), 32767);
  EXPECT_EQ(read<std::int16_t>(-1, fixed(15)), -32768);
  EXPECT_EQ(read<std::int32_t>(-1, fixed(31)), -0x7fffffff - 1);
}

TEST(ParFixedPoint, OfNoNumberIsZero) {
  EXPECT_EQ(read<std::int16_t>(0, {.unit = Unit::ms_coefficient, .storage = Storage::fixed_point, .hop = 0}), 0);
  EXPECT_EQ(read<std::uint16_t>(0, {.unit = Unit::ms_frames, .hop = 0}), 0);
}

/// The halfway points between 1 - 0.5^n and its neighbours belong to the lower n.
TEST(ParShiftCode, IsTheNearestPowerBelowOne) {
  EXPECT_EQ(shift_code(1.0, 16, false).shift, 16);
  EXPECT_EQ(shift_code(0.0, 16, false).shift, 0);
  EXPECT_EQ(shift_code(0.25, 16, false).shift, 0);
  EXPECT_EQ(shift_code(0.2500001, 16, false).shift, 1);
  EXPECT_EQ(shift_code(0.625, 16, false).shift, 1);  // 1 - (0.25 + 0.5) / 2
  EXPECT_EQ(shift_code(0.6250001, 16, false).shift, 2);
  for (int n = 1; n <= 15; ++n) {
    const ShiftCode code = shift_code(1 - std::pow(0.5, n), 16, false);
    EXPECT_EQ(code.shift, n);
    EXPECT_TRUE(code.in_range);
  }
}

TEST(ParShiftCode, IsTheNearestPowerAboveZeroWhenMirrored) {
  EXPECT_EQ(shift_code(0.0, 16, true).shift, 16);
  EXPECT_EQ(shift_code(1.0, 16, true).shift, 0);
  EXPECT_EQ(shift_code(0.75, 16, true).shift, 0);
  EXPECT_EQ(shift_code(0.7499999, 16, true).shift, 1);
  EXPECT_EQ(shift_code(0.375, 16, true).shift, 1);
  EXPECT_EQ(shift_code(0.3749999, 16, true).shift, 2);
  for (int n = 1; n <= 15; ++n) EXPECT_EQ(shift_code(std::pow(0.5, n), 16, true).shift, n);
}

TEST(ParShiftCode, ReachesTwiceAsFarInFieldsOf32Bits) {
  for (int n = 1; n <= 31; ++n) EXPECT_EQ(shift_code(1 - std::pow(0.5, n), 32, false).shift, n);
  EXPECT_EQ(read<std::int32_t>(1, {.storage = Storage::shift_code}), 32);
  EXPECT_EQ(read<std::int16_t>(1, {.storage = Storage::shift_code}), 16);
  EXPECT_EQ(read<std::int32_t>(std::pow(0.5, 20), {.storage = Storage::mirror_shift}), 20);
}

TEST(ParShiftCode, WarnsOfWhatHasNone) {
  const std::string message = "warning key: bad value\n";
  EXPECT_EQ(read<std::int16_t>(1.5, {.storage = Storage::shift_code}, message), 16);
  EXPECT_EQ(read<std::int16_t>(-0.1, {.storage = Storage::shift_code}, message), 0);
  EXPECT_EQ(read<std::int16_t>(1 - std::pow(0.5, 18), {.storage = Storage::shift_code}, message), 16);
  EXPECT_EQ(read<std::int32_t>(1 - std::pow(0.5, 34), {.storage = Storage::shift_code}, message), 32);
  EXPECT_EQ(read<std::int16_t>(std::pow(0.5, 18), {.storage = Storage::mirror_shift}, message), 16);
}

TEST(ParValue, StaysWhenItsKeyIsMissing) {
  Numbers numbers({});
  float value = 7;
  EXPECT_EQ(ReadValue(numbers, "key", {}, value), 1);
  EXPECT_EQ(value, 7.0f);
}

TEST(ParValue, HasAPrefixBeforeItsName) {
  Numbers numbers({{"block.key", 3}});
  float value = 0;
  EXPECT_EQ(ReadValue(numbers, "block.", "key", {}, value), 0);
  EXPECT_EQ(value, 3.0f);
}

TEST(ParValue, ArraysGoOnAfterAMissingElement) {
  Numbers numbers({{"block.a[0]", 1}, {"block.a[2]", 3}});
  std::array<float, 4> values{9, 9, 9, 9};
  EXPECT_EQ(ReadValues(numbers, "block.", "a[%d]", {}, std::span<float>(values)), 2);
  EXPECT_THAT(values, testing::ElementsAre(1.0f, 9.0f, 3.0f, 9.0f));
  EXPECT_THAT(numbers.asked(), testing::ElementsAre("block.a[0]", "block.a[1]", "block.a[2]", "block.a[3]"));
}

TEST(ParVector, HasAKeyForEachDirection) {
  Numbers numbers({{"mic.x", -20}, {"mic.y", 0}, {"mic.z", 20}});
  std::array<float, 3> vector{};
  EXPECT_EQ(ReadVector(numbers, "mic", {.unit = Unit::db_amplitude}, std::span(vector)), 0);
  EXPECT_THAT(vector, testing::ElementsAre(testing::FloatEq(0.1f), 1.0f, 10.0f));
  EXPECT_THAT(numbers.asked(), testing::ElementsAre("mic.x", "mic.y", "mic.z"));
}

TEST(ParVector, KeepsTheDirectionsThatAreMissing) {
  Numbers numbers({{"array.mic.y", 2}});
  std::array<double, 3> vector{7, 8, 9};
  EXPECT_EQ(ReadVector(numbers, "array.", "mic", {}, std::span(vector)), 2);
  EXPECT_THAT(vector, testing::ElementsAre(7, 2, 9));
  EXPECT_THAT(numbers.asked(), testing::ElementsAre("array.mic.x", "array.mic.y", "array.mic.z"));
}

TEST(ParVector, StandsInArrays) {
  Numbers numbers({{"array.mic[0].x", 1}, {"array.mic[0].y", 2}, {"array.mic[1].z", 6}});
  std::array<std::array<std::int16_t, 3>, 2> vectors{{{9, 9, 9}, {9, 9, 9}}};
  EXPECT_EQ(
      ReadVectors(numbers, "array.", "mic[%d]", {.unit = Unit::count}, std::span<std::array<std::int16_t, 3>>(vectors)),
      3);
  EXPECT_THAT(vectors, testing::ElementsAre(testing::ElementsAre(1, 2, 9), testing::ElementsAre(9, 9, 6)));
}

TEST(ParTable, TakesOneWordPerNumber) {
  Numbers numbers({{"b.w[0]", 32767}, {"b.w[1]", -32766}});
  std::array<std::uint16_t, 4> table{1, 1, 1, 1};
  EXPECT_EQ(ReadTableValues(numbers, "b.", "w[%d]", fixed(0), Words::one, table, 1, 2), 0);
  EXPECT_THAT(table, testing::ElementsAre(1, 32767, static_cast<std::uint16_t>(-32766), 1));
}

TEST(ParTable, TakesTwoWordsPerNumberLowWordFirst) {
  Numbers numbers({{"b.w[0]", 0x12345678}, {"b.w[1]", -2}});
  std::array<std::uint16_t, 5> table{1, 1, 1, 1, 1};
  EXPECT_EQ(ReadTableValues(numbers, "b.", "w[%d]", fixed(0), Words::two, table, 0, 2), 0);
  EXPECT_THAT(table, testing::ElementsAre(0x5678, 0x1234, 0xfffe, 0xffff, 1));
}

TEST(ParTable, KeepsTheWordOfANumberThatDoesNotFit) {
  for (const double number : {32768.0, 32767.5, -32767.0, -32766.5, 1e30}) {
    Numbers numbers({{"w", number}});
    std::array<std::uint16_t, 2> table{1, 1};
    EXPECT_EQ(ReadTableValue(numbers, "w", fixed(0), Words::one, table, 0), 1) << number;
    EXPECT_EQ(numbers.text(), "over flow : w\n");
    EXPECT_THAT(table, testing::ElementsAre(1, 1));
  }
}

TEST(ParTable, HasItsOwnEndsForTwoWords) {
  std::array<std::uint16_t, 2> table{1, 1};
  Numbers highest({{"w", 2147483648.0}});
  EXPECT_EQ(ReadTableValue(highest, "w", fixed(0), Words::two, table, 0), 0);
  EXPECT_THAT(table, testing::ElementsAre(0, 0x8000));
  for (const double number : {2147483649.0, -2147483647.0}) {
    Numbers numbers({{"b.w", number}});
    EXPECT_EQ(ReadTableValue(numbers, "b.", "w", fixed(0), Words::two, table, 0), 1) << number;
    EXPECT_EQ(numbers.text(), "over flow : b.w\n");
    EXPECT_THAT(table, testing::ElementsAre(0, 0x8000));
  }
}

TEST(ParTable, CountsAMissingKeyAsAnError) {
  Numbers numbers({});
  std::array<std::uint16_t, 1> table{1};
  EXPECT_EQ(ReadTableValue(numbers, "w", fixed(0), Words::one, table, 0), 1);
  EXPECT_EQ(table[0], 1);
}

}  // namespace
}  // namespace sonivo::classic
