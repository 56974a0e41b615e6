#include "apps/service/headphone_report.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <thread>

#include "platform/control_requests.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/threads.h"
#include "support/driver_process.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

class HeadphoneReportTest : public testing::Test {
 protected:
  std::optional<bool> driver_has() {
    linux::ControlBus bus(socket_);
    Error why = error::kNone;
    const auto driver = bus.open(socket_, Sharing::shared, Completion::synchronous, why);
    std::array<std::uint32_t, 2> value{};
    constexpr std::array<std::byte, 4> kQuestion{};
    std::uint32_t transferred = 0;
    if (!driver) return std::nullopt;
    if (driver->control_now(control::GetHeadphone, kQuestion, std::as_writable_bytes(std::span(value)), transferred) !=
        error::kNone) {
      return std::nullopt;
    }
    return value[0] == 1;
  }
  bool driver_gets(bool plugged) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (driver_has() != plugged) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }
  void start_driver() { driver_ = std::make_unique<DriverProcess>(socket_, folder_ / "state"); }

  TemporaryFolder folder_;
  const std::string socket_ = folder_ / "driver.sock";
  linux::ProcessThreads threads_;
  std::unique_ptr<DriverProcess> driver_;
};

TEST_F(HeadphoneReportTest, TheDriverIsToldOfEachChange) {
  start_driver();
  HeadphoneReport report(threads_, socket_);
  report.tell(true);
  EXPECT_TRUE(driver_gets(true));
  report.tell(false);
  EXPECT_TRUE(driver_gets(false));
}

TEST_F(HeadphoneReportTest, ADriverThatComesLaterAndEachOneAfterItIsTold) {
  HeadphoneReport report(threads_, socket_);
  report.tell(true);
  for (int round = 0; round < 3; ++round) {
    start_driver();
    EXPECT_TRUE(driver_gets(true)) << round;
    driver_->end(SIGKILL);
  }
}

TEST_F(HeadphoneReportTest, ADriverThatHangsIsToldOnceItGoesOn) {
  start_driver();
  HeadphoneReport report(threads_, socket_);
  report.tell(true);
  ASSERT_TRUE(driver_gets(true));
  driver_->halt();
  report.tell(false);
  driver_->go_on();
  EXPECT_TRUE(driver_gets(false));
}

TEST_F(HeadphoneReportTest, ItEndsWithoutADriverAndBesideOneThatHangs) {
  { HeadphoneReport report(threads_, socket_); }
  start_driver();
  auto report = std::make_unique<HeadphoneReport>(threads_, socket_);
  report->tell(true);
  ASSERT_TRUE(driver_gets(true));
  driver_->halt();
  report->tell(false);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // until it waits for the answer
  const auto start = std::chrono::steady_clock::now();
  report.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace sonivo::test
