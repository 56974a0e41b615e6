#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <thread>

#include "graph_profile.h"
#include "machine_watch.h"

namespace sonivo::test {

/// How the nodes of the relay keep the turns of a server's graph, while audio goes both ways.
class KeptTurns {
 public:
  explicit KeptTurns(const std::string& remote) : profile_(remote) {}

  /// Whether each node ends every turn of a second, within a tenth of it on average: of the first second in which the
  /// machine isn't late, or of one before. Prints the latest one.
  bool in_a_still_second(unsigned rate_hz, unsigned quantum) {
    const double turn_us = 1e6 * quantum / rate_hz;
    const auto harm = MachineWatch::harm(std::chrono::nanoseconds(static_cast<std::int64_t>(1e3 * turn_us)));
    bool kept = false, was_late = true;
    for (int second = 0; second < kSeconds && !kept && was_late; ++second) {
      const auto start = MachineWatch::Clock::now();
      kept = in_the_next_second(turn_us);
      was_late = !watch_.later_than(harm, start, MachineWatch::Clock::now()).empty();
    }
    for (const char* const name : kOurs) {
      const auto& node = latest_[name];
      std::printf(
          "%5u Hz, %4u frames: %-24s %4llu turns, %llu missed, %llu asleep, %5.1f us of each, %5.1f us at most\n",
          rate_hz, quantum, name, static_cast<unsigned long long>(node.turns),
          static_cast<unsigned long long>(node.missed), static_cast<unsigned long long>(node.asleep), node.mean_us(),
          1e-3 * static_cast<double>(node.longest_ns));
    }
    return kept;
  }

 private:
  bool in_the_next_second(double turn_us) {
    profile_.take();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    latest_ = profile_.take();
    return std::all_of(kOurs.begin(), kOurs.end(), [&](const char* name) {
      const auto& node = latest_[name];
      const double turns = 1e6 / turn_us;  // the server tells of several at once, of those at the end a second later
      return static_cast<double>(node.turns) > 0.75 * turns && node.missed == 0 && node.mean_us() < turn_us / 10;
    });
  }

  static constexpr int kSeconds = 8;
  static constexpr std::array kOurs{"norvell.relay.microphone", "norvell.relay.speaker", "sonivo.microphone",
                                    "sonivo.speaker"};

  const MachineWatch watch_;
  GraphProfile profile_;
  std::map<std::string, GraphProfile::Node> latest_;
};

}  // namespace sonivo::test
