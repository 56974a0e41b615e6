#pragma once

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "driver/disk.h"

namespace sonivo::test {

/// A disk on which the step with this number fails, counted from 1 over all writes, syncs and renames. A failing write
/// writes half of it before.
class FailingDisk final : public driver::Disk {
 public:
  int fail_at = 0;
  int number = ENOSPC;
  int steps = 0;

  ssize_t write(int file, const void* bytes, std::size_t count) override {
    if (!fails()) return Disk::write(file, bytes, std::min<std::size_t>(count, 100));
    if (Disk::write(file, bytes, count / 2) < 0) return -1;
    errno = number;
    return -1;
  }
  int sync(int file) override { return fails() ? -1 : Disk::sync(file); }
  int rename(int folder, const char* from, const char* to) override {
    return fails() ? -1 : Disk::rename(folder, from, to);
  }

 private:
  bool fails() {
    errno = number;
    return ++steps == fail_at;
  }
};

}  // namespace sonivo::test
