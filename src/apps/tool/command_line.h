#pragma once

#include <iosfwd>
#include <span>
#include <string>

namespace sonivo::tool {

/// Runs the subcommand that the arguments (without the program's name) ask for and answers the exit code: 0, 1 when
/// the command failed, 2 when the arguments make no sense, or what the command means by another one. Errors are one
/// line, "error: ...", on `errors`, without control characters whatever the arguments hold.
int run_command_line(std::span<const std::string> arguments, std::ostream& output, std::ostream& errors);

}  // namespace sonivo::tool
