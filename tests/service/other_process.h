#pragma once

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "platform/control_frames.h"
#include "platform/linux/control_bus.h"

namespace sonivo::test {

/// A client of the driver in a process of its own. To be made before this process has threads.
class OtherProcess {
 public:
  explicit OtherProcess(const std::string& driver_socket) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
      throw std::runtime_error("socketpair");
    orders_ = Descriptor(ends[0]);
    Descriptor taken(ends[1]);
    id_ = ::fork();
    if (id_ != 0) return;
    orders_.close();
    serve(taken.number(), driver_socket);
    ::_exit(0);
  }
  ~OtherProcess() {
    orders_.close();
    ::waitpid(id_, nullptr, 0);
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  /// What the driver answers it.
  Error request(std::uint32_t code, std::span<const std::byte> input) {
    std::vector<std::byte> order(sizeof code + input.size());
    std::memcpy(order.data(), &code, sizeof code);
    std::copy(input.begin(), input.end(), order.begin() + sizeof code);
    Error answer = error::kBusy;
    const bool done = ::send(orders_.number(), order.data(), order.size(), MSG_NOSIGNAL) > 0 &&
                      ::recv(orders_.number(), &answer, sizeof answer, 0) == sizeof answer;
    return done ? answer : error::kDeviceNotConnected;
  }

 private:
  static void serve(int orders, const std::string& driver_socket) {
    std::vector<std::byte> order(control::kMaxRequestBytes);
    for (;;) {
      const ssize_t count = ::recv(orders, order.data(), order.size(), 0);
      std::uint32_t code = 0;
      if (count < static_cast<ssize_t>(sizeof code)) return;
      std::memcpy(&code, order.data(), sizeof code);
      linux::ControlBus bus(driver_socket);
      Error answer = error::kNone;
      std::uint32_t bytes = 0;
      if (const auto device = bus.open(driver_socket, Sharing::shared, Completion::synchronous, answer)) {
        const auto input =
            std::span<const std::byte>(order).first(static_cast<std::size_t>(count)).subspan(sizeof code);
        answer = device->control_now(code, input, {}, bytes);
      }
      if (::send(orders, &answer, sizeof answer, MSG_NOSIGNAL) < 0) return;
    }
  }

  Descriptor orders_;
  pid_t id_ = 0;
};

}  // namespace sonivo::test
