#include "apps/tool/driver_connection.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstring>
#include <functional>
#include <ostream>
#include <thread>
#include <vector>

#include "apps/tool/failure.h"
#include "driver/listener.h"
#include "support/temporary_folder.h"

namespace sonivo::tool {
namespace {

/// A driver that does with its only client what a test says.
class SuchDriver {
 public:
  using Serve = std::function<void(SuchDriver&)>;

  SuchDriver(const std::string& path, Serve serve)
      : name_(path), listener_(name_.take()), thread_([this, serve = std::move(serve)] {
          pollfd polled{listener_.number(), POLLIN, 0};
          ASSERT_EQ(::poll(&polled, 1, 10'000), 1);
          client_ = Descriptor(::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC));
          serve(*this);
        }) {}
  ~SuchDriver() { thread_.join(); }

  void hang_up() { client_.close(); }
  /// Answers the next request with so many zeros.
  void answer(Error error, std::uint32_t output_bytes) {
    control::ReplyHead head{receive_id(), error, output_bytes};
    std::vector<std::byte> frame(sizeof head + output_bytes);
    std::memcpy(frame.data(), &head, sizeof head);
    EXPECT_EQ(::send(client_.number(), frame.data(), frame.size(), MSG_NOSIGNAL), static_cast<ssize_t>(frame.size()));
  }
  std::uint32_t receive_id() {
    control::RequestHead head;
    EXPECT_GE(::recv(client_.number(), &head, sizeof head, 0), static_cast<ssize_t>(sizeof head));
    return head.id;
  }

 private:
  driver::ListenerPath name_;
  Descriptor listener_;
  Descriptor client_;
  std::thread thread_;
};

class ToolBesideDriver : public testing::Test {
 protected:
  /// What an action at a connection to such a driver fails with.
  std::string complaint(const SuchDriver::Serve& serve, const std::function<void(DriverConnection&)>& action) {
    SuchDriver driver(path_, serve);
    try {
      DriverConnection connection(path_);
      action(connection);
      return "none";
    } catch (const Failure& failure) {
      return failure.what();
    }
  }
  static void ask(DriverConnection& connection) { connection.number(*control::find_setting("auto-exit")); }

  test::TemporaryFolder home_;
  const std::string path_ = home_ / "driver.sock";
};

TEST_F(ToolBesideDriver, IsToldThatItTakesNoMoreClients) {
  EXPECT_EQ(complaint([](SuchDriver& driver) { driver.hang_up(); }, ask),
            "the driver at '" + path_ +
                "' takes no connection: it serves too many programs already; end one of them, or restart it: "
                "systemctl --user restart NorvellSonivoDriver");
}

TEST_F(ToolBesideDriver, IsToldThatItHasEndedMeanwhile) {
  const auto serve = [](SuchDriver& driver) {
    driver.answer(error::kNone, 4);
    driver.receive_id();
    driver.hang_up();
  };
  EXPECT_EQ(complaint(serve, ask),
            "the driver at '" + path_ +
                "' closed the connection: it ended, or serves another user or too many programs already");
}

TEST_F(ToolBesideDriver, DoesNotTakeAnAnswerThatIsTooShort) {
  const auto serve = [](SuchDriver& driver) {
    driver.answer(error::kNone, 4);
    driver.answer(error::kNone, 2);
  };
  EXPECT_EQ(complaint(serve, ask), "the driver does not tell auto-exit: error 13");
}

struct Refusal {
  Error error;
  const char* words;
};
void PrintTo(const Refusal& row, std::ostream* out) { *out << "error " << row.error; }
class ToolBesideDriverThatRefuses : public ToolBesideDriver, public testing::WithParamInterface<Refusal> {};

TEST_P(ToolBesideDriverThatRefuses, SaysWhyAndWhatToDo) {
  const auto serve = [](SuchDriver& driver) {
    driver.answer(error::kNone, 4);
    driver.answer(GetParam().error, 0);
  };
  EXPECT_EQ(complaint(serve, [](auto& driver) { driver.set_number(control::SetAutoMuteMTG, 1, "auto-mute"); }),
            std::string("the driver does not set auto-mute: ") + GetParam().words);
  EXPECT_EQ(complaint(serve, [](auto& driver) { driver.report(); }),
            std::string("the driver does not give the service's report: ") + GetParam().words);
}

INSTANTIATE_TEST_SUITE_P(
    Errors, ToolBesideDriverThatRefuses,
    testing::Values(Refusal{error::kDiskFull, "its disk is full; make room for its state folder"},
                    Refusal{error::kWriteFault, "it cannot write to its state folder; its log tells why"},
                    Refusal{error::kBusy, "it has too much to do; try again"},
                    Refusal{error::kInvalidFunction,
                            "it does not know this request; install a driver and a sonivo of the same version"},
                    Refusal{error::kInvalidParameter, "error 87"}));

}  // namespace
}  // namespace sonivo::tool
