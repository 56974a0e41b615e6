// Arguments of `sonivo relay`, one a line: a parse either ends in an error or leaves every value in its range and both
// names a file's.

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "apps/tool/failure.h"
#include "apps/tool/relay_options.h"

namespace {

using namespace sonivo::tool;

bool in_range(const RelayOptions& options) {
  const std::uint32_t period = options.period_frames.value_or(kMinPeriodFrames);
  const std::uint16_t bits = options.bits.value_or(16);
  return period >= kMinPeriodFrames && period <= kMaxPeriodFrames && (bits == 16 || bits == 24) &&
         std::abs(options.drift_ppm) <= kMaxDriftPpm && options.strength.value_or(0) >= 0 &&
         options.strength.value_or(0) <= 1;
}

bool is_file_name(const std::string& name) { return !name.empty() && name != "-"; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  std::vector<std::string> arguments;  // from the last to the first, as the parser takes them
  for (std::string line; std::getline(lines, line);) arguments.insert(arguments.begin(), line);
  arguments.emplace_back("relay");

  CLI::App app;
  RelayOptions options;
  add_relay_command(app, options);
  try {
    app.parse(std::move(arguments));
    check_relay_options(options);
    if (!in_range(options) || !is_file_name(options.input) || !is_file_name(options.output)) std::abort();
  } catch (const CLI::ParseError&) {
  } catch (const UsageError&) {
  }
  return 0;
}
