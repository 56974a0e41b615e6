#pragma once

#include <time.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

namespace meridane::bench {

using Work = std::function<void()>;

/// Medians of `rounds` times of each work, in microseconds. They take turns, so that a change of the machine's mood
/// meets all of them.
template <class Time>
std::vector<double> medians(const std::vector<Work>& works, std::size_t rounds, Time time) {
  std::vector<std::vector<double>> times(works.size());
  for (std::size_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < works.size(); ++i) times[i].push_back(time(works[i]));
  }
  std::vector<double> middle;
  for (std::vector<double>& all : times) {
    const auto half = all.begin() + static_cast<std::ptrdiff_t>(rounds / 2);
    std::nth_element(all.begin(), half, all.end());
    middle.push_back(*half);
  }
  return middle;
}

/// Microseconds of a clock.
inline double now(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) * 1e-3;
}

/// Time of one of so many calls.
inline double time_of(const Work& work, int calls, clockid_t clock) {
  const double start = now(clock);
  for (int i = 0; i < calls; ++i) work();
  return (now(clock) - start) / calls;
}

/// Calls that follow one another; what other threads of the machine take doesn't count.
inline std::vector<double> warm_times(const std::vector<Work>& works) {
  return medians(works, 41, [](const Work& work) {
    const double once = time_of(work, 1, CLOCK_THREAD_CPUTIME_ID);
    return time_of(work, std::max(1, static_cast<int>(500 / std::max(once, 0.05))), CLOCK_THREAD_CPUTIME_ID);
  });
}

/// Single calls, each after a walk over 8 MB that leaves nothing in the second-level cache.
inline std::vector<double> cold_times(const std::vector<Work>& works) {
  std::vector<char> other(8u << 20);
  return medians(works, 201, [&](const Work& work) {
    for (std::size_t k = 0; k < other.size(); k += 64) ++other[k];
    return time_of(work, 1, CLOCK_MONOTONIC);
  });
}

}  // namespace meridane::bench
