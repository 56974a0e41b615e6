#include "driver/peer_processes.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace sonivo::driver {
namespace {

constexpr int kPeerHandle = 77;  // SO_PEERPIDFD, which older headers lack

/// Where the kernel doesn't know the option, that of whoever has the number now.
Descriptor handle_of(int socket, pid_t number) {
  int handle = -1;
  socklen_t size = sizeof handle;
  if (::getsockopt(socket, SOL_SOCKET, kPeerHandle, &handle, &size) == 0) return Descriptor(handle);
  if (errno != ENOPROTOOPT) return {};
  return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, number, 0)));
}

bool is_there(const PeerProcess& process) {
  if (process.number == 0) return true;
  pollfd polled{process.handle.number(), POLLIN, 0};
  return process.handle.is_open() && ::poll(&polled, 1, 0) == 0;
}

}  // namespace

std::shared_ptr<const PeerProcess> PeerProcesses::of(int socket, pid_t number) {
  std::erase_if(known_, [](const auto& each) { return each.second.expired(); });
  auto& known = known_[number];
  if (auto process = known.lock(); process && is_there(*process)) return process;
  auto process = std::make_shared<const PeerProcess>(PeerProcess{++latest_, number, handle_of(socket, number)});
  known = process;
  return process;
}

}  // namespace sonivo::driver
