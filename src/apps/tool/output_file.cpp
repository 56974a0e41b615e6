#include "apps/tool/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <random>
#include <string>

#include "apps/tool/failure.h"

namespace sonivo::tool {

namespace {

constexpr std::array kEndingSignals{SIGINT, SIGTERM, SIGHUP};

// What the signal handler removes; written only while the signals have their default action.
std::array<char, PATH_MAX> pending_path;

extern "C" void remove_pending_file(int signal) {
  ::unlink(pending_path.data());
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

/// Leaves alone what the caller of the program chose to ignore.
void replace_action(void (*from)(int), void (*to)(int)) {
  for (const int signal : kEndingSignals) {
    const auto previous = std::signal(signal, to);
    if (previous != from) std::signal(signal, previous);
  }
}

void watch(const std::filesystem::path& temporary) {
  std::strncpy(pending_path.data(), temporary.c_str(), pending_path.size() - 1);
  replace_action(SIG_DFL, remove_pending_file);
}

void unwatch() { replace_action(remove_pending_file, SIG_DFL); }

/// Where the file is to go when the name is a link.
std::filesystem::path resolve(const std::string& name) {
  std::error_code error;
  const auto path = std::filesystem::weakly_canonical(name, error);
  return error ? std::filesystem::path(name) : path;
}

}  // namespace

OutputFile::OutputFile(const std::string& name) : name_(name), target_(resolve(name)) {
  std::error_code error;
  if (std::filesystem::is_directory(target_, error))
    throw Failure("'" + name + "' is a folder; give a file name in it");
  if (std::filesystem::exists(target_, error) && !std::filesystem::is_regular_file(target_, error)) {
    throw Failure("'" + name + "' is a pipe or a device; give a file name");
  }
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
  struct stat replaced {};
  if (::stat(target_.c_str(), &replaced) == 0) ::fchmod(descriptor_, replaced.st_mode & 0777);
}

OutputFile::~OutputFile() {
  ::close(descriptor_);
  if (temporary_.empty()) return;
  ::unlink(temporary_.c_str());
  unwatch();
}

void OutputFile::commit() {
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
    throw Failure("cannot create '" + name_ + "': " + std::strerror(errno) + "; choose another name");
  }
  temporary_.clear();
  unwatch();
}

}  // namespace sonivo::tool
