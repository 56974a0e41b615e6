#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>

#include "base/descriptor.h"

namespace sonivo::driver {

/// Numbers of processes that aren't used twice, as those of the system are.
using ProcessId = std::uint64_t;

/// A process at the other end of a socket.
struct PeerProcess {
  ProcessId id = 0;
  pid_t number = 0;   ///< the system's, 0 in another pid namespace
  Descriptor handle;  ///< becomes readable when it ends
};

/// Tells the processes at the other ends of sockets apart: one that has the number of another that ended isn't taken
/// for that one, whoever holds its sockets still. Only those of other pid namespaces count as one.
class PeerProcesses {
 public:
  /// The process with this number, which connected the socket: the same object for all its sockets, as long as somebody
  /// holds on to it.
  std::shared_ptr<const PeerProcess> of(int socket, pid_t number);

 private:
  std::map<pid_t, std::weak_ptr<const PeerProcess>> known_;
  ProcessId latest_ = 0;
};

}  // namespace sonivo::driver
