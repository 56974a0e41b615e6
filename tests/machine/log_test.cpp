#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class LogTest : public OwnMachineTest {
 protected:
  /// Of a service without options, on a machine without logind.
  ChildProcess start_logged_service() {
    return server_->start({"sh", "-c", "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/none exec \"$0\" 2>\"$1\"",
                           SONIVO_SERVICE_PROGRAM, folder("log")});
  }
  std::string log() {
    std::ifstream file(folder("log"));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  bool comes_to_log(const std::string& text) {
    return comes_true([&] { return log().find(text) != std::string::npos; });
  }
};

TEST_F(LogTest, TellsOnceThatThereIsNoLogindAndWhenTheAudioServerGoesAndIsThereAgain) {
  start_driver();
  const ChildProcess service = start_logged_service();
  EXPECT_TRUE(comes_to_log("NorvellSonivoService: there is no logind: the session counts as the active one\n"));
  ASSERT_TRUE(comes_true([&] { return !server_->state_of("norvell.relay.microphone").empty(); }));
  EXPECT_THAT(log(), Not(HasSubstr("PipeWire")));
  server_->kill_server();
  EXPECT_TRUE(comes_to_log("NorvellSonivoService: PipeWire is gone; audio stands still until it is there\n"));
  server_->start_server();
  EXPECT_TRUE(comes_to_log("NorvellSonivoService: PipeWire is there again\n"));
  EXPECT_THAT(log(), Not(HasSubstr("can't be reached")));
}

TEST_F(LogTest, TellsOnceThatTheAudioServerIsNotThere) {
  server_->kill_server();
  start_driver();
  const ChildProcess service = start_logged_service();
  EXPECT_TRUE(comes_to_log("PipeWire can't be reached; audio stands still until it is there\n"));
  server_->start_server();
  EXPECT_TRUE(comes_to_log("PipeWire is there again\n"));
  EXPECT_EQ(log().find("PipeWire can't"), log().rfind("PipeWire can't"));
}

}  // namespace
}  // namespace sonivo::test
