#include "platform/sim/control_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "platform/sim/machine.h"

namespace sonivo::sim {
namespace {

using control::EventRecord;
using testing::ElementsAre;
using testing::IsEmpty;

class ControlDeviceTest : public testing::Test {
 protected:
  /// An overlapped request with its own memory and event.
  struct Asking {
    explicit Asking(SimMachine& machine, std::size_t bytes = 4)
        : event(machine.scheduler().create(Reset::manual)), room(bytes, std::byte{0xEE}) {
      overlapped.hEvent = event.get();
    }
    std::uint32_t first() const {
      std::uint32_t value = 0;
      std::memcpy(&value, room.data(), sizeof value);
      return value;
    }

    std::unique_ptr<Event> event;
    std::vector<std::byte> room;
    Overlapped overlapped;
  };

  std::shared_ptr<Device> open(Completion completion = Completion::overlapped) {
    Error why = error::kInvalidData;
    auto handle = machine.driver().open(kControlPath, Sharing::exclusive, completion, why);
    EXPECT_EQ(why, error::kNone);
    return handle;
  }
  bool signalled(const Asking& asking) {
    const std::array<Event*, 1> events{asking.event.get()};
    return machine.scheduler().wait_any(events, 0).index.has_value();
  }
  static Error get(Device& handle, Asking& asking, std::uint32_t code = control::GetFunction) {
    return handle.control(code, {}, asking.room, asking.overlapped);
  }
  static Error ask_event(Device& handle, Asking& asking) {
    return get(handle, asking, control::NSV_SERVICE_EVENT_NOTIFY);
  }
  static Error get_now(Device& handle, std::uint32_t& value) {
    std::uint32_t bytes = 0;
    return handle.control_now(control::GetFunction, {}, std::as_writable_bytes(std::span(&value, 1)), bytes);
  }
  std::uint64_t now_ms() { return machine.scheduler().tick_ms() - 1'000'000; }

  SimMachine machine;
  ControlDevice& device = machine.driver().control();
};

TEST_F(ControlDeviceTest, IsFoundOnTheBusWhilePresent) {
  const auto found = machine.driver().interfaces(control::kControlInterface);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].path, kControlPath);
  EXPECT_EQ(found[0].service, "NorvellSonivoDriver");
  device.set_present(false);
  EXPECT_THAT(machine.driver().interfaces(control::kControlInterface), IsEmpty());
  Error why = error::kNone;
  EXPECT_EQ(machine.driver().open(kControlPath, Sharing::exclusive, Completion::overlapped, why), nullptr);
  EXPECT_EQ(why, error::kFileNotFound);
  machine.script().fail(Step::control_open, error::kAccessDenied);
  EXPECT_EQ(machine.driver().open(kControlPath, Sharing::exclusive, Completion::overlapped, why), nullptr);
  EXPECT_EQ(why, error::kAccessDenied);
}

TEST_F(ControlDeviceTest, AnswersAtOnceInBothForms) {
  device.set_number(control::GetFunction, 2);
  const auto handle = open();
  Asking asking(machine);
  EXPECT_EQ(get(*handle, asking), error::kNone);
  EXPECT_EQ(asking.first(), 2u);
  EXPECT_FALSE(asking.overlapped.pending);
  EXPECT_EQ(asking.overlapped.transferred, 4u);
  EXPECT_TRUE(signalled(asking));
  std::uint32_t value = 0;
  EXPECT_EQ(get_now(*handle, value), error::kNone);
  EXPECT_EQ(value, 2u);
}

TEST_F(ControlDeviceTest, KeepsADelayedRequestPendingForItsTime) {
  device.set_delay(control::GetFunction, 20);
  const auto handle = open();
  Asking asking(machine);
  EXPECT_EQ(get(*handle, asking), error::kIoPending);
  EXPECT_EQ(device.pending_requests(), 1u);
  EXPECT_FALSE(signalled(asking));
  std::uint32_t bytes = 0;
  EXPECT_EQ(handle->result(asking.overlapped, bytes, false), error::kIoPending);
  EXPECT_EQ(handle->result(asking.overlapped, bytes, true), error::kNone);
  EXPECT_EQ(now_ms(), 20u);
  EXPECT_EQ(bytes, 4u);
  EXPECT_TRUE(signalled(asking));
  EXPECT_EQ(device.pending_requests(), 0u);
}

TEST_F(ControlDeviceTest, WaitsInASynchronousHandleItself) {
  device.set_delay(control::GetFunction, 20);
  const auto handle = open(Completion::synchronous);
  Asking asking(machine);
  EXPECT_EQ(get(*handle, asking), error::kNone);
  EXPECT_EQ(now_ms(), 20u);
  std::uint32_t value = 0;
  EXPECT_EQ(get_now(*handle, value), error::kNone);
  EXPECT_EQ(now_ms(), 40u);
}

TEST_F(ControlDeviceTest, DelaysAReportAndACancellationToo) {
  device.set_delay(control::NSV_PUBLISH_REPORT, 20);
  device.set_delay(control::NSV_SERVICE_EVENT_CANCEL, 30);
  const auto handle = open(Completion::synchronous);
  std::uint32_t bytes = 0;
  EXPECT_EQ(handle->control_now(control::NSV_PUBLISH_REPORT, {}, {}, bytes), error::kNone);
  EXPECT_EQ(now_ms(), 20u);
  EXPECT_EQ(handle->control_now(control::NSV_SERVICE_EVENT_CANCEL, {}, {}, bytes), error::kNone);
  EXPECT_EQ(now_ms(), 50u);
}

TEST_F(ControlDeviceTest, RunsAnActionRightBeforeTheNextRequestWithItsCode) {
  const auto handle = open();
  Asking asking(machine);
  std::vector<std::size_t> requests;
  device.before(control::GetFunction, [&] { requests.push_back(device.requests().size()); });
  get(*handle, asking, control::GetAutoExit);
  EXPECT_TRUE(requests.empty());
  get(*handle, asking);
  get(*handle, asking);
  EXPECT_EQ(requests, std::vector<std::size_t>{1});
}

TEST_F(ControlDeviceTest, FailsACodeUntilItsPardon) {
  const auto handle = open();
  Asking asking(machine);
  device.fail(control::GetFunction, 31);
  EXPECT_EQ(get(*handle, asking), 31u);
  EXPECT_EQ(get(*handle, asking), 31u);
  EXPECT_EQ(asking.overlapped.error, 31u);
  EXPECT_EQ(get(*handle, asking, control::GetAutoExit), error::kNone);
  device.pardon(control::GetFunction);
  EXPECT_EQ(get(*handle, asking), error::kNone);
}

TEST_F(ControlDeviceTest, RefusesUnknownCodes) {
  const auto handle = open();
  Asking asking(machine);
  EXPECT_EQ(get(*handle, asking, 0x8000E000), error::kInvalidFunction);
}

TEST_F(ControlDeviceTest, CancelsOneRequestAndNoOther) {
  device.set_delay(control::GetFunction, 20);
  const auto handle = open();
  Asking cancelled(machine);
  Asking left(machine);
  get(*handle, cancelled);
  get(*handle, left);
  handle->cancel(cancelled.overlapped);
  EXPECT_EQ(cancelled.overlapped.error, error::kOperationAborted);
  EXPECT_TRUE(signalled(cancelled));
  EXPECT_FALSE(signalled(left));
  machine.run_for(20);
  EXPECT_EQ(left.overlapped.error, error::kNone);
  handle->cancel(left.overlapped);
  EXPECT_EQ(left.overlapped.error, error::kNone) << "it was over";
}

TEST_F(ControlDeviceTest, AbortsAllRequestsOfAHandleThatCloses) {
  device.set_delay(control::GetFunction, 20);
  const auto handle = open();
  const auto other = open();
  EXPECT_EQ(device.open_handles(), 2u);
  Asking delayed(machine);
  Asking event(machine, sizeof(EventRecord));
  Asking of_other(machine, sizeof(EventRecord));
  get(*handle, delayed);
  ask_event(*handle, event);
  ask_event(*other, of_other);
  handle->close();
  EXPECT_EQ(delayed.overlapped.error, error::kOperationAborted);
  EXPECT_EQ(event.overlapped.error, error::kOperationAborted);
  EXPECT_TRUE(of_other.overlapped.pending);
  EXPECT_EQ(get(*handle, delayed), error::kInvalidHandle);
  EXPECT_EQ(device.open_handles(), 1u);
  EXPECT_EQ(device.opened_handles(), 2u);
  other->close();
  other->close();
  EXPECT_EQ(machine.leaks().control_handles, 0u);
  EXPECT_EQ(machine.leaks().pending_requests, 0u);
}

TEST_F(ControlDeviceTest, ClosesAHandleThatIsDropped) {
  open();
  EXPECT_EQ(device.open_handles(), 0u);
}

TEST_F(ControlDeviceTest, FailsWhatIsOpenWhenItGoes) {
  const auto handle = open();
  Asking event(machine, sizeof(EventRecord));
  Asking asking(machine);
  ask_event(*handle, event);
  device.set_present(false);
  EXPECT_EQ(event.overlapped.error, error::kDeviceNotConnected);
  EXPECT_TRUE(signalled(event));
  EXPECT_EQ(get(*handle, asking), error::kDeviceNotConnected);
  device.set_present(true);
  EXPECT_EQ(get(*handle, asking), error::kNone);
}

// ---- Events

TEST_F(ControlDeviceTest, GivesEventsToTheOldestRequestInTheirOrder) {
  const auto handle = open();
  Asking first(machine, sizeof(EventRecord));
  Asking second(machine, sizeof(EventRecord));
  EXPECT_EQ(ask_event(*handle, first), error::kIoPending);
  EXPECT_EQ(ask_event(*handle, second), error::kIoPending);
  device.send_event(3);
  EXPECT_TRUE(signalled(first));
  EXPECT_FALSE(signalled(second));
  EXPECT_EQ(first.first(), 3u);
  EXPECT_EQ(first.overlapped.transferred, 1044u);
  EXPECT_TRUE(
      std::all_of(first.room.begin() + 4, first.room.end(), [](std::byte each) { return each == std::byte{0}; }));
  device.send_event(14);
  EXPECT_EQ(second.first(), 14u);
}

TEST_F(ControlDeviceTest, KeepsEventsForLaterRequests) {
  device.send_event(1);
  device.send_event(2);
  const auto handle = open();
  Asking asking(machine, sizeof(EventRecord));
  EXPECT_EQ(ask_event(*handle, asking), error::kNone);
  EXPECT_EQ(asking.first(), 1u);
  EXPECT_EQ(ask_event(*handle, asking), error::kNone);
  EXPECT_EQ(asking.first(), 2u);
  EXPECT_EQ(ask_event(*handle, asking), error::kIoPending);
  handle->close();
}

TEST_F(ControlDeviceTest, TellsOfChangesThatAreSetThroughIt) {
  const auto handle = open(Completion::synchronous);
  const auto events = open();
  Asking asking(machine, sizeof(EventRecord));
  ask_event(*events, asking);
  const std::uint32_t on = 1;
  std::uint32_t bytes = 0;
  handle->control_now(control::SetAutoMuteMTG, std::as_bytes(std::span(&on, 1)), {}, bytes);
  EXPECT_FALSE(asking.overlapped.pending);
  EXPECT_EQ(asking.first(), 12u);
}

TEST_F(ControlDeviceTest, RefusesAnEventRequestWithRoomOfAnotherSize) {
  const auto handle = open();
  for (const std::size_t bytes : {std::size_t{4}, sizeof(EventRecord) - 1, sizeof(EventRecord) + 1}) {
    Asking asking(machine, bytes);
    EXPECT_EQ(ask_event(*handle, asking), error::kInvalidParameter) << bytes;
  }
}

TEST_F(ControlDeviceTest, EndsAllEventRequestsWithACancelFromAnyHandle) {
  const auto handle = open();
  const auto other = open();
  Asking event(machine, sizeof(EventRecord));
  ask_event(*handle, event);
  Asking cancel(machine, 0);
  EXPECT_EQ(get(*other, cancel, control::NSV_SERVICE_EVENT_CANCEL), error::kNone);
  EXPECT_EQ(event.overlapped.error, error::kOperationAborted);
  EXPECT_TRUE(signalled(event));
}

// ---- Notices

TEST_F(ControlDeviceTest, TellsAllNoticesOnTheSystemThreadUntilTheyEnd) {
  const auto handle = open();
  std::vector<std::pair<int, DeviceAction>> told;
  auto first = device.notify_actions(*handle, [&](DeviceAction action) {
    EXPECT_EQ(machine.scheduler().current_thread(), 2u);
    told.emplace_back(1, action);
    return 0u;
  });
  const auto second = device.notify_actions(*handle, [&](DeviceAction action) {
    told.emplace_back(2, action);
    return 0u;
  });
  EXPECT_EQ(device.action_notices(), 2u);
  device.tell(DeviceAction::remove_pending);
  EXPECT_THAT(told, IsEmpty());
  machine.run_for(1);
  EXPECT_THAT(told,
              ElementsAre(std::pair(1, DeviceAction::remove_pending), std::pair(2, DeviceAction::remove_pending)));
  first.reset();
  told.clear();
  device.tell(DeviceAction::custom_event);
  machine.run_for(1);
  EXPECT_THAT(told, ElementsAre(std::pair(2, DeviceAction::custom_event)));
}

TEST_F(ControlDeviceTest, TellsNobodyWhoAskedAfterwards) {
  const auto handle = open();
  int calls = 0;
  device.tell(DeviceAction::custom_event);
  const auto late = device.notify_actions(*handle, [&](DeviceAction) {
    ++calls;
    return 0u;
  });
  machine.run_for(1);
  EXPECT_EQ(calls, 0);
}

TEST_F(ControlDeviceTest, NoticesAreForOpenHandlesOfItsOwn) {
  const auto handle = open();
  const DeviceActionCallback callback = [](DeviceAction) { return 0u; };
  handle->close();
  EXPECT_EQ(device.notify_actions(*handle, callback), nullptr);
  EXPECT_EQ(device.notify_actions(*open(), {}), nullptr);
  const auto another = open();
  machine.script().fail(Step::control_notify_actions, 1);
  EXPECT_EQ(device.notify_actions(*another, callback), nullptr);
}

TEST_F(ControlDeviceTest, EndingANoticeWaitsForACallUnderWay) {
  const auto handle = open();
  bool ended = false;
  auto notice = device.notify_actions(*handle, [&](DeviceAction) {
    machine.scheduler().sleep_ms(30);
    ended = true;
    return 0u;
  });
  device.tell(DeviceAction::remove_pending);
  machine.run_for(10);
  notice.reset();
  EXPECT_TRUE(ended);
  EXPECT_EQ(now_ms(), 30u);
  EXPECT_EQ(device.notices_ended_inside(), 0u);
}

TEST_F(ControlDeviceTest, CountsNoticesThatEndInsideTheirCall) {
  const auto handle = open();
  std::unique_ptr<Registration> notice;
  notice = device.notify_actions(*handle, [&](DeviceAction) {
    notice.reset();
    return 0u;
  });
  device.tell(DeviceAction::remove_pending);
  machine.run_for(1);
  EXPECT_EQ(device.notices_ended_inside(), 1u);
  EXPECT_EQ(device.action_notices(), 0u);
}

// ---- What is kept of the requests

TEST_F(ControlDeviceTest, RecordsEachRequestWithItsForm) {
  const auto handle = open();
  const auto synchronous = open(Completion::synchronous);
  Asking asking(machine);
  machine.run_for(5);
  get(*handle, asking);
  std::uint32_t value = 0;
  get_now(*synchronous, value);
  const auto records = device.requests();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].time, 1'000'005 * kMillisecond);
  EXPECT_EQ(records[0].thread, 1u);
  EXPECT_EQ(records[0].code, control::GetFunction);
  EXPECT_EQ(records[0].handle, Completion::overlapped);
  EXPECT_TRUE(records[0].with_overlapped);
  EXPECT_THAT(records[0].input, IsEmpty());
  EXPECT_EQ(records[0].output_bytes, 4u);
  EXPECT_EQ(records[1].handle, Completion::synchronous);
  EXPECT_FALSE(records[1].with_overlapped);
}

TEST_F(ControlDeviceTest, ListsCodesWithoutThoseOfEvents) {
  const auto handle = open();
  Asking asking(machine);
  Asking event(machine, sizeof(EventRecord));
  ask_event(*handle, event);
  get(*handle, asking, control::NSV_SERVICE_EVENT_CANCEL);
  get(*handle, asking, control::GetAutoExit);
  get(*handle, asking);
  EXPECT_THAT(device.codes(), ElementsAre(control::GetAutoExit, control::GetFunction));
  device.forget_requests();
  EXPECT_THAT(device.codes(), IsEmpty());
}

TEST_F(ControlDeviceTest, HoldsNumbersAndTexts) {
  device.set_number(control::GetFunctionMic, 8);
  device.set_text(control::GetCaptureEndpointId, u"mic");
  EXPECT_EQ(device.number(control::GetFunctionMic), 8u);
  EXPECT_EQ(device.text(control::GetCaptureEndpointId), u"mic");
  EXPECT_EQ(device.number(control::GetSonivoDrvGeneration), 8u);
}

}  // namespace
}  // namespace sonivo::sim
