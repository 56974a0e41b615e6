#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <optional>

namespace sonivo {

/// Parses the command line of a daemon. The exit code where nothing is left to do: after --help, or when the arguments
/// make no sense, of which standard error tells.
inline std::optional<int> parse_options(CLI::App& app, int count, char** arguments) {
  try {
    app.parse(count, arguments);
    return std::nullopt;
  } catch (const CLI::Success& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 2;
  }
}

}  // namespace sonivo
