#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "apps/tool/chain.h"

namespace CLI {
class App;
}

namespace sonivo::tool {

inline constexpr std::uint32_t kMinPeriodFrames = 48;
inline constexpr std::uint32_t kMaxPeriodFrames = 2048;
inline constexpr double kMaxDriftPpm = 500;

/// What `sonivo relay` is asked to do.
struct RelayOptions {
  std::string input;
  std::string output;
  Chain chain = Chain::none;
  std::optional<std::string> params;           ///< parameter blob of the chain
  std::optional<std::string> model;            ///< enhancement model (ai)
  std::optional<double> strength;              ///< 0 to 1 (ai)
  std::optional<std::uint32_t> period_frames;  ///< engine period of the physical endpoint; 10 ms without
  std::optional<std::uint16_t> bits;           ///< sample width of the stream; follows the input without
  double drift_ppm = 0;                        ///< how much faster the virtual clock is than the physical one
  bool render = false;
  bool realtime = false;
  bool verbose = false;
};

/// 0 to 1, as --strength takes it. Throws UsageError.
double parse_strength(const std::string& text);

/// Declares the command. Parsing fills `options`, which must outlive it; a value out of its range ends the parse with
/// an error.
CLI::App* add_relay_command(CLI::App& app, RelayOptions& options);

/// Throws UsageError for options that don't go together and for names that are no file's.
void check_relay_options(const RelayOptions& options);

}  // namespace sonivo::tool
