#pragma once

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>

#include "driver/disk.h"

namespace sonivo::test {

/// A disk that doesn't take its time to sync, and on which the step with this number fails, counted from 1 over all
/// new files, writes, syncs and renames. A failing write writes half of it before.
class FailingDisk final : public driver::Disk {
 public:
  int fail_at = 0;
  int number = ENOSPC;
  int steps = 0;
  std::size_t part = 1 << 20;  ///< most bytes of one write

  int create(int folder, const char* name) override { return fails() ? -1 : Disk::create(folder, name); }
  ssize_t write(int file, const void* bytes, std::size_t count) override {
    if (!fails()) return Disk::write(file, bytes, std::min(count, part));
    if (Disk::write(file, bytes, count / 2) < 0) return -1;
    errno = number;
    return -1;
  }
  int sync(int) override { return fails() ? -1 : 0; }
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
