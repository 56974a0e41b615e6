#pragma once

#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo enroll` is asked to do.
struct EnrollOptions {
  std::string base;
  std::string encoder;
  std::string voice;
  std::string output;
  bool preprocess = false;
};

/// Declares the command. Parsing fills `options`, which must outlive it.
CLI::App* add_enroll_command(CLI::App& app, EnrollOptions& options);

/// Prints the measured levels. Throws UsageError and Failure.
void run_enroll_command(const EnrollOptions& options, std::ostream& output, std::ostream& errors);

}  // namespace sonivo::tool
