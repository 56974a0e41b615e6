#include "platform/linux/processes.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern "C" {  // which the header doesn't say in every version of the library
#include <sys/pidfd.h>
}

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace sonivo::linux {
namespace {

Error error_of(int number) {
  switch (number) {
    case ENOENT:
    case ENOTDIR:
      return error::kFileNotFound;
    case EACCES:
    case EPERM:
      return error::kAccessDenied;
    case ESRCH:
      return error::kInvalidParameter;
    default:
      return error::kInvalidFunction;
  }
}

std::optional<pid_t> process_number(const std::string& text) {
  pid_t number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// The file name of its program; where that isn't ours to see, as for one outside of our own sandbox, the name that it
/// was started by. Empty once it is gone, and for the kernel's own.
std::string program_name(const std::filesystem::path& process) {
  constexpr std::string_view kDeleted = " (deleted)";
  std::error_code why;
  std::string name = std::filesystem::read_symlink(process / "exe", why).filename().string();
  if (name.ends_with(kDeleted)) name.resize(name.size() - kDeleted.size());
  if (why == std::errc::permission_denied) {
    std::getline(std::ifstream(process / "cmdline"), name, '\0');
    name = std::filesystem::path(name).filename().string();
  }
  return name;
}

bool has_ended(const Descriptor& process, int limit_ms) {
  pollfd polled{process.number(), POLLIN, 0};
  int count = 0;
  do {
    count = ::poll(&polled, 1, limit_ms);
  } while (count < 0 && errno == EINTR);
  return count > 0;
}

void reap(const Descriptor& child) {
  siginfo_t ignored{};
  ::waitid(P_PIDFD, static_cast<id_t>(child.number()), &ignored, WEXITED | WNOHANG);
}

/// What a started program is given.
class SpawnSetting {
 public:
  SpawnSetting() {
    ::posix_spawnattr_init(&attributes);
    ::posix_spawn_file_actions_init(&actions);
    sigset_t none, all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  ~SpawnSetting() {
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
  }
  SpawnSetting(const SpawnSetting&) = delete;
  SpawnSetting& operator=(const SpawnSetting&) = delete;

  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t actions{};
};

}  // namespace

class ProcProcesses::Handle final : public Process {
 public:
  /// `parent` of a child, which has to be buried.
  Handle(Descriptor process, ProcProcesses* parent) : process_(std::move(process)), parent_(parent) {}
  ~Handle() override {
    if (parent_ != nullptr) parent_->adopt(std::move(process_));
  }

  Error terminate(std::uint32_t) override {
    if (has_ended(process_, 0)) return error::kAccessDenied;
    return ::pidfd_send_signal(process_.number(), SIGKILL, nullptr, 0) == 0 ? error::kNone : error::kAccessDenied;
  }

  Error wait() override { return has_ended(process_, -1) ? error::kNone : error::kInvalidHandle; }

 private:
  Descriptor process_;
  ProcProcesses* const parent_;
};

ProcProcesses::ProcProcesses(SessionOf session_of, std::filesystem::path proc)
    : session_of_(std::move(session_of)), proc_(std::move(proc)) {}

Error ProcProcesses::list(std::vector<ProcessInfo>& processes) {
  bury();
  processes.clear();
  std::error_code why;
  std::vector<pid_t> numbers;
  for (std::filesystem::directory_iterator each(proc_, why), end; !why && each != end; each.increment(why)) {
    if (const auto number = process_number(each->path().filename().string())) numbers.push_back(*number);
  }
  if (why) return error_of(why.value());
  std::sort(numbers.begin(), numbers.end());
  for (const pid_t number : numbers) {
    std::string name = program_name(proc_ / std::to_string(number));
    if (!name.empty()) processes.push_back({static_cast<std::uint32_t>(number), session_of_(number), std::move(name)});
  }
  return error::kNone;
}

std::unique_ptr<Process> ProcProcesses::open(std::uint32_t id, Error& why) {
  why = error::kNone;
  Descriptor process(::pidfd_open(static_cast<pid_t>(id), 0));
  if (!process.is_open()) {
    why = errno == EINVAL ? error::kInvalidParameter : error_of(errno);
  } else if (has_ended(process, 0)) {
    why = error::kInvalidParameter;
  } else if (::pidfd_send_signal(process.number(), 0, nullptr, 0) != 0) {
    why = error_of(errno);
  }
  if (why != error::kNone) return nullptr;
  return std::make_unique<Handle>(std::move(process), nullptr);
}

std::unique_ptr<Process> ProcProcesses::start(const ProcessStart& what, Error& why) {
  bury();
  std::vector<std::string> words{what.program};
  words.insert(words.end(), what.arguments.begin(), what.arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);

  const SpawnSetting setting;
  pid_t child = 0;
  const int failure =
      ::posix_spawnp(&child, what.program.c_str(), &setting.actions, &setting.attributes, pointers.data(), environ);
  why = failure == 0 ? error::kNone : error_of(failure);
  if (failure != 0) return nullptr;
  Descriptor process(::pidfd_open(child, 0));
  if (!process.is_open()) {
    why = error::kInvalidHandle;
    return nullptr;
  }
  return std::make_unique<Handle>(std::move(process), this);
}

void ProcProcesses::adopt(Descriptor child) {
  {
    const std::scoped_lock lock(mutex_);
    children_.push_back(std::move(child));
  }
  bury();
}

void ProcProcesses::bury() {
  const std::scoped_lock lock(mutex_);
  std::erase_if(children_, [](const Descriptor& child) {
    const bool ended = has_ended(child, 0);
    if (ended) reap(child);
    return ended;
  });
}

}  // namespace sonivo::linux
