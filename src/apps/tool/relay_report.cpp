#include "apps/tool/relay_report.h"

#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>

namespace sonivo::tool {

namespace {

std::string fixed(double value, int digits) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

std::string format_text(const PcmAudio& audio) {
  return std::to_string(audio.rate_hz) + " Hz, " + std::to_string(audio.bits) + " bits, " +
         std::to_string(audio.channels) + (audio.channels == 1 ? " channel" : " channels");
}

std::string milliseconds(double frames, std::uint32_t rate_hz) { return fixed(frames * 1000 / rate_hz, 1); }

std::string latency_text(Direction direction, const Latency& latency, std::uint32_t rate_hz) {
  switch (latency.outcome) {
    case Latency::Outcome::input_silent:
      return "not measurable: the input is silent";
    case Latency::Outcome::no_resemblance:
      return "not measurable: the output does not resemble the input";
    case Latency::Outcome::measured:
      break;
  }
  return std::to_string(latency.frames) + " frames, " + milliseconds(static_cast<double>(latency.frames), rate_hz) +
         " ms " + (direction == Direction::capture ? "microphone to application" : "application to speaker");
}

std::string fill_text(const StreamStatistics& statistics, std::uint32_t rate_hz) {
  if (statistics.fill_count == 0) return "never read";
  const double mean = static_cast<double>(statistics.fill_sum) / static_cast<double>(statistics.fill_count);
  return milliseconds(statistics.fill_min, rate_hz) + " / " + milliseconds(mean, rate_hz) + " / " +
         milliseconds(statistics.fill_max, rate_hz) + " ms (lowest / mean / highest)";
}

std::string processing_text(const StreamStatistics& statistics) {
  const auto ms = [](double ns) { return fixed(ns / 1e6, 3); };
  const double mean = static_cast<double>(statistics.execute_sum_ns) / static_cast<double>(statistics.executions);
  return ms(mean) + " / " + ms(static_cast<double>(statistics.execute_max_ns)) + " ms a block (mean / highest)";
}

}  // namespace

void print_relay_report(std::ostream& output, Direction direction, const RelayedAudio& relayed,
                        const Latency& latency) {
  const StreamStatistics& statistics = relayed.statistics;
  const std::uint32_t rate_hz = relayed.audio.rate_hz;
  const auto row = [&output](const char* name, const std::string& value) {
    output << std::left << std::setw(18) << name << value << '\n';
  };
  row("format", format_text(relayed.audio));
  row("latency", latency_text(direction, latency, rate_hz));
  if (direction == Direction::capture) {
    row("blocks", std::to_string(statistics.blocks) + " of 10 ms");
    if (statistics.silenced != 0)
      row("silenced", std::to_string(statistics.silenced) + " blocks without a valid result");
    if (statistics.unenhanced != 0)
      row("unenhanced", std::to_string(statistics.unenhanced) + " blocks, for which the network was too late");
  } else {
    row("packets", std::to_string(statistics.physical_packets));
  }
  row("underruns", std::to_string(statistics.underruns));
  row("overruns", std::to_string(statistics.overruns));
  row("feedback changes", std::to_string(statistics.feedback_changes));
  row("ring fill", fill_text(statistics, rate_hz));
  // Faster than real time the third chain waits for the network.
  if (relayed.realtime && statistics.executions != 0) row("processing", processing_text(statistics));
  row("speed", fixed(relayed.audio_seconds / relayed.elapsed_seconds, 0) + " times real time");
}

}  // namespace sonivo::tool
