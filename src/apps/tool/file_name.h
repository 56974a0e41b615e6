#pragma once

#include <string>

namespace sonivo::tool {

/// Throws UsageError for a name that can't be a file's: an empty one, and "-", which means a stream to other programs.
void check_file_name(const std::string& argument, const std::string& name, const std::string& stream);

}  // namespace sonivo::tool
