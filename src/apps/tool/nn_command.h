#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "apps/tool/network_file.h"

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo nn` is asked to do.
struct NNOptions {
  enum class Action { none, run, info, convert } action = Action::none;
  std::string network;
  std::string input;                   ///< matrix (run)
  std::string output;                  ///< matrix (run) or network (convert)
  std::optional<std::uint32_t> chunk;  ///< frames a call; without: all in one (run), 5 (info)
  std::uint32_t skip = 1;              ///< of so many frames one is computed
  std::optional<std::string> layer;    ///< whose output is asked for; without: the network's
  std::optional<NetworkForm> form;     ///< to convert into; without: the other one
};

/// Declares `sonivo nn run`, `info` and `convert`. Parsing fills `options`, which must outlive it.
void add_nn_commands(CLI::App& command, NNOptions& options);

/// `sonivo nn run`: a network over a matrix, through one scorer, results joined along time.
/// `sonivo nn info`: layers, links, sizes, parameters, multiply-adds per frame and memory, on `output`.
/// `sonivo nn convert`: binary form to document and back.
/// Throws Failure or UsageError, and leaves nothing behind then. A progress bar goes to `errors`.
void run_nn_command(const NNOptions& options, std::ostream& output, std::ostream& errors);

}  // namespace sonivo::tool
