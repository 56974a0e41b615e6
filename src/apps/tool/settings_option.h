#pragma once

#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace sonivo::tool {

/// Names and values, in the order given.
using NamedValues = std::vector<std::pair<std::string, std::string>>;

/// Declares `--set NAME=VALUE`, which may be given any number of times. Parsing fills `settings`, which must outlive
/// it, and throws UsageError for what has no name or no sign.
void add_settings_option(CLI::App& command, NamedValues& settings, const std::string& description);

}  // namespace sonivo::tool
