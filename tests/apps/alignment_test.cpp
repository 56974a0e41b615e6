#include "apps/tool/alignment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace sonivo::tool {
namespace {

using Signal = std::vector<float>;

Signal noise(std::size_t frames, unsigned seed, float loudness = 0.1f) {
  std::minstd_rand random(seed);
  std::normal_distribution<float> normal(0, loudness);
  Signal signal(frames);
  for (float& x : signal) x = normal(random);
  return signal;
}

Signal part(const Signal& signal, std::size_t first, std::size_t end) {
  return {signal.begin() + static_cast<std::ptrdiff_t>(first), signal.begin() + static_cast<std::ptrdiff_t>(end)};
}

Signal then(Signal first, const Signal& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Signal scaled(Signal signal, float gain) {
  for (float& x : signal) x *= gain;
  return signal;
}

Signal sum(Signal a, const Signal& b) {
  for (std::size_t i = 0; i < a.size(); ++i) a[i] += b[i];
  return a;
}

void expect_found(const Alignment& alignment, std::int64_t delay, bool inverted = false) {
  EXPECT_EQ(alignment.outcome, Alignment::Outcome::found);
  EXPECT_EQ(alignment.delay, delay);
  EXPECT_EQ(alignment.inverted, inverted);
}

TEST(Alignment, FindsDelaysOfBothSigns) {
  const Signal s = noise(40000, 1);
  for (const std::size_t shift : {0u, 1u, 479u, 5000u}) {
    expect_found(align(s, then(Signal(shift), s), 5000), static_cast<std::int64_t>(shift));
    expect_found(align(then(Signal(shift), s), s, 5000), -static_cast<std::int64_t>(shift));
  }
}

TEST(Alignment, FindsAPartOfALongReference) {
  // The loudest part is not in the test.
  const Signal s = then(noise(40000, 2), noise(60000, 3, 0.5f));
  expect_found(align(s, part(s, 0, 20000), 3000), 0);
  expect_found(align(s, then(Signal(700), part(s, 0, 20000)), 3000), 700);
  expect_found(align(s, part(s, 2000, 30000), 3000), -2000);
}

TEST(Alignment, TellsAnInvertedSignal) {
  const Signal s = noise(40000, 4);
  expect_found(align(s, then(Signal(300), scaled(s, -0.3f)), 1000), 300, true);
  expect_found(align(s, sum(scaled(s, -1), noise(40000, 5)), 1000), 0, true);
}

TEST(Alignment, TakesAToneUprightAndOfTheShortestDelay) {
  Signal tone(40000);
  for (std::size_t n = 0; n < tone.size(); ++n) {
    tone[n] = std::sin(2 * std::numbers::pi_v<float> * static_cast<float>(n % 100) / 100);
  }
  expect_found(align(tone, tone, 1000), 0);
  expect_found(align(tone, part(tone, 70, 40000), 1000), 30);
}

TEST(Alignment, WantsMoreThanAWindowThatIsAlike) {
  // The test has the first window of the reference, later, and then something else.
  const Signal loud = noise(8192, 6, 0.5f);
  const Signal quiet = noise(60000, 7, 0.4f);
  const Signal s = then(loud, quiet);
  expect_found(align(s, s, 1000), 0);
  const Signal x = then(then(Signal(900), loud), noise(60000, 8, 0.9f));
  EXPECT_EQ(align(s, x, 1000).outcome, Alignment::Outcome::no_resemblance);
}

TEST(Alignment, FindsASignalInAsMuchNoise) {
  const Signal s = noise(40000, 9);
  expect_found(align(s, sum(then(Signal(250), part(s, 0, 39750)), noise(40000, 10)), 1000), 250);
}

TEST(Alignment, FindsNothingBeyondItsLimitOrAmongStrangers) {
  const Signal s = noise(40000, 11);
  EXPECT_EQ(align(s, then(Signal(1001), s), 1000).outcome, Alignment::Outcome::no_resemblance);
  EXPECT_EQ(align(s, noise(40000, 12), 1000).outcome, Alignment::Outcome::no_resemblance);
  EXPECT_EQ(align(s, Signal(40000), 1000).outcome, Alignment::Outcome::no_resemblance);
}

TEST(Alignment, NeedsAReferenceThatIsNotSilent) {
  EXPECT_EQ(align(Signal(40000), noise(40000, 13), 1000).outcome, Alignment::Outcome::reference_silent);
  EXPECT_EQ(align({}, noise(40000, 13), 1000).outcome, Alignment::Outcome::reference_silent);
}

}  // namespace
}  // namespace sonivo::tool
