#include "apps/tool/relay_options.h"

#include <CLI/CLI.hpp>
#include <cmath>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/numbers.h"

namespace sonivo::tool {

namespace {

constexpr const char* kRelayDescription =
    "Sends a WAV file through the whole microphone (or speaker) path on a simulated notebook.\n"
    "IN is what the physical microphone hears, OUT what an application records from the virtual\n"
    "one, from its first sample on.";

constexpr const char* kRelayExample =
    "Example:\n"
    "  sonivo relay speech.wav recorded.wav --period 441 --drift 100\n"
    "File names that start with a dash come last, after --:\n"
    "  sonivo relay --render -- -speech.wav -played.wav\n";

[[noreturn]] void refuse(const std::string& option, const std::string& range, const std::string& text) {
  throw UsageError(option + " takes " + range + ", not '" + text + "'");
}

std::uint32_t parse_period(const std::string& text) {
  const auto frames = parse_whole_number(text);
  if (!frames || *frames < kMinPeriodFrames || *frames > kMaxPeriodFrames) {
    refuse("--period", "48 to 2048 frames", text);
  }
  return *frames;
}

std::uint16_t parse_bits(const std::string& text) {
  if (text == "16") return 16;
  if (text == "24") return 24;
  refuse("--bits", "16 or 24", text);
}

double parse_drift(const std::string& text) {
  const auto ppm = parse_decimal_number(text);
  if (!ppm || std::abs(*ppm) > kMaxDriftPpm) refuse("--drift", "-500 to 500 parts per million", text);
  return *ppm;
}

/// An option whose text `parse` turns into the value of `field`.
template <typename Field, typename Value>
CLI::Option* add_parsed(CLI::App& command, const std::string& name, Field& field, Value (*parse)(const std::string&),
                        const std::string& value_name, const std::string& description) {
  return command
      .add_option_function<std::string>(
          name, [&field, parse](const std::string& text) { field = parse(text); }, description)
      ->type_name(value_name);
}

}  // namespace

double parse_strength(const std::string& text) {
  const auto strength = parse_decimal_number(text);
  if (!strength || *strength < 0 || *strength > 1) refuse("--strength", "0 to 1", text);
  return *strength;
}

CLI::App* add_relay_command(CLI::App& app, RelayOptions& options) {
  CLI::App& command = *app.add_subcommand("relay", kRelayDescription);
  command.footer(kRelayExample);
  command.add_option("IN", options.input, "WAV file that the physical microphone hears")->type_name("FILE")->required();
  command.add_option("OUT", options.output, "WAV file of what an application records")->type_name("FILE")->required();
  add_parsed(command, "--chain", options.chain, parse_chain, "CHAIN",
             "processing: none, keycancel, beamforming or ai (default none); beamforming and ai take channels 1\n"
             "and 2 as microphones 60 mm apart with the talker ahead, and write one signal to every channel");
  command.add_option("--params", options.params, "parameter blob of the chain")->type_name("BLOB");
  command.add_option("--model", options.model, "enhancement model of the ai chain (default the program's smallest)")
      ->type_name("MODEL");
  add_parsed(command, "--strength", options.strength, parse_strength, "S", "strength of the ai chain, 0 to 1");
  add_parsed(command, "--period", options.period_frames, parse_period, "FRAMES",
             "engine period of the physical endpoint, 48 to 2048 (default 10 ms)");
  add_parsed(command, "--bits", options.bits, parse_bits, "BITS",
             "sample width of the stream, 16 or 24 (default 24 when IN has more than 16, else 16)");
  add_parsed(command, "--drift", options.drift_ppm, parse_drift, "PPM",
             "virtual clock against the physical one, -500 to 500 (default 0)");
  command.add_flag("--render", options.render,
                   "the speaker direction: an application plays IN, the physical speaker plays OUT");
  command.add_flag("--realtime", options.realtime, "as fast as the audio plays, not as fast as the machine allows");
  command.add_flag(
      "--verbose", options.verbose,
      "traces with their virtual time on standard error; xfer errors at the\nend belong to an ordinary stop");
  return &command;
}

void check_relay_options(const RelayOptions& options) {
  check_file_name("IN", options.input, "standard input");
  check_file_name("OUT", options.output, "standard output");
  if (options.render && options.chain != Chain::none) {
    throw UsageError("--render carries the speaker direction, which has no chain; leave out --chain");
  }
  if (options.params && options.chain == Chain::none) {
    throw UsageError("--params needs a chain to set up; add --chain keycancel, beamforming or ai");
  }
  if (options.model && options.chain != Chain::ai) throw UsageError("--model needs --chain ai");
  if (options.strength && options.chain != Chain::ai) throw UsageError("--strength needs --chain ai");
}

}  // namespace sonivo::tool
