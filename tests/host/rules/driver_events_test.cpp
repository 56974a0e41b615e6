// The blocking event request and what ends it.

#include <atomic>

#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string notify_error(int number) {
  return "[SetEventIoControl] Notify error: unexpected DeviceIoControl error " + std::to_string(number) + "\n";
}

class DriverEvents : public RulesBench, public ::testing::Test {
 protected:
  /// Asks for an event that doesn't come, with something happening 50 ms later.
  int ask_until(std::function<void()> action) {
    machine.after(50, std::move(action));
    const int result = driver.SetEventIoControl(&record);
    EXPECT_EQ(now_ms(), 50u);
    EXPECT_EQ(device.pending_requests(), 0u);
    return result;
  }

  control::EventRecord record;
};

TEST_F(DriverEvents, AskWithTheWholeRecordAsRoom) {
  device.send_event(14);
  EXPECT_EQ(driver.SetEventIoControl(&record), 1);
  EXPECT_EQ(record.command, 14u);
  const auto requests = device.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].code, 0x8000E0E4u);
  EXPECT_EQ(requests[0].handle, Completion::overlapped);
  EXPECT_TRUE(requests[0].with_overlapped);
  EXPECT_EQ(requests[0].event, Reset::manual);
  EXPECT_TRUE(requests[0].input.empty());
  EXPECT_EQ(requests[0].output_bytes, 1044u);
}

TEST_F(DriverEvents, AreWaitedFor) {
  EXPECT_EQ(ask_until([this] { device.send_event(3); }), 1);
  EXPECT_EQ(record.command, 3u);
  EXPECT_THAT(log.traces(), IsEmpty());
}

TEST_F(DriverEvents, ComeOneByOneInTheirOrder) {
  for (const std::uint32_t command : {12u, 15u, 99u}) device.send_event(command);
  for (const std::uint32_t command : {12u, 15u, 99u}) {
    EXPECT_EQ(driver.SetEventIoControl(&record), 1);
    EXPECT_EQ(record.command, command);
  }
}

TEST_F(DriverEvents, LeaveTheSynchronousHandleFreeForQueries) {
  std::uint32_t generation = 0;
  const auto query = machine.scheduler().start("query", [&] {
    machine.scheduler().sleep_ms(10);
    EXPECT_NE(driver.GetSonivoDrvGeneration(&generation), 0);
  });
  ask_until([this] { device.send_event(16); });
  query->join();
  EXPECT_EQ(generation, 8u);
}

TEST_F(DriverEvents, AreRefusedWithoutARecordOrAHandle) {
  const std::size_t events = machine.leaks().events;
  EXPECT_EQ(driver.SetEventIoControl(nullptr), 0);
  EXPECT_EQ(machine.leaks().events, events);
  driver.CloseDriverHandles();
  machine.run_for(1);
  EXPECT_EQ(driver.SetEventIoControl(&record), 0);
  EXPECT_EQ(machine.leaks().events, events);
  driver.CloseOverlappedHandle();  // finds nothing
  EXPECT_THAT(device.requests(), IsEmpty());
  EXPECT_THAT(log.traces(), IsEmpty());
}

TEST_F(DriverEvents, FailWithTheDriversNumber) {
  device.fail(control::NSV_SERVICE_EVENT_NOTIFY, 31);
  EXPECT_EQ(driver.SetEventIoControl(&record), 0);
  EXPECT_EQ(record.command, 0u);
  EXPECT_THAT(log.traces(), ElementsAre(notify_error(31)));
}

TEST_F(DriverEvents, EndWithACancel) {
  EXPECT_EQ(ask_until([this] { EXPECT_EQ(driver.SetEventIoControl_Cancel(), 1); }), 0);
  EXPECT_EQ(record.command, 0u);
  EXPECT_THAT(log.traces(), ElementsAre(notify_error(995)));
}

TEST_F(DriverEvents, EndWithTheHandles) {
  EXPECT_EQ(ask_until([this] { driver.CloseDriverHandles(); }), 0);
  EXPECT_EQ(record.command, 0u);
  EXPECT_THAT(log.traces(), ElementsAre(notify_error(995)));
}

TEST_F(DriverEvents, EndWithTheirOwnEvent) {
  EXPECT_EQ(ask_until([this] { driver.CloseOverlappedHandle(); }), 0);
  EXPECT_EQ(record.command, 0u);
  EXPECT_THAT(log.traces(), ElementsAre(notify_error(995)));
  device.send_event(13);
  EXPECT_EQ(driver.SetEventIoControl(&record), 1) << "the request that was given up took nothing along";
  EXPECT_EQ(record.command, 13u);
}

TEST_F(DriverEvents, EndWithTheirOwnEventBeforeTheDriverHasTheRequest) {
  script.before(Step::control_request, 1, [this] { driver.CloseOverlappedHandle(); });
  machine.after(50, [this] { device.send_event(13); });
  EXPECT_EQ(driver.SetEventIoControl(&record), 0);
  EXPECT_EQ(now_ms(), 0u);
  EXPECT_EQ(device.pending_requests(), 0u);
  EXPECT_THAT(log.traces(), ElementsAre(notify_error(995)));
  EXPECT_EQ(driver.SetEventIoControl(&record), 1) << "the next one has an event of its own";
  EXPECT_EQ(record.command, 13u);
}

TEST_F(DriverEvents, ThatAreThereComeThoughTheirOwnEventWasTakenAway) {
  device.send_event(13);
  script.before(Step::control_request, 1, [this] { driver.CloseOverlappedHandle(); });
  EXPECT_EQ(driver.SetEventIoControl(&record), 1);
  EXPECT_EQ(record.command, 13u);
}

TEST_F(DriverEvents, EndWithTheDriver) {
  EXPECT_EQ(ask_until([this] { device.set_present(false); }), 0);
  EXPECT_THAT(log.traces(), ElementsAre(notify_error(1167)));
}

TEST_F(DriverEvents, ComeWithoutAnEventOfTheMachineToo) {
  script.fail(Step::event_create, 1);
  EXPECT_EQ(ask_until([this] { device.send_event(3); }), 1);
  EXPECT_EQ(record.command, 3u);
}

TEST_F(DriverEvents, LeaveNoEventOfTheMachineBehind) {
  const std::size_t events = machine.leaks().events;
  ask_until([this] { driver.CloseOverlappedHandle(); });
  device.send_event(3);
  driver.SetEventIoControl(&record);
  EXPECT_EQ(machine.leaks().events, events);
}

TEST_F(DriverEvents, AreLeftAloneByTakingAnEventThatIsNotThere) {
  driver.CloseOverlappedHandle();
  device.send_event(3);
  EXPECT_EQ(driver.SetEventIoControl(&record), 1);
  driver.CloseOverlappedHandle();
  EXPECT_EQ(ask_until([this] { device.send_event(15); }), 1);
  EXPECT_EQ(record.command, 15u);
}

TEST_F(DriverEvents, AreCancelledWithoutBuffersThroughTheOverlappedHandle) {
  EXPECT_EQ(driver.SetEventIoControl_Cancel(), 1);
  const auto requests = device.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].code, 0x8000E0E8u);
  EXPECT_EQ(requests[0].handle, Completion::overlapped);
  EXPECT_TRUE(requests[0].with_overlapped);
  EXPECT_EQ(requests[0].event, Reset::manual);
  EXPECT_TRUE(requests[0].input.empty());
  EXPECT_EQ(requests[0].output_bytes, 0u);
}

TEST_F(DriverEvents, CantBeCancelledWithoutAHandleOrByADriverThatRefuses) {
  device.fail(control::NSV_SERVICE_EVENT_CANCEL, 31);
  EXPECT_EQ(driver.SetEventIoControl_Cancel(), 0);
  EXPECT_THAT(log.traces(), ElementsAre(notify_error(31)));
  log.clear();
  driver.CloseDriverHandles();
  device.forget_requests();
  EXPECT_EQ(driver.SetEventIoControl_Cancel(), 0);
  EXPECT_THAT(device.requests(), IsEmpty());
  EXPECT_THAT(log.traces(), IsEmpty());
}

class DriverEventsAtOnce : public RulesBench, public ::testing::Test {
 protected:
  DriverEventsAtOnce() : RulesBench(Notebook::plain, sim::Schedule::free) {}
};

TEST_F(DriverEventsAtOnce, EndHoweverTheStopMeetsThem) {
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(driver.InitDriverInfo(control::kControlInterface), 1);
    const auto waiting = machine.scheduler().start("MainThread", [this] {
      control::EventRecord event;
      driver.SetEventIoControl(&event);
    });
    driver.CloseOverlappedHandle();
    driver.SetEventIoControl_Cancel();
    driver.CloseDriverHandles();
    waiting->join();
    EXPECT_EQ(device.pending_requests(), 0u);
  }
}

TEST_F(DriverEventsAtOnce, EndWithTheirOwnEventAloneWhateverItMeets) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<bool> ended = false;
    const auto waiting = machine.scheduler().start("MainThread", [&] {
      control::EventRecord event;
      driver.SetEventIoControl(&event);
      ended = true;
    });
    while (!ended) {  // one that comes before there is a request takes nothing
      driver.CloseOverlappedHandle();
      machine.scheduler().sleep_ms(1);
    }
    waiting->join();
    EXPECT_EQ(device.pending_requests(), 0u);
  }
}

}  // namespace
}  // namespace sonivo::test
