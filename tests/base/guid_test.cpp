#include "base/guid.h"

#include <gtest/gtest.h>

#include <cstring>

namespace sonivo {
namespace {

constexpr Guid kEffect{0x06B604E5, 0xC78E, 0x4283, {0xBC, 0x39, 0x7C, 0xB4, 0x4E, 0x72, 0x7F, 0xC3}};

TEST(GuidText, IsLowerCaseInBracesWithLeadingZeros) {
  EXPECT_EQ(to_text(kEffect), "{06b604e5-c78e-4283-bc39-7cb44e727fc3}");
}

TEST(GuidText, OfTheZeroGuidShowsEveryDigit) { EXPECT_EQ(to_text(Guid{}), "{00000000-0000-0000-0000-000000000000}"); }

TEST(GuidText, OfAllOnesFillsEveryDigit) {
  const Guid ones{0xFFFFFFFF, 0xFFFF, 0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
  EXPECT_EQ(to_text(ones), "{ffffffff-ffff-ffff-ffff-ffffffffffff}");
}

TEST(GuidText, EachPartPadsItsOwnWidth) {
  EXPECT_EQ(to_text(Guid{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}), "{00000001-0002-0003-0405-060708090a0b}");
}

TEST(Guid, LiesInMemoryAsOnTheWire) {
  const unsigned char wire[16] = {0xE5, 0x04, 0xB6, 0x06, 0x8E, 0xC7, 0x83, 0x42,
                                  0xBC, 0x39, 0x7C, 0xB4, 0x4E, 0x72, 0x7F, 0xC3};
  EXPECT_EQ(std::memcmp(&kEffect, wire, sizeof wire), 0);
}

TEST(Guid, DiffersByAnyPart) {
  for (int part = 0; part < 4; ++part) {
    Guid other = kEffect;
    if (part == 0) other.data1 ^= 1;
    if (part == 1) other.data2 ^= 1;
    if (part == 2) other.data3 ^= 1;
    if (part == 3) other.data4[7] ^= 1;
    EXPECT_NE(other, kEffect) << part;
    EXPECT_TRUE((other < kEffect) != (kEffect < other)) << part;
  }
}

}  // namespace
}  // namespace sonivo
