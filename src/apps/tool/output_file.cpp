#include "apps/tool/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "apps/tool/failure.h"

namespace sonivo::tool {

namespace {

constexpr std::array kEndingSignals{SIGINT, SIGTERM, SIGHUP};

// What is removed when the program ends before its time; written only while the signals have their default action.
std::array<char, PATH_MAX> pending_path;

extern "C" void remove_pending_file(int signal) {
  ::unlink(pending_path.data());
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

/// Of a thread that can't go on.
void remove_at_quick_exit() {
  if (pending_path[0] != '\0') ::unlink(pending_path.data());
}

/// Leaves alone what the caller of the program chose to ignore.
void replace_action(void (*from)(int), void (*to)(int)) {
  for (const int signal : kEndingSignals) {
    const auto previous = std::signal(signal, to);
    if (previous != from) std::signal(signal, previous);
  }
}

void watch(const std::filesystem::path& temporary) {
  [[maybe_unused]] static const int registered = std::at_quick_exit(remove_at_quick_exit);
  std::strncpy(pending_path.data(), temporary.c_str(), pending_path.size() - 1);
  replace_action(SIG_DFL, remove_pending_file);
}

void unwatch() {
  replace_action(remove_pending_file, SIG_DFL);
  pending_path[0] = '\0';
}

/// Whether the command was started with a redirection from or to the file; /dev/stdout is one of its names then.
bool is_redirection(const struct stat& file) {
  constexpr int kRedirections = 10;  // those that every shell has: 0 to 9
  for (int descriptor = 0; descriptor < kRedirections; ++descriptor) {
    struct stat open {};
    if (::fstat(descriptor, &open) == 0 && open.st_dev == file.st_dev && open.st_ino == file.st_ino) return true;
  }
  return false;
}

void refuse_all_but_a_file_of_its_own(const std::string& name, const struct stat& existing) {
  if (S_ISDIR(existing.st_mode)) throw Failure("'" + name + "' is a folder; give a file name in it");
  if (!S_ISREG(existing.st_mode)) throw Failure("'" + name + "' is a pipe or a device; give a file name");
  if (is_redirection(existing)) {
    throw Failure("'" + name + "' belongs to a redirection of this command; give the name of another file");
  }
}

/// Where the file is to go: the end of the links that the name may be, also when there is no file yet.
std::filesystem::path resolve(const std::string& name) {
  constexpr int kMaxLinks = 40;  // as the kernel has it
  std::filesystem::path path = name;
  std::error_code error;
  for (int links = 0; std::filesystem::is_symlink(path, error); ++links) {
    if (links == kMaxLinks) {
      throw Failure("cannot create '" + name + "': " + std::strerror(ELOOP) + "; choose another name");
    }
    path = path.parent_path() / std::filesystem::read_symlink(path, error);
  }
  return path;
}

}  // namespace

OutputFile::OutputFile(const std::string& name) : name_(name), target_(resolve(name)) {
  struct stat existing {};
  const bool replaces = ::stat(name.c_str(), &existing) == 0;
  if (replaces) refuse_all_but_a_file_of_its_own(name, existing);
  std::random_device random;
  temporary_ = target_.parent_path() / (".sonivo-" + std::to_string(random()) + "-" + std::to_string(random()));
  watch(temporary_);
  descriptor_ = ::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (descriptor_ < 0) {
    const int reason = errno;
    unwatch();
    throw Failure("cannot create '" + name + "': " + std::strerror(reason) +
                  "; choose a folder that exists and can be written to");
  }
  if (replaces) {
    mode_ = existing.st_mode & 0777;
    ::fchmod(descriptor_, mode_);
  }
}

OutputFile::~OutputFile() {
  ::close(descriptor_);
  if (temporary_.empty()) return;
  ::unlink(temporary_.c_str());
  unwatch();
}

void OutputFile::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      throw Failure("cannot write '" + name_ + "': " + std::strerror(errno) + "; make room or choose another folder");
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

void OutputFile::commit() {
  if (mode_ != 0) ::chmod(temporary_.c_str(), mode_);  // who wrote it by name may have made a new one
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
    throw Failure("cannot create '" + name_ + "': " + std::strerror(errno) + "; choose another name");
  }
  temporary_.clear();
  unwatch();
}

}  // namespace sonivo::tool
