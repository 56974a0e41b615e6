#include "apps/tool/classic_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iomanip>
#include <ostream>
#include <vector>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/numbers.h"
#include "apps/tool/output_file.h"
#include "apps/tool/param_blob.h"
#include "apps/tool/progress.h"
#include "apps/tool/wav_file.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"

namespace sonivo::tool {

namespace {

constexpr const char* kClassicDescription =
    "Sends a WAV file through one classic chain, block by block: keycancel removes key strokes and\n"
    "noise from every channel, beamforming forms two beams of the first two channels before that\n"
    "(microphones 60 mm apart, the talker ahead) and writes one signal to every channel.\n"
    "OUT is 32-bit float, as long as IN, and as late as the chain is.";

constexpr const char* kClassicExample =
    "Example:\n"
    "  sonivo classic keycancel noisy.wav clean.wav --key off\n";

ClassicChainKind parse_classic_chain(const std::string& text) {
  if (text == "keycancel") return ClassicChainKind::keycancel;
  if (text == "beamforming") return ClassicChainKind::beamforming;
  throw UsageError("CHAIN is keycancel or beamforming, not '" + text + "'");
}

const char* name_of(ClassicChainKind chain) {
  return chain == ClassicChainKind::keycancel ? "keycancel" : "beamforming";
}

void add_switch(CLI::App& command, const std::string& name, bool& on, const std::string& description) {
  const auto parse = [name, &on](const std::string& text) {
    if (text != "on" && text != "off") throw UsageError(name + " takes on or off, not '" + text + "'");
    on = text == "on";
  };
  command.add_option_function<std::string>(name, parse, description + ", on or off (default on)")->type_name("SWITCH");
}

void open_beams(CKeyCancel&, bool) {}
void open_beams(CBeamFormingKeyCancel& chain, bool on) { chain.SetBeamFormingActive(on ? 1 : 0); }

template <class Chain>
void open(Chain& chain, const ClassicOptions& options, const FloatAudio& audio) {
  open_with_params(chain, options.params, name_of(options.chain), audio.rate_hz, audio.channels, options.block_frames);
  chain.SetKeyReductionActive(options.key ? 1 : 0);
  chain.SetNoiseReductionActive(options.noise ? 1 : 0);
  open_beams(chain, options.beam);
}

/// The last block is filled up with silence.
template <class Chain>
void process(Chain& chain, const ClassicOptions& options, FloatAudio& audio, Progress& progress) {
  const std::size_t block = std::size_t{options.block_frames} * audio.channels;
  const std::size_t samples = audio.samples.size();
  audio.samples.resize((samples + block - 1) / block * block);
  for (std::size_t at = 0; at < samples; at += block) {
    chain.Execute(audio.samples.data() + at);
    progress.update(at / audio.channels);
  }
  audio.samples.resize(samples);
}

template <class Chain>
void run(const ClassicOptions& options, FloatAudio& audio, Progress& progress) {
  Chain chain;
  open(chain, options, audio);
  process(chain, options, audio, progress);
}

}  // namespace

CLI::App* add_classic_command(CLI::App& app, ClassicOptions& options) {
  CLI::App* const command = app.add_subcommand("classic", kClassicDescription);
  command->footer(kClassicExample);
  command
      ->add_option_function<std::string>(
          "CHAIN", [&options](const std::string& text) { options.chain = parse_classic_chain(text); },
          "keycancel or beamforming")
      ->type_name("NAME")
      ->required();
  command->add_option("IN", options.input, "WAV file to process")->type_name("FILE")->required();
  command->add_option("OUT", options.output, "WAV file to write")->type_name("FILE")->required();
  command->add_option("--params", options.params, "parameter blob of the chain (default: its own set)")
      ->type_name("BLOB");
  const auto parse_block = [&options](const std::string& text) {
    const auto frames = parse_whole_number(text);
    if (!frames || *frames < 1 || *frames > 65535)
      throw UsageError("--block takes 1 to 65535 frames, not '" + text + "'");
    options.block_frames = static_cast<std::uint16_t>(*frames);
  };
  command->add_option_function<std::string>("--block", parse_block, "frames per call, 1 to 65535 (default 480)")
      ->type_name("FRAMES");
  add_switch(*command, "--key", options.key, "key reduction");
  add_switch(*command, "--noise", options.noise, "noise reduction");
  add_switch(*command, "--beam", options.beam, "beams, of the beamforming chain only");
  command->parse_complete_callback([command, &options] {
    if (options.chain == ClassicChainKind::keycancel && command->count("--beam") > 0)
      throw UsageError("--beam is for the beamforming chain; keycancel forms no beams");
  });
  return command;
}

void run_classic_command(const ClassicOptions& options, std::ostream& errors) {
  check_file_name("IN", options.input, "standard input");
  check_file_name("OUT", options.output, "standard output");
  refuse_same_file(options.input, options.output);
  refuse_same_file(param_blob_path(options.params, name_of(options.chain)), options.output, "the parameter blob");
  FloatAudio audio = read_wav_float(options.input);
  if (options.chain == ClassicChainKind::beamforming && audio.channels < 2) {
    throw Failure("'" + options.input + "' has one channel; the beamforming chain needs two microphones");
  }
  OutputFile file(options.output);
  {
    Progress progress(progress_terminal(errors), audio.frames());
    if (options.chain == ClassicChainKind::keycancel) {
      run<CKeyCancel>(options, audio, progress);
    } else {
      run<CBeamFormingKeyCancel>(options, audio, progress);
    }
  }
  write_wav(file, audio);
  file.commit();
}

}  // namespace sonivo::tool
