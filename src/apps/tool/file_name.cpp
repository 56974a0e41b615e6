#include "apps/tool/file_name.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "apps/tool/failure.h"

namespace sonivo::tool {

void check_file_name(const std::string& argument, const std::string& name, const std::string& stream) {
  if (name.empty()) throw UsageError(argument + " takes the name of a file, not ''");
  if (name == "-") throw UsageError(argument + " must be a file: '-' for " + stream + " is not supported");
}

void require_file(const std::string& path, const std::string& what) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (std::filesystem::is_directory(status)) throw Failure("'" + path + "' is a folder; give " + what);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw Failure("'" + path + "' is a pipe or a device; give " + what);
  }
  if (::access(path.c_str(), R_OK) != 0) {
    throw Failure("cannot open '" + path + "': " + std::strerror(errno) + "; check its name and its permissions");
  }
}

void refuse_same_file(const std::string& input, const std::string& output, const std::string& what) {
  std::error_code missing;
  if (std::filesystem::equivalent(input, output, missing)) {
    throw Failure("'" + output + "' is " + what + " itself; choose another name for the output");
  }
}

}  // namespace sonivo::tool
