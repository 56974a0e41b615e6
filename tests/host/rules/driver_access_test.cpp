// Opening and closing of the driver's handles, and what is told about the device behind them.

#include <utility>

#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Values;

constexpr const char* kNoWork = "[SubmitThreadpoolWork_job] CreateThreadpoolWork failed.\n";

class DriverHandles : public RulesBench, public ::testing::Test {
 protected:
  DriverHandles() {
    driver.CloseDriverHandles();
    machine.run_for(1);
  }
  int init() { return driver.InitDriverInfo(control::kControlInterface); }
  /// Whether a request through the handle reaches the driver.
  bool synchronous_works() {
    std::uint32_t value = 0;
    return driver.GetSonivoDrvGeneration(&value) != 0;
  }
  bool overlapped_works() {
    std::uint32_t value = 0;
    return driver.GetBeamformingMTG(&value) != 0;
  }
};

TEST_F(DriverHandles, AreTwoWithANoticeForTheFirst) {
  EXPECT_EQ(init(), 1);
  EXPECT_EQ(device.open_handles(), 2u);
  EXPECT_EQ(device.action_notices(), 1u);
  EXPECT_NE(driver.GetDriverHandle(), nullptr);
  EXPECT_NE(driver.GetDriverSyncHandle(), nullptr);
  EXPECT_TRUE(overlapped_works());
  EXPECT_TRUE(synchronous_works());
}

TEST_F(DriverHandles, AreNotOpenedWithoutAnInterface) {
  const std::size_t opened = device.opened_handles();
  device.set_present(false);
  EXPECT_EQ(init(), 0);
  device.set_present(true);
  EXPECT_EQ(driver.InitDriverInfo(sim::kCaptureEffect), 0) << "a class of which there is none";
  EXPECT_EQ(device.opened_handles(), opened);
  EXPECT_EQ(driver.GetDriverHandle(), nullptr);
  EXPECT_EQ(driver.GetDriverSyncHandle(), nullptr);
}

TEST_F(DriverHandles, MayLackTheFirst) {
  script.fail(Step::control_open, error::kAccessDenied, 1);
  EXPECT_EQ(init(), 0);
  EXPECT_EQ(driver.GetDriverHandle(), nullptr);
  EXPECT_FALSE(overlapped_works());
  EXPECT_TRUE(synchronous_works());
  EXPECT_EQ(device.action_notices(), 0u);
  EXPECT_EQ(init(), 1) << "opened anew";
  EXPECT_EQ(device.open_handles(), 2u);
}

TEST_F(DriverHandles, MayLackTheSecond) {
  script.fail(Step::control_open, error::kAccessDenied, 2);
  EXPECT_EQ(init(), 1);
  EXPECT_EQ(driver.GetDriverSyncHandle(), nullptr);
  EXPECT_TRUE(overlapped_works());
  EXPECT_FALSE(synchronous_works());
  EXPECT_EQ(device.action_notices(), 1u);
}

TEST_F(DriverHandles, DoWithoutANotice) {
  script.fail(Step::control_notify_actions, 1);
  EXPECT_EQ(init(), 1);
  EXPECT_EQ(device.action_notices(), 0u);
  EXPECT_TRUE(overlapped_works());
}

TEST_F(DriverHandles, CloseWithTheirNotice) {
  init();
  driver.CloseDriverHandles();
  EXPECT_EQ(driver.GetDriverHandle(), nullptr);
  EXPECT_EQ(driver.GetDriverSyncHandle(), nullptr);
  EXPECT_EQ(device.open_handles(), 0u);
  EXPECT_EQ(device.action_notices(), 1u) << "another thread ends it";
  machine.run_for(1);
  EXPECT_EQ(device.action_notices(), 0u);
  EXPECT_EQ(machine.leaks().threads, 0u);
}

TEST_F(DriverHandles, CloseBothBeforeTheirNoticeEnds) {
  init();
  std::vector<Step> steps;
  script.before(Step::control_close, 1, [&] { steps.push_back(Step::control_close); });
  script.before(Step::control_close, 2, [&] { steps.push_back(Step::control_close); });
  script.before(Step::thread_start, 1, [&] { steps.push_back(Step::thread_start); });
  script.before(Step::control_notify_end, 1, [&] { steps.push_back(Step::control_notify_end); });
  driver.CloseDriverHandles();
  machine.run_for(1);
  EXPECT_THAT(steps,
              ElementsAre(Step::control_close, Step::control_close, Step::thread_start, Step::control_notify_end));
}

TEST_F(DriverHandles, KeepTheNoticeOfOnesThatOpenWhileTheFormerClose) {
  init();
  script.before(Step::control_close, 1, [this] { init(); });
  driver.CloseDriverHandles();
  machine.run_for(1);
  EXPECT_NE(driver.GetDriverHandle(), nullptr);
  EXPECT_EQ(device.action_notices(), 1u);
}

TEST_F(DriverHandles, TellWhyTheInterfaceCantBeOpened) {
  script.fail(Step::control_open, error::kAccessDenied, 1);
  init();
  EXPECT_EQ(driver.OpenError(), error::kAccessDenied);
  init();
  EXPECT_EQ(driver.OpenError(), error::kNone);
  script.fail(Step::control_open, error::kAccessDenied, 1);
  init();
  device.set_present(false);
  init();
  EXPECT_EQ(driver.OpenError(), error::kNone) << "there is none to open";
}

TEST_F(DriverHandles, MayBeClosedTwice) {
  init();
  driver.CloseDriverHandles();
  machine.run_for(1);
  const std::uint64_t threads = script.count(Step::thread_start);
  driver.CloseDriverHandles();
  EXPECT_EQ(script.count(Step::thread_start), threads);
}

TEST_F(DriverHandles, CloseForAllWhoStillHoldThem) {
  init();
  const auto held = driver.GetDriverSyncHandle();
  driver.CloseDriverHandles();
  std::uint32_t bytes = 0;
  EXPECT_EQ(held->control_now(control::GetAutoExit, {}, {}, bytes), error::kInvalidHandle);
}

TEST_F(DriverHandles, AreLetGoOfWithoutBeingClosedForOthers) {
  init();
  auto held = driver.GetDriverSyncHandle();
  driver.ClearDriverHandle();
  EXPECT_EQ(driver.GetDriverHandle(), nullptr);
  EXPECT_EQ(driver.GetDriverSyncHandle(), nullptr);
  EXPECT_FALSE(overlapped_works());
  EXPECT_FALSE(synchronous_works());
  EXPECT_EQ(device.open_handles(), 1u) << "nobody else held the first";
  std::uint32_t value = 0;
  std::uint32_t bytes = 0;
  EXPECT_EQ(held->control_now(control::GetAutoExit, {}, std::as_writable_bytes(std::span(&value, 1)), bytes),
            error::kNone);
  held = nullptr;
  EXPECT_EQ(device.open_handles(), 0u);
  EXPECT_EQ(device.action_notices(), 1u) << "of the device, not of the handle";
  EXPECT_EQ(init(), 1);
  EXPECT_EQ(device.action_notices(), 1u) << "the earlier notice went";
}

TEST_F(DriverHandles, ThatAreLeftOverCloseWhenTheChannelOpensAnew) {
  script.fail(Step::control_open, error::kAccessDenied, 1);
  init();
  const std::weak_ptr<Device> left_over = driver.GetDriverSyncHandle();
  ASSERT_FALSE(left_over.expired());
  EXPECT_EQ(init(), 1);
  EXPECT_TRUE(left_over.expired());
  EXPECT_EQ(device.open_handles(), 2u);
  EXPECT_EQ(init(), 1) << "while both are open";
  EXPECT_EQ(device.open_handles(), 2u);
  EXPECT_EQ(device.action_notices(), 1u);
}

TEST_F(DriverHandles, AreClosedInsideANoticeWhichEndsOutsideIt) {
  init();
  device.tell(DeviceAction::remove_pending);
  machine.run_for(1);
  EXPECT_EQ(device.open_handles(), 0u);
  EXPECT_EQ(device.action_notices(), 0u);
  EXPECT_EQ(device.notices_ended_inside(), 0u);
  EXPECT_FALSE(log.has(kNoWork));
}

TEST_F(DriverHandles, EndTheirNoticeThemselvesWhenNoThreadCanBeHad) {
  init();
  script.fail(Step::thread_start, 1);
  driver.CloseDriverHandles();
  EXPECT_EQ(device.action_notices(), 0u);
  EXPECT_EQ(log.count(kNoWork), 1u);
}

TEST_F(DriverHandles, EndTheirNoticeInsideItWhenNoThreadCanBeHad) {
  init();
  script.fail(Step::thread_start, 1);
  device.tell(DeviceAction::remove_pending);
  machine.run_for(1);
  EXPECT_EQ(device.action_notices(), 0u);
  EXPECT_EQ(device.notices_ended_inside(), 1u);
  EXPECT_EQ(log.count(kNoWork), 1u);
}

TEST_F(DriverHandles, CloseWithTheChannel) {
  {
    CSonivoDriverAccess another(machine.seams());
    ASSERT_EQ(another.InitDriverInfo(control::kControlInterface), 1);
    EXPECT_EQ(device.open_handles(), 2u);
  }
  EXPECT_EQ(device.open_handles(), 0u);
  EXPECT_EQ(device.action_notices(), 0u);
  EXPECT_EQ(machine.leaks().threads, 0u);
}

TEST_F(DriverHandles, HaveTheEndOfTheChannelWaitForANoticeUnderWay) {
  auto another = std::make_unique<CSonivoDriverAccess>(machine.seams());
  ASSERT_EQ(another->InitDriverInfo(control::kControlInterface), 1);
  std::unique_ptr<Thread> ending;
  bool ended = false;
  bool ended_meanwhile = true;
  script.before(Step::control_close, 1, [&] {  // inside the notice
    ending = machine.scheduler().start("ending", [&] {
      another.reset();
      ended = true;
    });
    machine.scheduler().sleep_ms(20);
    ended_meanwhile = ended;
  });
  device.tell(DeviceAction::remove_pending);
  machine.run_for(100);
  ending->join();
  EXPECT_FALSE(ended_meanwhile);
  EXPECT_TRUE(ended);
  EXPECT_EQ(device.action_notices(), 0u);
  EXPECT_EQ(device.open_handles(), 0u);
}

class DriverHandlesAtOnce : public RulesBench, public ::testing::Test {
 protected:
  DriverHandlesAtOnce() : RulesBench(Notebook::plain, sim::Schedule::free) { driver.CloseDriverHandles(); }
};

TEST_F(DriverHandlesAtOnce, EndHoweverANoticeMeetsTheEndOfTheChannel) {
  for (int round = 0; round < 50; ++round) {
    auto another = std::make_unique<CSonivoDriverAccess>(machine.seams());
    ASSERT_EQ(another->InitDriverInfo(control::kControlInterface), 1);
    const auto ending = machine.scheduler().start("ending", [&] { another.reset(); });
    device.tell(DeviceAction::remove_pending);
    ending->join();
    EXPECT_EQ(device.open_handles(), 0u);
  }
}

// ---- What happens to the device

struct Reaction {
  int action;
  bool ends_application;
  bool closes;
};
void PrintTo(const Reaction& row, std::ostream* out) { *out << "action " << row.action; }

class DeviceReaction : public RulesBench, public ::testing::TestWithParam<Reaction> {};

TEST_P(DeviceReaction, EndsTheApplicationFirstThenClosesTheHandles) {
  machine.processes().add({41, 1, "NorvellApp.exe"});
  std::vector<Step> steps;
  script.before(Step::process_terminate, 1, [&] { steps.push_back(Step::process_terminate); });
  script.before(Step::control_close, 1, [&] { steps.push_back(Step::control_close); });
  script.before(Step::control_close, 2, [&] { steps.push_back(Step::control_close); });
  device.tell(static_cast<DeviceAction>(GetParam().action));
  machine.run_for(1);
  script.clear_faults();  // what hasn't happened is not to happen any more
  std::vector<Step> expected;
  if (GetParam().ends_application) expected.push_back(Step::process_terminate);
  if (GetParam().closes) expected.insert(expected.end(), 2, Step::control_close);
  EXPECT_EQ(steps, expected);
  EXPECT_EQ(device.open_handles(), GetParam().closes ? 0u : 2u);
  EXPECT_EQ(device.action_notices(), GetParam().closes ? 0u : 1u);
}

INSTANTIATE_TEST_SUITE_P(Actions, DeviceReaction,
                         Values(Reaction{2, true, true}, Reaction{3, true, true}, Reaction{4, false, true},
                                Reaction{5, false, false}, Reaction{6, true, true}, Reaction{0, false, false},
                                Reaction{1, false, false}, Reaction{7, false, false}));

// ---- What the bus is asked

/// A bus with two control devices, of which only the second name leads nowhere.
class TwoDevices final : public DeviceBus {
 public:
  struct Opened {
    std::string path;
    Sharing sharing;
    Completion completion;
    friend bool operator==(const Opened&, const Opened&) = default;
  };
  explicit TwoDevices(DeviceBus& bus) : bus_(bus) {}

  std::vector<DeviceInterface> interfaces(const Guid&) override {
    return {{sim::kControlPath, "NorvellSonivoDriver"}, {"another", "NorvellSonivoDriver"}};
  }
  std::shared_ptr<Device> open(const std::string& path, Sharing sharing, Completion completion, Error& why) override {
    opened.push_back({path, sharing, completion});
    return bus_.open(path, sharing, completion, why);
  }
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast&, WindowHandle) override { return nullptr; }
  std::unique_ptr<Registration> notify_actions(const Device& handle, DeviceActionCallback callback) override {
    noticed = &handle;
    tell = std::move(callback);
    return nullptr;
  }

  std::vector<Opened> opened;
  const Device* noticed = nullptr;
  DeviceActionCallback tell;

 private:
  DeviceBus& bus_;
};

class DriverBus : public ::testing::Test {
 protected:
  Machine seams() {
    const Machine real = machine.seams();
    return {.clock = real.clock,
            .events = real.events,
            .threads = real.threads,
            .bus = bus,
            .endpoints = real.endpoints,
            .fx_properties = real.fx_properties,
            .session = real.session,
            .power = real.power,
            .desktop = real.desktop,
            .processes = real.processes,
            .folders = real.folders};
  }

  sim::SimMachine machine;
  TwoDevices bus{machine.driver()};
  CSonivoDriverAccess driver{seams()};
};

TEST_F(DriverBus, OpensTheFirstInterfaceTwiceForItselfAlone) {
  EXPECT_EQ(driver.InitDriverInfo(control::kControlInterface), 1);
  EXPECT_THAT(bus.opened,
              ElementsAre(TwoDevices::Opened{sim::kControlPath, Sharing::exclusive, Completion::overlapped},
                          TwoDevices::Opened{sim::kControlPath, Sharing::exclusive, Completion::synchronous}));
  EXPECT_EQ(bus.noticed, driver.GetDriverHandle().get());
}

TEST_F(DriverBus, IsAnsweredZeroWhateverItTells) {
  driver.InitDriverInfo(control::kControlInterface);
  for (std::uint32_t action = 0; action < 8; ++action) EXPECT_EQ(bus.tell(static_cast<DeviceAction>(action)), 0u);
}

}  // namespace
}  // namespace sonivo::test
