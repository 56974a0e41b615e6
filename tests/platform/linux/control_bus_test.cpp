#include "platform/linux/control_bus.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "platform/control_requests.h"
#include "platform/linux/control_socket.h"
#include "platform/linux/events.h"
#include "running_driver.h"
#include "support/temporary_folder.h"

namespace sonivo::linux {
namespace {

using control::EventRecord;

class ControlBusTest : public testing::Test {
 protected:
  std::shared_ptr<Device> open(Completion completion) {
    Error why = error::kNone;
    auto device = bus_.open(driver_.path(), Sharing::exclusive, completion, why);
    EXPECT_NE(device, nullptr) << why;
    return device;
  }
  static Error set(Device& device, std::uint32_t code, std::uint32_t value) {
    std::uint32_t transferred = 0;
    return device.control_now(code, std::as_bytes(std::span(&value, 1)), {}, transferred);
  }
  static std::uint32_t get(Device& device, std::uint32_t code) {
    std::uint32_t value = 0;
    std::uint32_t transferred = 0;
    EXPECT_EQ(device.control_now(code, {}, std::as_writable_bytes(std::span(&value, 1)), transferred), error::kNone);
    EXPECT_EQ(transferred, 4u);
    return value;
  }
  Error wait_for_event(Device& device, Overlapped& request) {
    return device.control(control::NSV_SERVICE_EVENT_NOTIFY, {}, record_bytes_, request);
  }
  bool is_set(Event& event, std::uint32_t limit_ms = 10'000) {
    const std::array all{&event};
    return events_.wait_any(all, limit_ms).index.has_value();
  }

  test::TemporaryFolder home_;
  test::RunningDriver driver_{home_};
  DescriptorEvents events_;
  std::unique_ptr<Event> done_ = events_.create(Reset::manual);
  EventRecord record_;
  std::span<std::byte> record_bytes_ = std::as_writable_bytes(std::span(&record_, 1));
  ControlBus bus_{driver_.path()};
};

TEST_F(ControlBusTest, TheControlInterfaceIsThereWhileTheSocketIs) {
  const auto there = bus_.interfaces(control::kControlInterface);
  ASSERT_EQ(there.size(), 1u);
  EXPECT_EQ(there[0].path, driver_.path());
  EXPECT_EQ(there[0].service, "NorvellSonivoDriver");
  EXPECT_TRUE(bus_.interfaces(Guid{}).empty());
  driver_.stop();
  EXPECT_TRUE(bus_.interfaces(control::kControlInterface).empty());
}

TEST_F(ControlBusTest, ASocketThatAKilledDriverLeftIsNoInterface) {
  std::filesystem::create_hard_link(driver_.path(), home_ / "left.sock");
  ControlBus bus(home_ / "left.sock");
  EXPECT_EQ(bus.interfaces(control::kControlInterface).size(), 1u);
  driver_.stop();
  ASSERT_TRUE(std::filesystem::exists(home_ / "left.sock"));
  EXPECT_TRUE(bus.interfaces(control::kControlInterface).empty());
}

TEST_F(ControlBusTest, AProcessIsToldWhenItHasAllTheHandlesItMayHave) {
  std::vector<std::shared_ptr<Device>> handles;
  for (int i = 0; i < 16; ++i) handles.push_back(open(i % 2 == 0 ? Completion::overlapped : Completion::synchronous));
  for (const Completion each : {Completion::overlapped, Completion::synchronous}) {
    Error why = error::kNone;
    EXPECT_EQ(bus_.open(driver_.path(), Sharing::exclusive, each, why), nullptr);
    EXPECT_EQ(why, error::kBusy);
  }
  EXPECT_EQ(get(*handles.back(), control::GetSonivoDrvGeneration), 8u);
}

TEST_F(ControlBusTest, WhatNobodyListensAtIsNotFound) {
  Error why = error::kNone;
  EXPECT_EQ(bus_.open("/elsewhere", Sharing::exclusive, Completion::overlapped, why), nullptr);
  EXPECT_EQ(why, error::kFileNotFound);
  driver_.stop();
  for (const Completion each : {Completion::overlapped, Completion::synchronous}) {
    why = error::kNone;
    EXPECT_EQ(bus_.open(driver_.path(), Sharing::exclusive, each, why), nullptr);
    EXPECT_EQ(why, error::kFileNotFound);
  }
}

TEST_F(ControlBusTest, BothKindsOfHandleReachTheSameValues) {
  const auto overlapped = open(Completion::overlapped);
  const auto synchronous = open(Completion::synchronous);
  EXPECT_EQ(set(*overlapped, control::SetFunction, 5), error::kNone);
  EXPECT_EQ(get(*synchronous, control::GetFunction), 5u);
  EXPECT_EQ(set(*synchronous, control::SetFunction, 6), error::kNone);
  EXPECT_EQ(get(*overlapped, control::GetFunction), 6u);
  EXPECT_EQ(set(*synchronous, 0x8000E000, 6), error::kInvalidFunction);
  EXPECT_EQ(set(*overlapped, 0x8000E000, 6), error::kInvalidFunction);
}

TEST_F(ControlBusTest, AnOverlappedRequestSetsItsEventWhenItIsDone) {
  const auto device = open(Completion::overlapped);
  std::uint32_t value = 0;
  Overlapped request{.hEvent = done_.get()};
  done_->set();
  ASSERT_EQ(wait_for_event(*device, request), error::kIoPending);
  EXPECT_FALSE(is_set(*done_, 0));
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->result(request, transferred, false), error::kIoPending);
  ASSERT_EQ(set(*device, control::SetAutoMuteMTG, 1), error::kNone);
  EXPECT_TRUE(is_set(*done_));
  EXPECT_EQ(device->result(request, transferred, false), error::kNone);
  EXPECT_EQ(transferred, 1044u);
  EXPECT_EQ(record_.command, control::NSVDRV_CMD_AUTOMUTE_ON);

  ASSERT_EQ(device->control(control::NSV_GET_AUTO_MUTE_MTG, {}, std::as_writable_bytes(std::span(&value, 1)), request),
            error::kIoPending);
  EXPECT_EQ(device->result(request, transferred, true), error::kNone);
  EXPECT_EQ(transferred, 4u);
  EXPECT_EQ(value, 1u);
}

TEST_F(ControlBusTest, ASynchronousRequestIsDoneWhenControlReturns) {
  const auto device = open(Completion::synchronous);
  std::uint32_t value = 0;
  Overlapped request{.hEvent = done_.get()};
  EXPECT_EQ(device->control(control::GetSonivoDrvGeneration, {}, std::as_writable_bytes(std::span(&value, 1)), request),
            error::kNone);
  EXPECT_FALSE(request.pending);
  EXPECT_EQ(request.transferred, 4u);
  EXPECT_EQ(value, 8u);
  EXPECT_TRUE(is_set(*done_, 0));
  EXPECT_EQ(device->control(control::GetSonivoDrvGeneration, {}, {}, request), error::kInsufficientBuffer);
  EXPECT_EQ(request.error, error::kInsufficientBuffer);
  EXPECT_TRUE(is_set(*done_, 0));
}

TEST_F(ControlBusTest, ACancelledRequestIsAbortedAndItsHandleGoesOn) {
  const auto device = open(Completion::overlapped);
  Overlapped request{.hEvent = done_.get()};
  ASSERT_EQ(wait_for_event(*device, request), error::kIoPending);
  device->cancel(request);
  EXPECT_FALSE(request.pending);
  EXPECT_EQ(request.error, error::kOperationAborted);
  EXPECT_TRUE(is_set(*done_, 0));
  device->cancel(request);
  ASSERT_EQ(wait_for_event(*device, request), error::kIoPending);
  ASSERT_EQ(set(*device, control::SetAutoMuteMTG, 1), error::kNone);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->result(request, transferred, true), error::kNone);
}

TEST_F(ControlBusTest, TheCancelRequestEndsAPendingEventRequest) {
  const auto device = open(Completion::overlapped);
  Overlapped request{.hEvent = done_.get()};
  ASSERT_EQ(wait_for_event(*device, request), error::kIoPending);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->control_now(control::NSV_SERVICE_EVENT_CANCEL, {}, {}, transferred), error::kNone);
  EXPECT_EQ(device->result(request, transferred, true), error::kOperationAborted);
}

TEST_F(ControlBusTest, ClosingEndsWhatIsPendingAndRefusesTheRest) {
  const auto device = open(Completion::overlapped);
  Overlapped request{.hEvent = done_.get()};
  ASSERT_EQ(wait_for_event(*device, request), error::kIoPending);
  auto waiting = std::async(std::launch::async, [&] {
    std::uint32_t transferred = 0;
    return device->result(request, transferred, true);
  });
  device->close();
  EXPECT_EQ(waiting.get(), error::kOperationAborted);
  EXPECT_TRUE(is_set(*done_, 0));
  EXPECT_EQ(wait_for_event(*device, request), error::kInvalidHandle);
  EXPECT_FALSE(request.pending);
  EXPECT_EQ(set(*device, control::SetFunction, 1), error::kInvalidHandle);
  device->close();
}

/// Waits until the request has started.
void await_start(Device& device, Overlapped& request) {
  std::uint32_t transferred = 0;
  while (device.result(request, transferred, false) != error::kIoPending) std::this_thread::yield();
}

TEST_F(ControlBusTest, ASynchronousRequestThatPendsIsEndedByCancel) {
  const auto device = open(Completion::synchronous);
  Overlapped request{.hEvent = done_.get()};
  auto pending = std::async(std::launch::async, [&] { return wait_for_event(*device, request); });
  await_start(*device, request);
  auto behind = std::async(std::launch::async, [&] { return get(*device, control::GetSonivoDrvGeneration); });
  device->cancel(request);
  EXPECT_EQ(pending.get(), error::kOperationAborted);
  EXPECT_TRUE(is_set(*done_, 0));
  EXPECT_EQ(behind.get(), 8u);
}

TEST_F(ControlBusTest, SynchronousRequestsThatPendAreEndedByClose) {
  const auto device = open(Completion::synchronous);
  std::array<Overlapped, 2> requests;
  EventRecord second_record;
  auto first = std::async(std::launch::async, [&] { return wait_for_event(*device, requests[0]); });
  auto second = std::async(std::launch::async, [&] {
    return device->control(control::NSV_OBSERVE_EVENTS, {}, std::as_writable_bytes(std::span(&second_record, 1)),
                           requests[1]);
  });
  await_start(*device, requests[0]);
  await_start(*device, requests[1]);
  device->close();
  EXPECT_EQ(first.get(), error::kOperationAborted);
  EXPECT_EQ(second.get(), error::kOperationAborted);
  EXPECT_EQ(set(*device, control::SetFunction, 1), error::kInvalidHandle);
}

TEST_F(ControlBusTest, MoreThanAFrameHoldsIsRefused) {
  std::vector<std::byte> large(control::kMaxPayload + 1);
  for (const Completion each : {Completion::overlapped, Completion::synchronous}) {
    const auto device = open(each);
    std::uint32_t transferred = 0;
    EXPECT_EQ(device->control_now(control::SetFunction, large, {}, transferred), error::kInvalidParameter);
    EXPECT_EQ(device->control_now(control::GetFunction, {}, large, transferred), error::kInvalidParameter);
    EXPECT_EQ(get(*device, control::GetSonivoDrvGeneration), 8u);
  }
}

TEST_F(ControlBusTest, ADriverThatGoesEndsEverythingAndIsTold) {
  const auto device = open(Completion::overlapped);
  const auto synchronous = open(Completion::synchronous);
  std::promise<DeviceAction> told;
  const auto notice = bus_.notify_actions(*device, [&](DeviceAction action) {
    told.set_value(action);
    return 0u;
  });
  ASSERT_NE(notice, nullptr);
  Overlapped request{.hEvent = done_.get()};
  ASSERT_EQ(wait_for_event(*device, request), error::kIoPending);
  Overlapped second;
  EventRecord second_record;
  ASSERT_EQ(get(*device, control::GetSonivoDrvGeneration), 8u);
  driver_.stop();
  EXPECT_EQ(told.get_future().get(), DeviceAction::remove_pending);
  std::uint32_t transferred = 0;
  EXPECT_EQ(device->result(request, transferred, true), error::kNone);
  EXPECT_EQ(record_.command, control::NSVPLAY_CMD_EXIT);
  EXPECT_EQ(device->control(control::NSV_SERVICE_EVENT_NOTIFY, {}, std::as_writable_bytes(std::span(&second_record, 1)),
                            second),
            error::kDeviceNotConnected);
  EXPECT_EQ(set(*synchronous, control::SetFunction, 1), error::kDeviceNotConnected);
}

/// A driver that does what a test says, at the other end of one connection.
class StrangeDriver {
 public:
  explicit StrangeDriver(const std::string& path) : path_(path), listener_(path_.take()) {}

  void accept() {
    pollfd polled{listener_.number(), POLLIN, 0};
    ASSERT_EQ(::poll(&polled, 1, 10'000), 1);
    connection_ = Descriptor(::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  /// Answers the request by which a client makes sure that it is served.
  void serve() {
    accept();
    reply({receive_id(), error::kNone, 4}, 4);
  }
  void hang_up() { connection_.close(); }
  std::uint32_t receive_id() const {
    control::RequestHead head;
    EXPECT_GE(::recv(connection_.number(), &head, sizeof head, 0), static_cast<ssize_t>(sizeof head));
    return head.id;
  }
  void reply(const control::ReplyHead& head, std::size_t output_bytes) const {
    std::vector<std::byte> frame(sizeof head + output_bytes);
    std::memcpy(frame.data(), &head, sizeof head);
    EXPECT_EQ(::send(connection_.number(), frame.data(), frame.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(frame.size()));
  }

 private:
  driver::ListenerPath path_;
  Descriptor listener_;
  Descriptor connection_;
};

sockaddr_un address_of(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

class StrangeDriverTest : public testing::Test {
 protected:
  std::shared_ptr<Device> open(Completion completion) {
    auto serving = std::async(std::launch::async, [this] { driver_.serve(); });
    Error why = error::kNone;
    auto device = bus_.open(path_, Sharing::exclusive, completion, why);
    serving.get();
    return device;
  }

  test::TemporaryFolder home_;
  const std::string path_ = home_ / "driver.sock";
  StrangeDriver driver_{path_};
  ControlBus bus_{path_};
  std::array<std::byte, 4> output_{};
  Overlapped request_;
  std::uint32_t transferred_ = 0;
  std::vector<Descriptor> waiting_;
};

TEST_F(StrangeDriverTest, AConnectionThatIsClosedInsteadOfServedIsNoHandle) {
  for (const Completion each : {Completion::overlapped, Completion::synchronous}) {
    auto refusing = std::async(std::launch::async, [this] {
      driver_.accept();
      driver_.hang_up();
    });
    Error why = error::kNone;
    EXPECT_EQ(bus_.open(path_, Sharing::exclusive, each, why), nullptr);
    EXPECT_EQ(why, error::kBusy);
    refusing.get();
  }
}

TEST_F(StrangeDriverTest, ADriverThatHangsIsNotWaitedForBeyondTheLimit) {
  constexpr std::chrono::milliseconds kShort{20};
  Error why = error::kNone;
  EXPECT_FALSE(connect_control(path_, why, kShort).is_open());
  EXPECT_EQ(why, error::kDeviceNotConnected);
  // Nobody accepts: once the queue is full, the connection itself has to wait.
  const sockaddr_un address = address_of(path_);
  for (bool connected = true; connected;) {
    waiting_.emplace_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    connected = ::connect(waiting_.back().number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  EXPECT_FALSE(connect_control(path_, why, kShort).is_open());
  EXPECT_EQ(why, error::kBusy);
  EXPECT_EQ(bus_.interfaces(control::kControlInterface).size(), 1u);
}

TEST_F(StrangeDriverTest, WhatAnotherUserListensAtIsNotAsked) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can be another user";
  ::chmod(home_.path().c_str(), 0777);
  const std::string path = home_ / "stranger.sock";
  Descriptor listener(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  std::thread([&] {
    constexpr uid_t kNobody = 65534;
    // Of this thread alone, unlike setresuid().
    ASSERT_EQ(::syscall(SYS_setresuid, kNobody, kNobody, kNobody), 0);
    const sockaddr_un address = address_of(path);
    ASSERT_EQ(::bind(listener.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener.number(), 1), 0);
  }).join();
  Error why = error::kNone;
  EXPECT_EQ(ControlBus(path).open(path, Sharing::exclusive, Completion::overlapped, why), nullptr);
  EXPECT_EQ(why, error::kAccessDenied);
}

TEST_F(StrangeDriverTest, RequestsThatNobodyAnswersEndWithTheConnection) {
  const auto device = open(Completion::overlapped);
  ASSERT_EQ(device->control(control::GetFunction, {}, output_, request_), error::kIoPending);
  driver_.hang_up();
  EXPECT_EQ(device->result(request_, transferred_, true), error::kDeviceNotConnected);

  const auto synchronous = open(Completion::synchronous);
  auto answer =
      std::async(std::launch::async, [&] { return synchronous->control(control::GetFunction, {}, output_, request_); });
  driver_.receive_id();
  driver_.hang_up();
  EXPECT_EQ(answer.get(), error::kDeviceNotConnected);
}

TEST_F(StrangeDriverTest, AReplyToNoRequestIsPassedOver) {
  const auto device = open(Completion::overlapped);
  ASSERT_EQ(device->control(control::GetFunction, {}, output_, request_), error::kIoPending);
  const std::uint32_t id = driver_.receive_id();
  driver_.reply({id + 1, error::kNone, 4}, 4);
  driver_.reply({id, error::kNone, 4}, 4);
  EXPECT_EQ(device->result(request_, transferred_, true), error::kNone);
}

TEST_F(StrangeDriverTest, MoreOutputThanThereIsRoomForIsNotTaken) {
  const auto device = open(Completion::overlapped);
  ASSERT_EQ(device->control(control::GetFunction, {}, output_, request_), error::kIoPending);
  driver_.reply({driver_.receive_id(), error::kNone, 5}, 5);
  EXPECT_EQ(device->result(request_, transferred_, true), error::kInvalidData);

  const auto synchronous = open(Completion::synchronous);
  auto answer =
      std::async(std::launch::async, [&] { return synchronous->control(control::GetFunction, {}, output_, request_); });
  driver_.reply({driver_.receive_id(), error::kNone, 5}, 5);
  EXPECT_EQ(answer.get(), error::kDeviceNotConnected);
}

TEST_F(StrangeDriverTest, WhatIsNoReplyEndsTheConnection) {
  const auto device = open(Completion::overlapped);
  ASSERT_EQ(device->control(control::GetFunction, {}, output_, request_), error::kIoPending);
  driver_.reply({driver_.receive_id(), error::kNone, 5}, 4);
  EXPECT_EQ(device->result(request_, transferred_, true), error::kDeviceNotConnected);
}

TEST_F(ControlBusTest, ANoticeThatComesAfterTheLossIsToldToo) {
  const auto device = open(Completion::overlapped);
  ASSERT_EQ(get(*device, control::GetSonivoDrvGeneration), 8u);
  driver_.stop();
  while (set(*device, control::SetFunction, 1) != error::kDeviceNotConnected) {
  }
  std::promise<DeviceAction> told;
  const auto notice = bus_.notify_actions(*device, [&](DeviceAction action) {
    told.set_value(action);
    return 0u;
  });
  EXPECT_EQ(told.get_future().get(), DeviceAction::remove_pending);
}

TEST_F(ControlBusTest, ANoticeMayEndItselfAndItsHandleInItsCall) {
  auto device = open(Completion::overlapped);
  ASSERT_EQ(get(*device, control::GetSonivoDrvGeneration), 8u);
  std::unique_ptr<Registration> notice;
  std::promise<void> registered;
  std::promise<void> ended;
  notice = bus_.notify_actions(*device, [&](DeviceAction) {
    registered.get_future().wait();
    notice.reset();
    device.reset();
    ended.set_value();
    return 0u;
  });
  registered.set_value();
  driver_.stop();
  ended.get_future().wait();
}

TEST_F(ControlBusTest, ANoticeThatIsEndedIsNotCalledAnyMore) {
  const auto device = open(Completion::overlapped);
  std::atomic<bool> in_call = false;
  std::atomic<bool> left = false;
  auto notice = bus_.notify_actions(*device, [&](DeviceAction) {
    in_call = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    left = true;
    return 0u;
  });
  driver_.stop();
  while (!in_call) std::this_thread::yield();
  notice.reset();
  EXPECT_TRUE(left);
}

TEST_F(ControlBusTest, NoNoticeForASynchronousHandleNorAWindow) {
  const auto device = open(Completion::synchronous);
  EXPECT_EQ(bus_.notify_actions(*device, [](DeviceAction) { return 0u; }), nullptr);
  EXPECT_EQ(bus_.notify_removal({kDeviceTypeHandle, device.get()}, {}), nullptr);
}

TEST_F(ControlBusTest, AHandleClosedByItsOwnerIsNotTold) {
  const auto device = open(Completion::overlapped);
  std::atomic<int> calls = 0;
  const auto notice = bus_.notify_actions(*device, [&](DeviceAction) {
    ++calls;
    return 0u;
  });
  device->close();
  driver_.stop();
  EXPECT_EQ(calls, 0);
}

TEST_F(ControlBusTest, ADriverThatComesBackIsOpenedAnew) {
  const auto before = open(Completion::overlapped);
  ASSERT_EQ(set(*before, control::SetFunction, 3), error::kNone);
  driver_.stop();
  driver_.start();
  const auto after = open(Completion::overlapped);
  EXPECT_EQ(get(*after, control::GetFunction), 3u);
}

TEST_F(ControlBusTest, ManyThreadsShareOneHandleOfEachKind) {
  const auto overlapped = open(Completion::overlapped);
  const auto synchronous = open(Completion::synchronous);
  ASSERT_EQ(set(*overlapped, control::SetFunction, 77), error::kNone);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, device = thread % 2 == 0 ? overlapped : synchronous] {
      for (int i = 0; i < 300; ++i) ASSERT_EQ(get(*device, control::GetFunction), 77u);
    });
  }
  for (std::thread& each : threads) each.join();
}

TEST_F(ControlBusTest, WhatIsLeftOpenIsClosedWithTheBus) {
  Overlapped request{.hEvent = done_.get()};
  std::shared_ptr<Device> device;
  {
    ControlBus bus(driver_.path());
    Error why = error::kNone;
    device = bus.open(driver_.path(), Sharing::shared, Completion::overlapped, why);
    ASSERT_EQ(wait_for_event(*device, request), error::kIoPending);
  }
  EXPECT_EQ(request.error, error::kOperationAborted);
  EXPECT_EQ(wait_for_event(*device, request), error::kInvalidHandle);
}

}  // namespace
}  // namespace sonivo::linux
