#pragma once

#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace sonivo::tool {

enum class BlobKind { keycancel, beamforming };

/// What `sonivo params` is asked to do.
struct ParamsOptions {
  enum class Action { none, build, show } action = Action::none;
  BlobKind kind = BlobKind::keycancel;
  std::string par_file;
  std::string blob;
};

/// Declares `sonivo params build` and `sonivo params show`. Parsing fills `options`, which must outlive it.
void add_params_commands(CLI::App& command, ParamsOptions& options);

/// `sonivo params build`: turns a parameter file into a blob; what the reader has to say goes to `output`.
/// `sonivo params show`: lists every field of a blob on `output`.
/// Throws Failure, and leaves nothing behind then.
void run_params_command(const ParamsOptions& options, std::ostream& output);

}  // namespace sonivo::tool
