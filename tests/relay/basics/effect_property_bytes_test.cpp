// GetFxCaptureBytes: values of any type, read into room for a blob of a fixed size.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <span>
#include <string>
#include <vector>

#include "platform/sim/machine.h"
#include "relay/effect_properties.h"

namespace sonivo::test {
namespace {

using sim::Step;
using testing::Each;
using testing::ElementsAre;

constexpr std::byte kUntouched{0xEE};

/// Four bytes to read into, with guards before and behind.
class EffectBytes : public testing::Test {
 protected:
  EffectBytes() { memory_.fill(kUntouched); }
  ~EffectBytes() override {
    EXPECT_THAT(std::span(memory_).first(kGuard), Each(kUntouched));
    EXPECT_THAT(std::span(memory_).last(kGuard), Each(kUntouched));
  }

  Status get(const PropertyValue& stored) {
    machine.fx().set_effect(sim::kMicArray, PKEY_NVC_AI_Strength, stored);
    return GetFxCaptureBytes(machine.seams(), PKEY_NVC_AI_Strength, bytes);
  }
  static std::vector<std::byte> blob(std::size_t size) {
    std::vector<std::byte> numbered(size);
    for (std::size_t i = 0; i < size; ++i) numbered[i] = static_cast<std::byte>(i + 1);
    return numbered;
  }

 private:
  static constexpr std::size_t kGuard = 32;
  static constexpr std::size_t kSize = 4;
  std::array<std::byte, kGuard + kSize + kGuard> memory_;

 protected:
  sim::SimMachine machine;
  const std::span<std::byte> bytes = std::span(memory_).subspan(kGuard, kSize);
};

TEST_F(EffectBytes, TakeABlobOfTheirSize) {
  EXPECT_EQ(get(blob(4)), 0);
  EXPECT_THAT(bytes, ElementsAre(std::byte{1}, std::byte{2}, std::byte{3}, std::byte{4}));
}

TEST_F(EffectBytes, KeepWhatAShorterBlobDoesNotHave) {
  EXPECT_EQ(get(blob(2)), 0);
  EXPECT_THAT(bytes, ElementsAre(std::byte{1}, std::byte{2}, kUntouched, kUntouched));
}

TEST_F(EffectBytes, TakeTheHeadOfALongerBlobAndSayThatThereIsMore) {
  EXPECT_EQ(get(blob(5)), 234);
  EXPECT_THAT(bytes, ElementsAre(std::byte{1}, std::byte{2}, std::byte{3}, std::byte{4}));
}

TEST_F(EffectBytes, TakeTheHeadOfAText) {
  for (const char* text : {"abcd", "abcdefghijklmnopqrstuvwxyz"}) {
    EXPECT_EQ(get(std::string(text)), 0) << text;
    EXPECT_THAT(bytes, ElementsAre(std::byte{'a'}, std::byte{0}, std::byte{'b'}, std::byte{0})) << text;
  }
}

TEST_F(EffectBytes, KeepWhatAnEmptyTextWithItsTerminatorDoesNotHave) {
  EXPECT_EQ(get(std::string()), 0);
  EXPECT_THAT(bytes, ElementsAre(std::byte{0}, std::byte{0}, kUntouched, kUntouched));
}

TEST_F(EffectBytes, TakeTheLowByteOfANumber) {
  EXPECT_EQ(get(std::uint32_t{0x04030201}), 0);
  EXPECT_THAT(bytes, ElementsAre(std::byte{1}, kUntouched, kUntouched, kUntouched));
}

TEST_F(EffectBytes, StayAsTheyWereWithoutAReadableValue) {
  EXPECT_EQ(get({}), 1168);
  EXPECT_EQ(get(ForeignValue{5}), 13);
  machine.script().fail(Step::fx_user_value, status_bits(0x80070005));
  EXPECT_EQ(get(blob(4)), status_bits(0x80070005));
  machine.script().fail(Step::endpoints_list, status_bits(0x88890010));
  EXPECT_EQ(get(blob(4)), status_bits(0x88890010));
  EXPECT_THAT(bytes, Each(kUntouched));
}

}  // namespace
}  // namespace sonivo::test
