#include "driver/listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "driver/own_folder.h"

namespace sonivo::driver {
namespace {

constexpr int kBacklog = 64;
constexpr int kFirstInherited = 3;  // where the service manager puts what it hands over

std::runtime_error listener_failure(const std::filesystem::path& path, const std::string& why) {
  return std::runtime_error("can't listen at " + path.string() + ": " + why);
}

std::runtime_error listener_failure(const std::filesystem::path& path) {
  return listener_failure(path, std::strerror(errno));
}

std::optional<std::string> absolute_variable(const char* name) {
  const char* const value = std::getenv(name);
  if (value == nullptr || value[0] != '/') return std::nullopt;
  return value;
}

sockaddr_un address_of(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = path.string();
  if (name.size() >= sizeof address.sun_path) throw listener_failure(path, "the path is too long for a socket");
  std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
  return address;
}

/// Removes what a driver that is gone left; the folder is locked meanwhile.
void clear_the_way(const std::filesystem::path& path, const sockaddr_un& address) {
  struct stat there {};
  if (::lstat(path.c_str(), &there) != 0) return;
  if (!S_ISSOCK(there.st_mode)) throw listener_failure(path, "something that is no socket has that name");
  const Descriptor probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe.is_open()) throw listener_failure(path);
  const bool connected = ::connect(probe.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  if (connected || errno == EAGAIN) throw listener_failure(path, "another driver does");
  if (errno != ECONNREFUSED) throw listener_failure(path);
  if (::unlink(path.c_str()) != 0) throw listener_failure(path);
}

/// Of drivers that start at the same time one after another has the folder; none has it for long.
void lock_folder(const Descriptor& folder, const std::filesystem::path& path, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (::flock(folder.number(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) throw listener_failure(path);
    if (std::chrono::steady_clock::now() >= end) throw listener_failure(path, "its folder is locked");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

std::optional<std::filesystem::path> default_socket_path() {
  const auto runtime = absolute_variable("XDG_RUNTIME_DIR");
  if (!runtime) return std::nullopt;
  return std::filesystem::path(*runtime) / "sonivo" / "driver.sock";
}

std::optional<std::filesystem::path> default_state_folder() {
  if (const auto state = absolute_variable("XDG_STATE_HOME")) return std::filesystem::path(*state) / "sonivo";
  if (const auto home = absolute_variable("HOME")) {
    return std::filesystem::path(*home) / ".local" / "state" / "sonivo";
  }
  return std::nullopt;
}

ListenerPath::ListenerPath(const std::filesystem::path& path, std::chrono::milliseconds limit)
    : path_(std::filesystem::absolute(path)) {
  const sockaddr_un address = address_of(path_);
  const Descriptor folder = open_own_folder(path_.parent_path());
  lock_folder(folder, path_, limit);
  clear_the_way(path_, address);
  socket_ = Descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket_.is_open()) throw listener_failure(path_);
  ::fchmod(socket_.number(), 0600);  // the name gets this mode, less the umask
  struct stat made {};
  if (::bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::stat(path_.c_str(), &made) != 0 || ::listen(socket_.number(), kBacklog) != 0) {
    throw listener_failure(path_);
  }
  device_ = made.st_dev;
  inode_ = made.st_ino;
}

ListenerPath::~ListenerPath() {
  struct stat there {};
  if (::lstat(path_.c_str(), &there) == 0 && there.st_dev == device_ && there.st_ino == inode_) {
    ::unlink(path_.c_str());
  }
}

std::optional<Descriptor> inherited_listener() {
  const char* const process = std::getenv("LISTEN_PID");
  const char* const count = std::getenv("LISTEN_FDS");
  if (process == nullptr || count == nullptr || process != std::to_string(::getpid())) return std::nullopt;
  if (count != std::string("1"))
    throw std::runtime_error("the service manager handed over " + std::string(count) + " sockets instead of one");
  int type = 0;
  int listens = 0;
  socklen_t size = sizeof type;
  if (::getsockopt(kFirstInherited, SOL_SOCKET, SO_TYPE, &type, &size) != 0 || type != SOCK_SEQPACKET ||
      ::getsockopt(kFirstInherited, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens == 0) {
    throw std::runtime_error("what the service manager handed over is no listening socket for packets");
  }
  ::fcntl(kFirstInherited, F_SETFD, FD_CLOEXEC);
  return Descriptor(kFirstInherited);
}

}  // namespace sonivo::driver
