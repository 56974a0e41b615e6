#include "apps/tool/nn_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ostream>
#include <vector>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/matrix_file.h"
#include "apps/tool/network_listing.h"
#include "apps/tool/numbers.h"
#include "apps/tool/output_file.h"
#include "apps/tool/printable.h"
#include "apps/tool/progress.h"
#include "apps/tool/wav_file.h"
#include "meridane/error.h"
#include "meridane/framescore/scorer.h"
#include "meridane/io/logging.h"

namespace sonivo::tool {

namespace {

using meridane::Matrix;
using meridane::Minibatch;
using meridane::NNParameter;
using meridane::NNScorer;

constexpr std::uint32_t kInfoFrames = 5;  ///< a call, unless said otherwise

/// Results of calls, one behind the other along time.
class Joined {
 public:
  void add(const Matrix& part) {
    if (part.cols() == 0) return;
    if (!parts_.empty() && parts_.front().rows() != part.rows()) throw Failure("the calls differ in their dimensions");
    parts_.push_back(part);
    frames_ += part.cols();
  }

  Matrix matrix() const {
    if (parts_.empty()) return {};
    Matrix whole(parts_.front().rows(), frames_);
    Eigen::Index at = 0;
    for (const Matrix& part : parts_) {
      whole.middleCols(at, part.cols()) = part;
      at += part.cols();
    }
    return whole;
  }

 private:
  std::vector<Matrix> parts_;
  Eigen::Index frames_ = 0;
};

void step(NNScorer& scorer, meridane::MinibatchPtr frames, const std::optional<std::string>& layer, Joined& results) {
  scorer.set_input(std::move(frames));
  const Matrix& output = scorer.output_minibatch().content();
  results.add(layer ? scorer.get_layer_output(*layer)->content() : output);
}

Matrix run_network(const NNParameter& network, const Matrix& x, const NNOptions& options, std::ostream& errors) {
  const auto scorer = std::dynamic_pointer_cast<NNScorer>(network.create_scorer());
  // A longer skip than the matrix has frames does no more than this one.
  scorer->set_frame_skip(static_cast<unsigned>(std::min<Eigen::Index>(options.skip, x.cols())));
  scorer->set_keeps_results(options.layer.has_value());
  const Eigen::Index chunk = options.chunk ? static_cast<Eigen::Index>(*options.chunk) : x.cols();
  Progress progress(progress_terminal(errors), static_cast<std::uint64_t>(x.cols()));
  Joined results;
  for (Eigen::Index t = 0; t < x.cols(); t += chunk) {
    const Eigen::Index frames = std::min(chunk, x.cols() - t);
    step(*scorer, std::make_shared<Minibatch>(Matrix(x.middleCols(t, frames))), options.layer, results);
    progress.update(static_cast<std::uint64_t>(t + frames));
  }
  // What its layers still hold back comes out of a step without input.
  if (std::dynamic_pointer_cast<meridane::NNScorerForLCBLSTM>(scorer)) step(*scorer, nullptr, options.layer, results);
  return results.matrix();
}

void run(const NNOptions& options, std::ostream& errors) {
  for (const auto& [argument, name] : {std::pair("NET", options.network), std::pair("--in", options.input)}) {
    check_file_name(argument, name, "standard input");
  }
  check_file_name("--out", options.output, "standard output");
  refuse_same_file(options.input, options.output);
  refuse_same_file(options.network, options.output);
  OutputFile file(options.output);
  const NetworkFile net = read_network(options.network);
  const Matrix x = read_matrix(options.input);
  try {
    file.write(matrix_text(run_network(*net.network, x, options, errors)));
  } catch (const meridane::BaseRuntimeError& error) {
    throw Failure("'" + options.network + "' cannot run on '" + options.input + "': " + error.what());
  }
  file.commit();
}

/// Of a stream with that many frames a call, once its layers remember no more than before.
std::string scorer_memory(const NNParameter& network, std::uint64_t frames) {
  constexpr std::uint64_t kMostInputs = 1 << 24;
  constexpr int kLeastCalls = 16, kMostCalls = 1000;
  if (network.ninput() > kMostInputs / frames) return "unknown: calls are too large to be tried";
  meridane::log_threshold() = meridane::kLogWarning;  // layers that print would print silence
  try {
    const auto scorer = std::dynamic_pointer_cast<NNScorer>(network.create_scorer());
    scorer->set_keeps_results(false);
    const auto silence = std::make_shared<Minibatch>(
        Matrix(Matrix::Zero(static_cast<Eigen::Index>(network.ninput()), static_cast<Eigen::Index>(frames))));
    std::uint64_t bytes = 0;
    // What is remembered grows in steps, each of which takes as long as all before it.
    for (int call = 1, growth = 1; call <= kMostCalls && (call <= kLeastCalls || call <= 3 * growth); ++call) {
      scorer->set_input(silence);
      scorer->execute();
      if (const std::uint64_t now = scorer->bytes(); now > bytes) {
        bytes = now;
        growth = call;
      }
    }
    return std::to_string(bytes) + " bytes for a stream in calls of " + std::to_string(frames) +
           (frames == 1 ? " frame" : " frames");
  } catch (const meridane::BaseRuntimeError& error) {
    return std::string("unknown: ") + printable(error.what());
  }
}

void info(const NNOptions& options, std::ostream& output) {
  check_file_name("NET", options.network, "standard input");
  const NetworkFile net = read_network(options.network);
  output << "form            " << (net.form == NetworkForm::xml ? "xml" : "binary") << '\n';
  list_network(*net.network, output);
  output << "memory          " << scorer_memory(*net.network, options.chunk.value_or(kInfoFrames)) << '\n';
}

void convert(const NNOptions& options) {
  check_file_name("IN", options.network, "standard input");
  check_file_name("OUT", options.output, "standard output");
  refuse_same_file(options.network, options.output);
  OutputFile file(options.output);
  const NetworkFile net = read_network(options.network);
  const NetworkForm other = net.form == NetworkForm::xml ? NetworkForm::binary : NetworkForm::xml;
  file.write(network_bytes(*net.network, options.form.value_or(other)));
  file.commit();
}

std::uint32_t positive_number(const char* option, const std::string& text) {
  const auto number = parse_whole_number(text);
  if (!number || *number == 0) {
    throw UsageError(std::string(option) + " takes a whole number of frames from 1 to 4294967295, not '" + text + "'");
  }
  return *number;
}

NetworkForm parse_form(const std::string& text) {
  if (text == "bin") return NetworkForm::binary;
  if (text == "xml") return NetworkForm::xml;
  throw UsageError("--to takes bin or xml, not '" + text + "'");
}

void add_chunk(CLI::App& command, NNOptions& options, const char* help) {
  command
      .add_option_function<std::string>(
          "--chunk", [&options](const std::string& text) { options.chunk = positive_number("--chunk", text); }, help)
      ->type_name("N");
}

void add_run(CLI::App& command, NNOptions& options) {
  CLI::App* const run = command.add_subcommand(
      "run",
      "Runs a network over a matrix of features, a line per row, columns are frames, and writes\n"
      "its output, or that of a layer, in the same way.");
  run->footer("Example:\n  sonivo nn run model.nn --in features.tsv --out scores.tsv --chunk 5\n");
  run->add_option("NET", options.network, "network, binary or XML")->type_name("FILE")->required();
  run->add_option("--in", options.input, "matrix to run on")->type_name("FILE")->required();
  run->add_option("--out", options.output, "matrix to write")->type_name("FILE")->required();
  add_chunk(*run, options, "frames a call (default: all in one)");
  run->add_option_function<std::string>(
         "--skip", [&options](const std::string& text) { options.skip = positive_number("--skip", text); },
         "computes one frame of K and repeats it (default: 1)")
      ->type_name("K");
  run->add_option("--layer", options.layer, "writes the output of this layer")->type_name("ID");
  run->callback([&options] { options.action = NNOptions::Action::run; });
}

}  // namespace

void add_nn_commands(CLI::App& command, NNOptions& options) {
  command.require_subcommand(1);
  command.footer(
      "Example:\n"
      "  sonivo nn info model.nn\n"
      "  sonivo nn convert model.nn model.xml\n");
  add_run(command, options);

  CLI::App* const info =
      command.add_subcommand("info",
                             "Lists layers, links, sizes, parameters, multiply-adds per frame, and the memory of a\n"
                             "stream beside the network.");
  info->footer("Example:\n  sonivo nn info model.nn\n");
  info->add_option("NET", options.network, "network, binary or XML")->type_name("FILE")->required();
  add_chunk(*info, options, "frames a call of the stream (default: 5)");
  info->callback([&options] { options.action = NNOptions::Action::info; });

  CLI::App* const convert = command.add_subcommand("convert", "Turns a binary network into an XML document, and back.");
  convert->footer("Example:\n  sonivo nn convert model.nn model.xml\n");
  convert->add_option("IN", options.network, "network, binary or XML")->type_name("FILE")->required();
  convert->add_option("OUT", options.output, "network to write")->type_name("FILE")->required();
  convert
      ->add_option_function<std::string>(
          "--to", [&options](const std::string& text) { options.form = parse_form(text); },
          "form to write (default: the other one)")
      ->type_name("bin|xml");
  convert->callback([&options] { options.action = NNOptions::Action::convert; });
}

void run_nn_command(const NNOptions& options, std::ostream& output, std::ostream& errors) {
  switch (options.action) {
    case NNOptions::Action::none:
      break;
    case NNOptions::Action::run:
      return run(options, errors);
    case NNOptions::Action::info:
      return info(options, output);
    case NNOptions::Action::convert:
      return convert(options);
  }
}

}  // namespace sonivo::tool
