#pragma once

#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo enhance` is asked to do.
struct EnhanceOptions {
  std::string model;
  std::string input;
  std::string output;
  std::optional<float> strength;   ///< without: the model's own
  std::optional<float> switching;  ///< without: the model's own
  bool raw = false;
};

/// Declares the command; parsing fills `options`, which must outlive it.
CLI::App* add_enhance_command(CLI::App& app, EnhanceOptions& options);

/// `sonivo enhance`: a file through a speech enhancement model, as a running application hears it. The delay and the
/// real-time factor go to `output`, a progress bar to `errors`. Throws Failure or UsageError and leaves nothing behind
/// then. The memory it needs doesn't depend on the length of the file.
void run_enhance_command(const EnhanceOptions& options, std::ostream& output, std::ostream& errors);

}  // namespace sonivo::tool
