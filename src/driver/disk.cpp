#include "driver/disk.h"

#include <unistd.h>

#include <cstdio>

namespace sonivo::driver {

ssize_t Disk::write(int file, const void* bytes, std::size_t count) { return ::write(file, bytes, count); }

int Disk::sync(int file) { return ::fsync(file); }

int Disk::rename(int folder, const char* from, const char* to) { return ::renameat(folder, from, folder, to); }

}  // namespace sonivo::driver
