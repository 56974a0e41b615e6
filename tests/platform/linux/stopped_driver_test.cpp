// What becomes of handles while the driver's process is stopped.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "platform/control_requests.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/events.h"
#include "support/driver_process.h"
#include "support/temporary_folder.h"

namespace sonivo::linux {
namespace {

using namespace std::chrono_literals;

class StoppedDriver : public testing::Test {
 protected:
  StoppedDriver() {
    while (bus_.interfaces(control::kControlInterface).empty()) std::this_thread::sleep_for(1ms);
    overlapped_ = open(Completion::overlapped);
    synchronous_ = open(Completion::synchronous);
  }

  std::shared_ptr<Device> open(Completion completion) {
    Error why = error::kNone;
    auto device = bus_.open(path_, Sharing::exclusive, completion, why);
    latest_reason_ = why;
    return device;
  }
  Error ask(Device& device) {
    std::uint32_t value = 0;
    std::uint32_t transferred = 0;
    return device.control_now(control::GetFunction, {}, std::as_writable_bytes(std::span(&value, 1)), transferred);
  }
  bool is_set(Event& event) {
    const std::array all{&event};
    return events_.wait_any(all, 10'000).index.has_value();
  }

  test::TemporaryFolder home_;
  const std::string path_ = home_ / "driver.sock";
  test::DriverProcess driver_{path_, home_ / "state"};
  DescriptorEvents events_;
  ControlBus bus_{path_, 60ms};
  std::shared_ptr<Device> overlapped_;
  std::shared_ptr<Device> synchronous_;
  Error latest_reason_ = error::kNone;
  control::EventRecord record_;
  std::span<std::byte> record_bytes_ = std::as_writable_bytes(std::span(&record_, 1));
};

TEST_F(StoppedDriver, ARequestFailsOnceTheLimitIsOver) {
  ASSERT_EQ(ask(*synchronous_), error::kNone);
  ASSERT_EQ(ask(*overlapped_), error::kNone);
  driver_.halt();
  for (Device* const each : {synchronous_.get(), overlapped_.get()}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ask(*each), error::kDeviceNotConnected);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
  }
}

TEST_F(StoppedDriver, ALateAnswerIsNotThatOfTheNextRequest) {
  driver_.halt();
  EXPECT_EQ(ask(*synchronous_), error::kDeviceNotConnected);
  driver_.go_on();
  EXPECT_EQ(ask(*synchronous_), error::kDeviceNotConnected);
}

TEST_F(StoppedDriver, OneHandleThatFindsOutHasAllOverlappedOnesToldAndEnded) {
  std::promise<DeviceAction> told;
  const auto notice = bus_.notify_actions(*overlapped_, [&](DeviceAction action) {
    told.set_value(action);
    return 0u;
  });
  const auto done = events_.create(Reset::manual);
  Overlapped request{.hEvent = done.get()};
  ASSERT_EQ(overlapped_->control(control::NSV_SERVICE_EVENT_NOTIFY, {}, record_bytes_, request), error::kIoPending);
  driver_.halt();
  EXPECT_EQ(ask(*synchronous_), error::kDeviceNotConnected);
  EXPECT_EQ(told.get_future().get(), DeviceAction::remove_pending);
  EXPECT_TRUE(is_set(*done));
  EXPECT_EQ(request.error, error::kDeviceNotConnected);
  EXPECT_EQ(ask(*overlapped_), error::kDeviceNotConnected);
}

TEST_F(StoppedDriver, ARequestForAnEventWaitsLongerThanTheLimit) {
  for (Device* const each : {overlapped_.get(), synchronous_.get()}) {
    Overlapped request;
    auto waiting = std::async(std::launch::async, [&] {
      std::uint32_t transferred = 0;
      each->control(control::NSV_OBSERVE_EVENTS, {}, record_bytes_, request);
      return each->result(request, transferred, true);
    });
    EXPECT_EQ(waiting.wait_for(200ms), std::future_status::timeout);
    each->cancel(request);
    EXPECT_EQ(waiting.get(), error::kOperationAborted);
    EXPECT_EQ(ask(*each), error::kNone);
  }
}

TEST_F(StoppedDriver, ASynchronousRequestThatPendsIsEndedByCancelAllTheSame) {
  Overlapped request;
  auto waiting = std::async(std::launch::async, [&] {
    return synchronous_->control(control::NSV_OBSERVE_EVENTS, {}, record_bytes_, request);
  });
  std::uint32_t transferred = 0;
  while (synchronous_->result(request, transferred, false) != error::kIoPending) std::this_thread::yield();
  driver_.halt();
  synchronous_->cancel(request);
  EXPECT_EQ(waiting.get(), error::kOperationAborted);
  EXPECT_EQ(ask(*synchronous_), error::kDeviceNotConnected);
}

TEST_F(StoppedDriver, NoHandleIsOpenedAndThoseThatAreOpenAreLost) {
  driver_.halt();
  EXPECT_EQ(open(Completion::synchronous), nullptr);
  EXPECT_EQ(latest_reason_, error::kDeviceNotConnected);
  EXPECT_EQ(ask(*overlapped_), error::kDeviceNotConnected);
}

TEST_F(StoppedDriver, OneThatGoesOnIsOpenedAnew) {
  driver_.halt();
  EXPECT_EQ(ask(*synchronous_), error::kDeviceNotConnected);
  driver_.go_on();
  EXPECT_EQ(ask(*open(Completion::synchronous)), error::kNone);
  EXPECT_EQ(ask(*open(Completion::overlapped)), error::kNone);
}

TEST_F(StoppedDriver, ThreadsThatWaitAtTheSameHandleAllGetTheirEnd) {
  driver_.halt();
  std::atomic<int> failed = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&, device = i % 2 == 0 ? overlapped_ : synchronous_] {
      if (ask(*device) == error::kDeviceNotConnected) ++failed;
    });
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(failed, 6);
}

}  // namespace
}  // namespace sonivo::linux
