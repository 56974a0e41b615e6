#include "apps/tool/share_folder.h"

#include <system_error>

namespace sonivo::tool {

std::filesystem::path share_folder() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return program.parent_path().parent_path() / "share/sonivo";
}

}  // namespace sonivo::tool
