// What the service's log says of its driver.

#include "host/driver_notes.h"

#include "host/status_report.h"
#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class NotesOfDriver : public RulesBench, public ::testing::Test {
 protected:
  NotesOfDriver() {
    host.m_DriverNotes.SetWriter([this](const std::string& line) { lines.push_back(line); });
    connected(true);
  }
  void connected(bool ready) {
    host.m_bDriverReady = ready ? 1 : 0;
    if (ready) {
      driver.InitDriverInfo(control::kControlInterface);
    } else {
      driver.CloseDriverHandles();
    }
  }
  void poll_for(std::uint32_t ms) {
    for (std::uint32_t passed = 0; passed < ms; passed += 200) {
      publisher.Publish();
      machine.run_for(200);
    }
  }

  std::vector<std::string> lines;
  StatusPublisher publisher{host};
};

TEST_F(NotesOfDriver, AreNoneWhileAllIsWell) {
  poll_for(60'000);
  connected(false);  // for less than it takes to come back
  poll_for(4000);
  connected(true);
  poll_for(60'000);
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(NotesOfDriver, SayOnceThatItIsNotThereAndOnceThatItIs) {
  connected(false);
  poll_for(60'000);
  EXPECT_THAT(lines, ElementsAre("the driver is not connected"));
  connected(true);
  poll_for(60'000);
  EXPECT_THAT(lines, ElementsAre("the driver is not connected", "the driver is connected"));
}

TEST_F(NotesOfDriver, SayOnceThatAnotherServiceHasIt) {
  device.fail(control::NSV_PUBLISH_REPORT, error::kAccessDenied);
  poll_for(60'000);
  EXPECT_THAT(lines, ElementsAre("another service has the driver; this one waits for its end"));
  device.pardon(control::NSV_PUBLISH_REPORT);
  poll_for(1000);
  EXPECT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines.back(), "the driver is connected");
}

TEST_F(NotesOfDriver, SayNothingOfTheMomentThatItTakesToBecomeTheService) {
  device.fail(control::NSV_PUBLISH_REPORT, error::kAccessDenied);
  poll_for(800);
  device.pardon(control::NSV_PUBLISH_REPORT);
  poll_for(60'000);
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(NotesOfDriver, SayNothingElseWhenTheThreadsStartAnew) {
  connected(false);
  poll_for(60'000);
  StatusPublisher next(host);
  for (int i = 0; i < 100; ++i) {
    next.Publish();
    machine.run_for(200);
  }
  EXPECT_THAT(lines, ElementsAre("the driver is not connected"));
}

}  // namespace
}  // namespace sonivo::test
