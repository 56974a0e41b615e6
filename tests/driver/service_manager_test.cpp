#include "driver/service_manager.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "base/descriptor.h"
#include "environment.h"
#include "support/temporary_folder.h"

namespace sonivo::driver {
namespace {

using namespace std::chrono_literals;
using test::Variable;

TEST(ServiceManager, IsToldAtItsSocket) {
  const test::TemporaryFolder home;
  for (const std::string& name : {home / "notify.sock", "@sonivo-test-" + std::to_string(::getpid())}) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    if (name[0] == '@') address.sun_path[0] = '\0';
    const Descriptor manager(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    ASSERT_EQ(::bind(manager.number(), reinterpret_cast<const sockaddr*>(&address), size), 0) << name;
    const Variable variable("NOTIFY_SOCKET", name.c_str());
    tell_service_manager("READY=1");
    char text[32];
    ASSERT_EQ(::recv(manager.number(), text, sizeof text, 0), 7) << name;
    EXPECT_EQ(std::string(text, 7), "READY=1");
  }
}

TEST(ServiceManager, WantsASignOfLifeTwiceInItsTime) {
  const Variable nobody("WATCHDOG_PID", nullptr);
  {
    const Variable limit("WATCHDOG_USEC", "30000000");
    EXPECT_EQ(watchdog_period(), 15s);
    const Variable process("WATCHDOG_PID", std::to_string(::getpid()).c_str());
    EXPECT_EQ(watchdog_period(), 15s);
  }
  const Variable limit("WATCHDOG_USEC", "1");
  EXPECT_EQ(watchdog_period(), 1ms);
}

TEST(ServiceManager, WantsNoneOfAnotherProcessNorInATimeThatIsNone) {
  const Variable none("WATCHDOG_USEC", nullptr);
  EXPECT_EQ(watchdog_period(), std::nullopt);
  for (const char* const each : {"", "0", "-5", "5s", "18446744073709551616", "18446744073709551615"}) {
    const Variable limit("WATCHDOG_USEC", each);
    EXPECT_EQ(watchdog_period(), std::nullopt) << each;
  }
  const Variable limit("WATCHDOG_USEC", "30000000");
  const Variable process("WATCHDOG_PID", "1");
  EXPECT_EQ(watchdog_period(), std::nullopt);
}

}  // namespace
}  // namespace sonivo::driver
