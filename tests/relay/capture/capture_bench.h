#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/relay_bench.h"

namespace sonivo::test {

using sim::Step;

/// What decides when audio begins to flow. Periods are in frames, the virtual one is at least 3 ms long.
struct Timing {
  std::uint32_t rate = 48000;
  std::uint32_t hardware_period = 480;
  std::uint32_t virtual_period = 480;
  std::uint32_t block_align = 4;

  std::uint32_t block() const { return rate * 10 / 1000; }
  /// Silence that the PRE buffer starts with.
  std::uint32_t head_start() const { return rate * 3 / 1000; }

  /// Frames that the application hears before the first processed one: four buffers are outstanding from the start, and
  /// each that completes until the ring is ready goes out again as silence.
  ///
  /// The hardware cuts a period of more than 10 ms into k even packets, of which the first comes after a whole period.
  /// Packet n, counted from 1, brings the sum to floor(n P / k) frames at frame (n - 1 + k) P / k. The ring is ready
  /// when the PRE buffer has let out the blocks that make 30 ms, and a buffer that completes at that very instant is
  /// served before the packet.
  std::uint32_t silent_frames() const {
    const std::uint32_t block_bytes = block() * block_align;
    const std::uint32_t ready_bytes = rate * 30 * block_align / 1000;
    const std::uint32_t frames_needed = (ready_bytes + block_bytes - 1) / block_bytes * block() - head_start();
    const std::uint32_t k = (hardware_period + block() - 1) / block();
    const std::uint32_t n = (frames_needed * k + hardware_period - 1) / hardware_period;
    const std::uint32_t served_silent = (n - 1 + k) * hardware_period / (k * virtual_period);
    return (4 + served_silent) * virtual_period;
  }
  /// Frames before the first one from the microphone.
  std::uint32_t leading_zeros() const { return silent_frames() + head_start(); }
};

/// A virtual pair whose clock ignores the feedback, so that transfers come at whole multiples of the period.
inline sim::Config untrimmed(const Timing& timing = {}) {
  sim::Config config;
  config.rate_hz = timing.rate;
  config.hardware_period = timing.hardware_period;
  config.pins.virtual_period = timing.virtual_period;
  config.pins.trim_ppm = 0;
  return config;
}

/// `count` frames from `first` on.
inline std::vector<std::byte> cut(const std::vector<std::byte>& pcm, std::size_t first, std::size_t count,
                                  std::size_t block_align = 4) {
  const auto begin = pcm.begin() + static_cast<std::ptrdiff_t>(first * block_align);
  return {begin, begin + static_cast<std::ptrdiff_t>(count * block_align)};
}

/// From frame `first` to the end.
inline std::vector<std::byte> cut_from(const std::vector<std::byte>& pcm, std::size_t first,
                                       std::size_t block_align = 4) {
  return cut(pcm, first, pcm.size() / block_align - first, block_align);
}

inline std::vector<std::byte> zeros(std::size_t frames, std::size_t block_align = 4) {
  return std::vector<std::byte>(frames * block_align);
}

inline std::vector<std::byte> join(std::initializer_list<std::vector<std::byte>> parts) {
  std::vector<std::byte> whole;
  for (const auto& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

/// Whether two signals are equal to the bit, and from which frame on they aren't.
inline ::testing::AssertionResult same_pcm(const std::vector<std::byte>& heard, const std::vector<std::byte>& expected,
                                           std::size_t block_align = 4) {
  if (heard == expected) return ::testing::AssertionSuccess();
  const auto differs = std::mismatch(heard.begin(), heard.end(), expected.begin(), expected.end()).first;
  return ::testing::AssertionFailure() << heard.size() / block_align << " frames instead of "
                                       << expected.size() / block_align << ", different from frame "
                                       << static_cast<std::size_t>(differs - heard.begin()) / block_align << " on";
}

/// A 16-bit stereo signal for the microphone, longer than any of the streams here.
inline std::vector<std::byte> microphone(std::uint16_t bits = 16, std::uint16_t channels = 2) {
  return numbered_pcm(24000, bits, channels);
}

/// Runs an action inside Execute of block n, counted from 1.
inline void run_during_block(ChainScript& chain, int n, std::function<void()> action) {
  chain.process = [n, action = std::move(action), block = 0](float*, std::size_t, std::size_t) mutable {
    if (++block == n) action();
  };
}

/// Starts the relay and lets its threads come to rest, waiting for an application.
inline void start_idle(RelayBench& bench) {
  bench.start();
  bench.machine.run_for(1);
}

/// An application records 48 kHz 16-bit stereo from this instant on.
inline void record_stereo(RelayBench& bench) { bench.record(pcm_format(48000, 16, 2), microphone()); }

/// Runs all bodies on threads of their own and waits for their ends.
inline void run_at_once(sim::SimMachine& machine, const std::vector<std::function<void()>>& bodies) {
  std::vector<std::unique_ptr<Thread>> threads;
  for (const auto& body : bodies) threads.push_back(machine.scheduler().start("host", body));
  for (const auto& thread : threads) thread->join();
}

/// Steps of the machine that were taken `ms` after `origin`, in order; needs the script's trace.
inline std::vector<std::string> steps_at(sim::SimMachine& machine, sim::Time origin, std::uint32_t ms) {
  const std::string prefix = std::to_string(origin + ms * sim::kMillisecond) + " ";
  std::vector<std::string> steps;
  for (const std::string& entry : machine.script().trace()) {
    if (entry.starts_with(prefix)) steps.push_back(entry.substr(prefix.size()));
  }
  return steps;
}

/// Those of the steps that are in `names`, in order.
inline std::vector<std::string> only(const std::vector<std::string>& steps, const std::vector<Step>& names) {
  std::vector<std::string> kept;
  for (const std::string& step : steps) {
    if (std::any_of(names.begin(), names.end(), [&](Step name) { return step == sim::to_string(name); })) {
      kept.push_back(step);
    }
  }
  return kept;
}

/// Values of WM_MIC_REC_ON posted so far, in order.
inline std::vector<std::uint64_t> recording_states(RelayBench& bench) {
  std::vector<std::uint64_t> states;
  for (const auto& message : bench.machine.desktop().messages()) {
    if (message.message == WM_MIC_REC_ON) states.push_back(message.wParam);
  }
  return states;
}

/// How many traces contain the text.
inline std::size_t traces_with(const RelayBench& bench, const std::string& text) {
  const auto traces = bench.log.traces();
  return static_cast<std::size_t>(std::count_if(
      traces.begin(), traces.end(), [&](const std::string& trace) { return trace.find(text) != std::string::npos; }));
}

/// What the application heard in its latest 50 ms is a piece of microphone(), to the bit.
inline void expect_microphone_unprocessed(RelayBench& bench) {
  const auto heard = bench.machine.driver().recording();
  const auto spoken = microphone();
  ASSERT_GE(heard.size(), 4u * 2400);
  const auto latest = cut_from(heard, heard.size() / 4 - 2400);
  EXPECT_NE(std::search(spoken.begin(), spoken.end(), latest.begin(), latest.end()), spoken.end());
}

/// Of 205 ms of microphone() through a chain that leaves it alone, block 6 was lost in ProcessBlocks, and the stream
/// went on.
inline void expect_block_6_lost(RelayBench& bench, const ChainScript& chain) {
  EXPECT_EQ(chain.count("Execute"), 19u);
  EXPECT_EQ(traces_with(bench, "ProcessBlocks"), 1u);
  EXPECT_EQ(recording_states(bench), (std::vector<std::uint64_t>{1}));
  const auto processed = join({zeros(144), microphone()});
  const auto expected = join({zeros(7 * 480), cut(processed, 0, 5 * 480), cut(processed, 6 * 480, 8 * 480)});
  EXPECT_TRUE(same_pcm(bench.machine.driver().recording(), expected));
}

}  // namespace sonivo::test
