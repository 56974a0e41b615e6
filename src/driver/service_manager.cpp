#include "driver/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#include "base/descriptor.h"

namespace sonivo::driver {

void tell_service_manager(const char* state) {
  const char* const name = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (name == nullptr || name[0] == '\0' || std::strlen(name) >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, name, std::strlen(name));
  if (name[0] == '@') address.sun_path[0] = '\0';
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(name));
  ::sendto(socket.number(), state, std::strlen(state), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size);
}

std::optional<std::chrono::milliseconds> watchdog_period() {
  const char* const process = std::getenv("WATCHDOG_PID");
  const char* const limit = std::getenv("WATCHDOG_USEC");
  if (limit == nullptr || (process != nullptr && process != std::to_string(::getpid()))) return std::nullopt;
  const std::string_view text = limit;
  std::uint64_t microseconds = 0;
  const auto [end, wrong] = std::from_chars(text.data(), text.data() + text.size(), microseconds);
  constexpr std::uint64_t kLongest = 86'400'000'000;  // a day, which a wait can still be told
  if (wrong != std::errc{} || end != text.data() + text.size() || microseconds == 0 || microseconds > kLongest) {
    return std::nullopt;
  }
  return std::chrono::milliseconds(std::max<std::uint64_t>(microseconds / 2000, 1));
}

}  // namespace sonivo::driver
