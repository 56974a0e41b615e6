#include "apps/tool/file_name.h"

#include "apps/tool/failure.h"

namespace sonivo::tool {

void check_file_name(const std::string& argument, const std::string& name, const std::string& stream) {
  if (name.empty()) throw UsageError(argument + " takes the name of a file, not ''");
  if (name == "-") throw UsageError(argument + " must be a file: '-' for " + stream + " is not supported");
}

}  // namespace sonivo::tool
