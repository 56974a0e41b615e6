#pragma once

#include <iosfwd>

#include "apps/tool/relay_options.h"

namespace sonivo::tool {

/// `sonivo relay`: writes the output file and prints a table of the run. Throws Failure or UsageError, and leaves
/// nothing behind then. Progress and traces go to `errors`.
void run_relay_command(const RelayOptions& options, std::ostream& output, std::ostream& errors);

}  // namespace sonivo::tool
