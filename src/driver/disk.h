#pragma once

#include <sys/types.h>

#include <cstddef>

namespace sonivo::driver {

/// The calls that write a file, as the system has them: -1 and errno on failure. A seam for tests of what fails.
class Disk {
 public:
  virtual ~Disk() = default;
  /// A new file of mode 0600, for writing; fails where something has the name.
  virtual int create(int folder, const char* name);
  virtual ssize_t write(int file, const void* bytes, std::size_t count);
  virtual int sync(int file);
  /// Both names in one folder.
  virtual int rename(int folder, const char* from, const char* to);
};

}  // namespace sonivo::driver
