#pragma once

#include <cstdint>
#include <random>

#include "support/relay_bench.h"

namespace sonivo::test {

/// Virtual time that a stop may take.
inline constexpr std::uint64_t kStopLimitMs = 2000;

/// What may happen to a relay, drawn by a seeded generator: hardware, applications, users and the host at work, and
/// calls of the machine that fail or are overtaken by one of these.
class RandomScript {
 public:
  /// With `deadly`, also calls may fail after which a stream thread is meant to end or a mute to be lost.
  RandomScript(RelayBench& bench, std::uint64_t seed, bool deadly);

  /// Lets a second or so pass with something happening every few milliseconds.
  void run();
  /// Takes back all faults and brings everything to where a relay can stream.
  void calm_down();

 private:
  std::uint32_t draw(std::uint32_t count);
  void place_fault();
  void do_hardware(std::uint64_t seed);
  void do_setting();
  void do_anything();
  void stop_and_start();

  RelayBench& bench_;
  std::mt19937_64 random_;
  const bool deadly_;
};

}  // namespace sonivo::test
