#include "apps/tool/enroll_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iomanip>
#include <memory>
#include <ostream>
#include <vector>

#include "apps/tool/failure.h"
#include "apps/tool/file_kind.h"
#include "apps/tool/file_name.h"
#include "apps/tool/output_file.h"
#include "apps/tool/param_blob.h"
#include "apps/tool/progress.h"
#include "e2easr_model/se_model.h"
#include "e2easr_model/spkenc_model.h"
#include "enhance/ai_speech_enhance.h"
#include "enhance/device_rate.h"
#include "enhance/model_trial.h"
#include "enhance/result.h"
#include "enhance/wav_read.h"

namespace sonivo::tool {

namespace {

constexpr std::chrono::milliseconds kLook{50};  // between two looks at the progress and at Ctrl-C
constexpr std::uint16_t kExtensible = 0xfffe;
constexpr std::uint64_t kProgressSteps = 1000;
constexpr float kAddBuffMs = 20.0f;
constexpr std::uint16_t kLeastMicrophones = 2, kMostChannels = 4;
constexpr double kAudible = 0.001;                                // level behind the filter of the analysis
constexpr std::size_t kTriedSamples = 160000, kFedSamples = 800;  // at the model's rate: ten seconds, a chunk

constexpr const char* kEnrollDescription =
    "Tunes a target-speaker model to the voice of a recording: a WAV file of 16-bit PCM at 48000 or\n"
    "44100 Hz in which the person speaks for half a minute or more, close to the microphone, with\n"
    "little noise. Prints what was measured of it. Ctrl-C stops and leaves nothing behind.";

constexpr const char* kEnrollExample =
    "Example:\n"
    "  sonivo enroll --base model_tsse_streaming_rtf0.10_v2.bin --encoder model_spkenc_rtf0.10_v2.bin \\\n"
    "    --voice me.wav --out EnhanceModel.bin\n"
    "  sonivo enhance EnhanceModel.bin noisy.wav clean.wav\n";

volatile std::sig_atomic_t wants_to_quit = 0;

extern "C" void ask_to_quit(int) { wants_to_quit = 1; }

/// Lets Ctrl-C ask instead of ending the program, unless the caller of the program ignores it.
class QuitOnInterrupt {
 public:
  QuitOnInterrupt() : previous_(std::signal(SIGINT, ask_to_quit)) {
    wants_to_quit = 0;
    if (previous_ == SIG_IGN) std::signal(SIGINT, SIG_IGN);
  }
  ~QuitOnInterrupt() { std::signal(SIGINT, previous_); }
  QuitOnInterrupt(const QuitOnInterrupt&) = delete;
  QuitOnInterrupt& operator=(const QuitOnInterrupt&) = delete;

 private:
  void (*previous_)(int);
};

WavFormat read_voice_format(const std::string& name) {
  require_file(name, "a recording");
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name.c_str(), "rb"), std::fclose);
  if (file == nullptr) throw Failure("cannot open '" + name + "': " + std::strerror(errno));
  WavFormat format;
  if (wavRead(file.get(), &format) != 0) {
    throw Failure("'" + name + "' is no WAV file with samples in it; record it again");
  }
  if (!format.is_whole) throw Failure("'" + name + "' is cut off; record it again");
  if (format.tag == kExtensible) {
    throw Failure("'" + name + "' is an extensible WAV file; write it again as plain PCM");
  }
  if (format.tag != 1 || format.bits != 16 || !is_device_rate(static_cast<int>(format.rate_hz))) {
    throw Failure("'" + name + "' is not of 16-bit PCM at 48000 or 44100 Hz; convert it first");
  }
  return format;
}

/// Of one channel alone the beams make silence.
void check_microphones(const EnrollOptions& options, std::uint16_t channels) {
  if (!options.preprocess || (channels >= kLeastMicrophones && channels <= kMostChannels)) return;
  throw Failure("'" + options.voice + "' has " +
                (channels == 1 ? "one channel" : std::to_string(channels) + " channels") +
                "; --preprocess takes the recording of 2 to 4 microphones");
}

template <class Model>
void check_model(const std::string& name, const char* what, const char* magic) {
  require_file(name, std::string("a ") + what);
  try {
    Model().load(name, false);
  } catch (const std::runtime_error& error) {
    throw Failure("'" + name + "' is no " + what + ": " + why_no_model(name, magic, error.what()));
  }
}

void check_models(const EnrollOptions& options) {
  e2e::initialize();
  check_model<e2e::SEModel>(options.base, "target-speaker model", "se");
  check_model<e2e::SpkEncModel>(options.encoder, "speaker encoder", "spk");
  try {
    try_enhancement_model(options.base, {.add_ms = static_cast<std::uint32_t>(kAddBuffMs), .chunk_ms = {}});
  } catch (const std::runtime_error& error) {
    throw Failure("'" + options.base + "' is no target-speaker model: " + error.what());
  }
  try {
    try_enrolment_models(options.base, options.encoder, kTriedSamples, kFedSamples);
  } catch (const std::runtime_error& error) {
    throw Failure("'" + options.base + "' and '" + options.encoder + "' don't go together: " + error.what());
  }
}

void open_for(CAISpeechEnhance& enhancer, const EnrollOptions& options, const WavFormat& format) {
  std::uint32_t bytes = 0;
  enhancer.GetParamSize(&bytes);
  const auto blob = read_param_blob(std::nullopt, "beamforming", bytes);
  std::vector<std::uint16_t> params(blob.size() / sizeof(std::uint16_t));
  std::memcpy(params.data(), blob.data(), blob.size());
  const int status = enhancer.Open(params.data(), options.base.c_str(), static_cast<float>(format.rate_hz),
                                   std::min(format.channels, kMostChannels),
                                   static_cast<std::uint16_t>(format.rate_hz / 100), kAddBuffMs, kAddBuffMs);
  if (status != 0) throw Failure("the enhancement does not open, result " + std::to_string(status));
}

/// While the recording is prepared the enrolment itself can't be stopped, and nothing is there yet but what ends with
/// the program.
void quit_or_end(CAISpeechEnhance& enhancer, bool& has_quit) {
  has_quit = has_quit || enhancer.QuitMakeAIModel() == 0;
  if (has_quit) return;
  std::fputs("error: stopped; nothing was written\n", stderr);
  std::quick_exit(EXIT_FAILURE);
}

struct EnrolResult {
  int status = 0;
  int file_error = 0;  ///< errno of a model that could not be written
};

/// Runs the enrolment on a thread of its own.
EnrolResult enroll(CAISpeechEnhance& enhancer, const EnrollOptions& options, const std::string& out,
                   std::ostream& errors) {
  const QuitOnInterrupt quit_on_interrupt;
  Progress progress(progress_terminal(errors), kProgressSteps);
  auto result = std::async(std::launch::async, [&] {
    const int status = enhancer.MakeAIModel(options.base.c_str(), options.encoder.c_str(), options.voice.c_str(),
                                            out.c_str(), options.preprocess ? 1 : 0);
    return EnrolResult{status, errno};
  });
  bool has_quit = false;
  while (result.wait_for(kLook) == std::future_status::timeout) {
    if (wants_to_quit != 0) quit_or_end(enhancer, has_quit);
    progress.update(static_cast<std::uint64_t>(enhancer.MakeAIModelProgress() * kProgressSteps));
  }
  return result.get();
}

/// What is too quiet for a voice, beside sound that is none.
bool is_noise_alone(const VoiceLevel& level) { return level.noise >= kAudible && level.noise > level.signal; }

const char* verdict_on(const VoiceLevel& level, int status) {
  if (status == ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL) return is_noise_alone(level) ? "noise alone" : "too quiet";
  return status == ERROR_AI_SPEECH_ENHANCE_LOW_SNR ? "too noisy, or too little speech" : "fit for use";
}

void print_level(const VoiceLevel& level, int status, std::ostream& output) {
  output << std::fixed << std::setprecision(3) << "speech level " << level.signal << ", background " << level.noise
         << ", speech in " << std::setprecision(0) << 100.0 * level.active_rate
         << " % of the recording: " << verdict_on(level, status) << '\n'
         << std::flush;
}

[[noreturn]] void refuse(const EnrolResult& result, const VoiceLevel& level, const EnrollOptions& options) {
  const std::string voice = "'" + options.voice + "'";
  switch (result.status) {
    case ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL:  // which has worked on a longer one
      throw Failure(voice + " is too short for '" + options.encoder + "'; record half a minute");
    case ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL:
      if (is_noise_alone(level)) {
        throw Failure(voice + " has noise and no voice that stands out of it; record it again in a quiet place");
      }
      throw Failure("the voice in " + voice + " is too quiet; record it again, closer to the microphone");
    case ERROR_AI_SPEECH_ENHANCE_LOW_SNR:
      throw Failure(voice + " has too much noise or too little speech; record it again in a quiet place");
    case ERROR_AI_SPEECH_ENHANCE_FILE_WRITE:
      throw Failure("cannot write '" + options.output + "': " + std::strerror(result.file_error) +
                    "; make room or choose another folder");
    case WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT:
      throw Failure("stopped; nothing was written");
    default:
      throw Failure("the enrolment failed, result " + std::to_string(result.status));
  }
}

bool has_measured(int status) {
  return status == 0 || status == ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL ||
         status == ERROR_AI_SPEECH_ENHANCE_LOW_SNR || status == ERROR_AI_SPEECH_ENHANCE_FILE_WRITE ||
         status == WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT;
}

}  // namespace

CLI::App* add_enroll_command(CLI::App& app, EnrollOptions& options) {
  CLI::App* const command = app.add_subcommand("enroll", kEnrollDescription);
  command->footer(kEnrollExample);
  command->add_option("--base", options.base, "target-speaker model")->type_name("FILE")->required();
  command->add_option("--encoder", options.encoder, "speaker encoder that belongs to it")
      ->type_name("FILE")
      ->required();
  command->add_option("--voice", options.voice, "WAV file of the voice")->type_name("FILE")->required();
  command->add_option("--out", options.output, "model file to write")->type_name("FILE")->required();
  command->add_flag("--preprocess", options.preprocess,
                    "sends the recording, of as many channels as the machine has microphones, through the\n"
                    "beamforming chain first");
  return command;
}

void run_enroll_command(const EnrollOptions& options, std::ostream& output, std::ostream& errors) {
  check_file_name("--base", options.base, "standard input");
  check_file_name("--encoder", options.encoder, "standard input");
  check_file_name("--voice", options.voice, "standard input");
  check_file_name("--out", options.output, "standard output");
  refuse_same_file(options.base, options.output, "the target-speaker model");
  refuse_same_file(options.encoder, options.output, "the speaker encoder");
  refuse_same_file(options.voice, options.output, "the recording");
  const WavFormat format = read_voice_format(options.voice);
  check_microphones(options, format.channels);
  check_models(options);
  OutputFile file(options.output);
  CAISpeechEnhance enhancer;
  open_for(enhancer, options, format);
  const EnrolResult result = enroll(enhancer, options, file.temporary(), errors);
  const VoiceLevel level = enhancer.MakeAIModelLevel();
  if (has_measured(result.status)) print_level(level, result.status, output);
  if (result.status != 0) refuse(result, level, options);
  file.commit();
}

}  // namespace sonivo::tool
