#include "driver/own_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace sonivo::driver {
namespace {

std::runtime_error folder_failure(const std::string& what, const std::filesystem::path& path) {
  return std::runtime_error(what + " " + path.string() + ": " + std::strerror(errno));
}

/// With those above it, each of whose names is on the disk afterwards.
void make_folders(const std::filesystem::path& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) return;
  const std::filesystem::path parent = path.has_parent_path() ? path.parent_path() : ".";
  if (parent != path) make_folders(parent);
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) throw folder_failure("can't make the folder", path);
  const Descriptor above(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (above.is_open()) ::fsync(above.number());
}

}  // namespace

Descriptor open_own_folder(const std::filesystem::path& path) {
  make_folders(path);
  Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat there {};
  if (!folder.is_open() || ::fstat(folder.number(), &there) != 0) throw folder_failure("can't open the folder", path);
  if (there.st_uid != ::geteuid()) throw std::runtime_error("the folder " + path.string() + " belongs to another user");
  if ((there.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw std::runtime_error("others may write to the folder " + path.string());
  }
  return folder;
}

}  // namespace sonivo::driver
