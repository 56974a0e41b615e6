#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "apps/tool/settings_option.h"

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo model` is asked to do.
struct ModelOptions {
  enum class Action { none, build, info, unpack } action = Action::none;
  std::string model;                ///< to list or take apart
  std::string output;               ///< model (build) or folder (unpack)
  std::string kind;                 ///< se, spkenc or vad (build)
  std::string network;              ///< (build)
  std::optional<std::string> flow;  ///< preprocessor (build)
  NamedValues settings;             ///< name and value of variables (build)
};

/// Declares `sonivo model build`, `info` and `unpack`. Parsing fills `options`, which must outlive it.
void add_model_commands(CLI::App& command, ModelOptions& options);

/// `sonivo model build`: a model file of a network, maybe a flow ahead of it, and values of variables.
/// `sonivo model info`: what a model file sets and holds, on `output`.
/// `sonivo model unpack`: its parts as files in a folder, which `build` takes.
/// Throws Failure or UsageError.
void run_model_command(const ModelOptions& options, std::ostream& output);

}  // namespace sonivo::tool
