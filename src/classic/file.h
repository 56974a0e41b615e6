#pragma once

#include <cstdio>
#include <memory>

namespace sonivo::classic {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
/// Null: not open.
using File = std::unique_ptr<std::FILE, CloseFile>;

}  // namespace sonivo::classic
