#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>

#include "base/descriptor.h"

namespace sonivo::driver {

/// Where the driver of this user listens: $XDG_RUNTIME_DIR/sonivo/driver.sock; none without that variable.
std::optional<std::filesystem::path> default_socket_path();
/// Where it keeps its state: $XDG_STATE_HOME/sonivo, else ~/.local/state/sonivo; none without a home.
std::optional<std::filesystem::path> default_state_folder();

/// A listening socket of a driver's own, of mode 0600, in a folder as open_own_folder() makes and checks it. What a
/// driver that is gone left behind is replaced. The name goes with the object, unless another has taken it.
class ListenerPath {
 public:
  /// std::runtime_error when another driver listens there, something else has the name, somebody else holds the folder
  /// (flock) beyond the limit, or the system refuses.
  explicit ListenerPath(const std::filesystem::path& path,
                        std::chrono::milliseconds limit = std::chrono::milliseconds(2000));
  ~ListenerPath();
  ListenerPath(const ListenerPath&) = delete;
  ListenerPath& operator=(const ListenerPath&) = delete;

  /// The socket, which the caller keeps from now on.
  Descriptor take() { return std::move(socket_); }

 private:
  std::filesystem::path path_;
  Descriptor socket_;
  std::uint64_t device_ = 0;
  std::uint64_t inode_ = 0;
};

/// The listening socket that the service manager handed over, if it did; std::runtime_error when it is no such socket.
std::optional<Descriptor> inherited_listener();

}  // namespace sonivo::driver
