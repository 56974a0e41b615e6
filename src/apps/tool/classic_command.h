#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace sonivo::tool {

enum class ClassicChainKind { keycancel, beamforming };

/// What `sonivo classic` is asked to do.
struct ClassicOptions {
  ClassicChainKind chain = ClassicChainKind::keycancel;
  std::optional<std::string> params;  ///< without: the set that belongs to the program
  std::string input;
  std::string output;
  std::uint16_t block_frames = 480;
  bool key = true;
  bool noise = true;
  bool beam = true;
};

/// Declares the command; parsing fills `options`, which must outlive it.
CLI::App* add_classic_command(CLI::App& app, ClassicOptions& options);

/// `sonivo classic`: one classic chain over a file, block by block. The output is 32-bit float, as long as the input
/// and as late as the chain is. Throws Failure or UsageError and leaves nothing behind then.
void run_classic_command(const ClassicOptions& options, std::ostream& errors);

}  // namespace sonivo::tool
