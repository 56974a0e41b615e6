#pragma once

#include <filesystem>
#include <string>

namespace sonivo {

/// There is such a file, and it is no folder.
inline bool IsExistingFile(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored) && !std::filesystem::is_directory(path, ignored);
}

}  // namespace sonivo
