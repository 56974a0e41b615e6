#include "apps/tool/quality_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <vector>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/latency.h"
#include "apps/tool/numbers.h"
#include "apps/tool/quality.h"
#include "apps/tool/stoi.h"
#include "apps/tool/wav_file.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kLongestDelayMs = 500;

constexpr const char* kDescription =
    "Compares a processed WAV file with the clean one, on their first channels, after taking out\n"
    "the delay: SI-SDR, segmental SNR, STOI, and the level of what is left between words.";

constexpr const char* kExample =
    "Example:\n"
    "  sonivo quality clean.wav processed.wav\n";

FloatAudio first_channel(const FloatAudio& audio) {
  FloatAudio mono{audio.rate_hz, 1, {}};
  mono.samples.reserve(audio.frames());
  for (std::size_t i = 0; i < audio.samples.size(); i += audio.channels) mono.samples.push_back(audio.samples[i]);
  return mono;
}

std::size_t delay_of(const FloatAudio& reference, const FloatAudio& test, const QualityOptions& options) {
  if (options.delay_frames) return *options.delay_frames;
  const Latency found = measure_latency(reference, test, reference.rate_hz * kLongestDelayMs / 1000);
  switch (found.outcome) {
    case Latency::Outcome::input_silent:
      throw Failure("'" + options.reference + "' is silent; give the clean speech");
    case Latency::Outcome::no_resemblance:
      throw Failure("'" + options.test + "' does not resemble '" + options.reference +
                    "'; give its delay with --delay FRAMES if it should");
    case Latency::Outcome::measured:
      break;
  }
  return found.frames;
}

std::string text_of(std::optional<double> value, int digits, const char* unit) {
  if (!value) return "not measurable";
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << *value << unit;
  return text.str();
}

}  // namespace

CLI::App* add_quality_command(CLI::App& app, QualityOptions& options) {
  CLI::App* const command = app.add_subcommand("quality", kDescription);
  command->footer(kExample);
  command->add_option("REF", options.reference, "clean WAV file")->type_name("FILE")->required();
  command->add_option("TEST", options.test, "processed WAV file")->type_name("FILE")->required();
  const auto parse_delay = [&options](const std::string& text) {
    options.delay_frames = parse_whole_number(text);
    if (!options.delay_frames) throw UsageError("--delay takes a whole number of frames, not '" + text + "'");
  };
  command->add_option_function<std::string>("--delay", parse_delay, "delay of TEST (default: searched, up to 0.5 s)")
      ->type_name("FRAMES");
  return command;
}

void run_quality_command(const QualityOptions& options, std::ostream& output) {
  check_file_name("REF", options.reference, "standard input");
  check_file_name("TEST", options.test, "standard input");
  const FloatAudio reference = first_channel(read_wav_float(options.reference));
  const FloatAudio test = first_channel(read_wav_float(options.test));
  if (reference.rate_hz != test.rate_hz) {
    throw Failure("'" + options.reference + "' and '" + options.test + "' differ in rate; convert one of them");
  }
  const std::size_t delay = delay_of(reference, test, options);
  if (delay >= test.frames()) throw Failure("'" + options.test + "' is shorter than its delay; give a longer one");
  const std::size_t frames = std::min(reference.frames(), test.frames() - delay);
  const std::vector<double> s(reference.samples.begin(),
                              reference.samples.begin() + static_cast<std::ptrdiff_t>(frames));
  const auto first = test.samples.begin() + static_cast<std::ptrdiff_t>(delay);
  const std::vector<double> x(first, first + static_cast<std::ptrdiff_t>(frames));

  const auto row = [&output](const char* name, const std::string& value) {
    output << std::left << std::setw(18) << name << value << '\n';
  };
  const double delay_ms = 1000.0 * static_cast<double>(delay) / reference.rate_hz;
  row("delay", std::to_string(delay) + " frames, " + text_of(delay_ms, 1, " ms"));
  row("SI-SDR", text_of(si_sdr(s, x), 2, " dB"));
  row("segmental SNR", text_of(segmental_snr(s, x, reference.rate_hz), 2, " dB"));
  row("STOI", text_of(stoi(s, x, reference.rate_hz), 4, ""));
  row("level in pauses", text_of(pause_level(s, x, reference.rate_hz), 1, " dB of full scale"));
}

}  // namespace sonivo::tool
