#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo quality` is asked to do.
struct QualityOptions {
  std::string reference;
  std::string test;
  std::optional<std::int64_t> delay_frames;  ///< of TEST, negative when it is early; searched without
  std::optional<std::string> strokes;        ///< recording of the key strokes alone
};

/// Declares the command; parsing fills `options`, which must outlive it.
CLI::App* add_quality_command(CLI::App& app, QualityOptions& options);

/// `sonivo quality`: prints how near the first channel of TEST is to that of REF. Throws Failure.
void run_quality_command(const QualityOptions& options, std::ostream& output);

}  // namespace sonivo::tool
