#include "enhance/open_file.h"

#include <sys/stat.h>

#include <cstdio>

namespace sonivo {

File open_to_read(const char* name) {
  struct stat status {};
  if (::stat(name, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  return File(std::fopen(name, "rb"));
}

}  // namespace sonivo
