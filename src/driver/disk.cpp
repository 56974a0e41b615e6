#include "driver/disk.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace sonivo::driver {

int Disk::create(int folder, const char* name) {
  return ::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

ssize_t Disk::write(int file, const void* bytes, std::size_t count) { return ::write(file, bytes, count); }

int Disk::sync(int file) { return ::fsync(file); }

int Disk::rename(int folder, const char* from, const char* to) { return ::renameat(folder, from, folder, to); }

}  // namespace sonivo::driver
