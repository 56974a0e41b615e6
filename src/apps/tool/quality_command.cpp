#include "apps/tool/quality_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <ostream>
#include <span>
#include <sstream>
#include <vector>

#include "apps/tool/alignment.h"
#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/numbers.h"
#include "apps/tool/quality.h"
#include "apps/tool/stoi.h"
#include "apps/tool/wav_file.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kLongestDelayMs = 500;
// Searched as well, so that a longer delay is not taken for another one.
constexpr std::uint32_t kSearchedMs = 600;
constexpr std::uint32_t kSearchedWidelyMs = 2000;

constexpr const char* kQualityDescription =
    "Compares a processed WAV file with the clean one, on their first channels and what they share,\n"
    "after taking out the delay: SI-SDR, segmental SNR, STOI, and the level of what is left between\n"
    "words.\n"
    "  SI-SDR           10 lg(|a s|^2 / |a s - x|^2) with a = <x, s> / <s, s>; no mean is taken off\n"
    "  segmental SNR    mean over frames of 30 ms, one every 7.5 ms, each limited to -10 to 35 dB\n"
    "  STOI             over segments of 384 ms at 10 kHz, about 0 to 1\n"
    "  level in pauses  of TEST, in frames of 10 ms more than 40 dB below the loudest of REF";

constexpr const char* kQualityExample =
    "Example:\n"
    "  sonivo quality clean.wav processed.wav\n";

/// Throws Failure for a file that can't be compared.
FloatAudio read_first_channel(const std::string& path) {
  const FloatAudio audio = read_wav_float(path);
  FloatAudio mono{audio.rate_hz, 1, {}};
  mono.samples.reserve(audio.frames());
  for (std::size_t i = 0; i < audio.samples.size(); i += audio.channels) {
    if (!std::isfinite(audio.samples[i])) {
      throw Failure("'" + path + "' has a sample that is no finite number, in frame " +
                    std::to_string(mono.samples.size()) + "; make it again");
    }
    mono.samples.push_back(audio.samples[i]);
  }
  return mono;
}

std::string text_of(std::int64_t delay, std::uint32_t rate_hz) {
  std::ostringstream text;
  text << delay << " frames, " << std::fixed << std::setprecision(1)
       << 1000.0 * static_cast<double>(delay) / static_cast<double>(rate_hz) << " ms";
  return text.str();
}

Alignment alignment_of(const FloatAudio& reference, const FloatAudio& test, const QualityOptions& options) {
  if (options.delay_frames) return {Alignment::Outcome::found, *options.delay_frames};
  const auto within_ms = [&](std::uint32_t ms) {
    return align(reference.samples, test.samples, std::size_t{reference.rate_hz} * ms / 1000);
  };
  Alignment found = within_ms(kSearchedMs);
  if (found.outcome == Alignment::Outcome::no_resemblance) found = within_ms(kSearchedWidelyMs);
  switch (found.outcome) {
    case Alignment::Outcome::reference_silent:
      throw Failure("'" + options.reference + "' is silent; give the clean speech");
    case Alignment::Outcome::no_resemblance:
      throw Failure("'" + options.test + "' does not resemble '" + options.reference +
                    "' within 2 s of delay; give its delay with --delay FRAMES if it should");
    case Alignment::Outcome::found:
      break;
  }
  if (std::abs(found.delay) >= std::int64_t{reference.rate_hz} * kLongestDelayMs / 1000) {
    throw Failure("'" + options.test + "' seems to have a delay of " + text_of(found.delay, reference.rate_hz) +
                  ", and less than 0.5 s is searched; give it with --delay " + std::to_string(found.delay));
  }
  return found;
}

/// What both have, aligned.
struct Shared {
  std::vector<double> reference, test;
  std::vector<double> strokes;  ///< beside the reference; empty without
};

Shared shared_part(const FloatAudio& reference, const FloatAudio& test, const FloatAudio& strokes, std::int64_t delay,
                   const QualityOptions& options) {
  const std::size_t skipped = delay < 0 ? static_cast<std::size_t>(-delay) : 0;
  const std::size_t late = delay > 0 ? static_cast<std::size_t>(delay) : 0;
  if (late >= test.frames()) throw Failure("'" + options.test + "' is shorter than its delay; give a longer one");
  if (skipped >= reference.frames()) {
    throw Failure("'" + options.reference + "' is shorter than the delay; give a longer one");
  }
  const std::size_t frames = std::min(reference.frames() - skipped, test.frames() - late);
  const auto part = [frames](const FloatAudio& audio, std::size_t first) {
    const auto samples = std::span(audio.samples).subspan(first, frames);
    return std::vector<double>(samples.begin(), samples.end());
  };
  Shared shared{part(reference, skipped), part(test, late), {}};
  if (options.strokes) shared.strokes = part(strokes, skipped);
  return shared;
}

std::string text_of(std::optional<double> value, int digits, const char* unit) {
  if (!value) return "not measurable";
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << *value << unit;
  return text.str();
}

FloatAudio read_strokes(const FloatAudio& reference, const QualityOptions& options) {
  if (!options.strokes) return {};
  FloatAudio strokes = read_first_channel(*options.strokes);
  if (strokes.rate_hz != reference.rate_hz || strokes.frames() != reference.frames()) {
    throw Failure("'" + *options.strokes + "' differs from '" + options.reference + "' in rate or length");
  }
  return strokes;
}

}  // namespace

CLI::App* add_quality_command(CLI::App& app, QualityOptions& options) {
  CLI::App* const command = app.add_subcommand("quality", kQualityDescription);
  command->footer(kQualityExample);
  command->add_option("REF", options.reference, "clean WAV file")->type_name("FILE")->required();
  command->add_option("TEST", options.test, "processed WAV file")->type_name("FILE")->required();
  const auto parse_delay = [&options](const std::string& text) {
    options.delay_frames = parse_signed_number(text);
    if (!options.delay_frames) throw UsageError("--delay takes a whole number of frames, not '" + text + "'");
  };
  command
      ->add_option_function<std::string>("--delay", parse_delay,
                                         "delay of TEST, negative when it is early (default: searched, within 0.5 s)")
      ->type_name("FRAMES");
  command
      ->add_option("--strokes", options.strokes,
                   "recording of the key strokes alone, beside REF: prints the level in their frames too")
      ->type_name("KEYS");
  return command;
}

void run_quality_command(const QualityOptions& options, std::ostream& output) {
  check_file_name("REF", options.reference, "standard input");
  check_file_name("TEST", options.test, "standard input");
  if (options.strokes) check_file_name("--strokes", *options.strokes, "standard input");
  const FloatAudio reference = read_first_channel(options.reference);
  const FloatAudio test = read_first_channel(options.test);
  if (reference.rate_hz != test.rate_hz) {
    throw Failure("'" + options.reference + "' and '" + options.test + "' differ in rate; convert one of them");
  }
  const FloatAudio strokes = read_strokes(reference, options);
  const Alignment alignment = alignment_of(reference, test, options);
  const auto& [s, x, keys] = shared_part(reference, test, strokes, alignment.delay, options);

  const auto row = [&output](const char* name, const std::string& value) {
    output << std::left << std::setw(18) << name << value << '\n';
  };
  row("delay", text_of(alignment.delay, reference.rate_hz));
  if (alignment.inverted) row("polarity", "inverted, which counts as noise in the segmental SNR");
  if (s.size() < reference.frames()) {
    const auto seconds = [&](std::size_t frames) { return static_cast<double>(frames) / reference.rate_hz; };
    row("compared", text_of(seconds(s.size()), 3, " s of ") + text_of(seconds(reference.frames()), 3, " s"));
  }
  row("SI-SDR", text_of(si_sdr(s, x), 2, " dB"));
  row("segmental SNR", text_of(segmental_snr(s, x, reference.rate_hz), 2, " dB"));
  row("STOI", text_of(stoi(s, x, reference.rate_hz), 4, ""));
  row("level in pauses", text_of(pause_level(s, x, reference.rate_hz), 1, " dB of full scale"));
  if (options.strokes) {
    row("strokes in pauses", text_of(stroke_level(s, x, keys, reference.rate_hz), 1, " dB of full scale"));
  }
}

}  // namespace sonivo::tool
