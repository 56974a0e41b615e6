#pragma once

#include <iosfwd>
#include <string>

#include "apps/tool/settings_option.h"

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo features` is asked to do.
struct FeaturesOptions {
  std::string input;     ///< WAV file
  std::string output;    ///< matrix
  NamedValues settings;  ///< names and values of feature extraction, as given
};

/// Declares `sonivo features`. Parsing fills `options`, which must outlive it.
CLI::App* add_features_command(CLI::App& app, FeaturesOptions& options);

/// `sonivo features`: the features of a WAV file as a matrix, a line per feature, columns are frames. Throws Failure or
/// UsageError, and leaves nothing behind then. A progress bar goes to `errors`.
void run_features_command(const FeaturesOptions& options, std::ostream& errors);

}  // namespace sonivo::tool
