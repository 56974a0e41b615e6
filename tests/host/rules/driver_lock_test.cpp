// Which requests to the driver are made under its lock, and which go on while another thread holds it.

#include "host/mode_rules.h"
#include "host/threads.h"
#include "host/voice_building.h"
#include "registry_bench.h"

namespace sonivo::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
namespace c = control;

/// Whether a request of this code found the driver's lock free.
struct Locking {
  std::uint32_t code;
  bool free;

  friend bool operator==(const Locking&, const Locking&) = default;
};
void PrintTo(const Locking& row, std::ostream* out) {
  *out << std::hex << "0x" << row.code << (row.free ? " free" : " held");
}

struct DriverLockBench : RulesBench {
  using RulesBench::RulesBench;
  ~DriverLockBench() {
    host.m_bThreadExit = 1;
    if (thread) thread->join();
  }
  void start(std::function<void()> body) {
    thread = machine.scheduler().start("thread", std::move(body));
    machine.run_for(1);
  }
  bool lock_is_free() {
    bool free = false;
    const auto other = machine.scheduler().start("other", [&] {
      free = host.m_csDriver.try_lock();
      if (free) host.m_csDriver.unlock();
    });
    other->join();
    return free;
  }
  /// The next round of SubThread with this position chosen, without its report.
  std::vector<Locking> choose(std::int32_t position) {
    constexpr std::uint64_t kEnough = 40;
    std::vector<bool> free;
    for (std::uint64_t nth = 1; nth <= kEnough; ++nth) {
      script.before(Step::control_request, nth, [&] { free.push_back(lock_is_free()); });
    }
    device.forget_requests();
    host.m_iMeetingModeTmp = position;
    host.m_bModeChangeRequest = 1;
    start([this] { SubThread(host); });
    script.clear_faults();
    const auto requests = device.requests();
    EXPECT_EQ(requests.size(), free.size());
    std::vector<Locking> all;
    for (std::size_t i = 0; i < std::min(requests.size(), free.size()); ++i) {
      if (requests[i].code != c::NSV_PUBLISH_REPORT) all.push_back({requests[i].code, free[i]});
    }
    return all;
  }

  std::unique_ptr<Thread> thread;
};

TEST(DriverLock, IsHeldForTheModeAndNotForTheSecondChainsSettings) {
  DriverLockBench bench(Notebook::beam_forming);
  bench.host.m_Function = 2;
  EXPECT_THAT(bench.choose(1),
              ElementsAre(Locking{c::NSV_GET_ALL_SP_MTG, false}, Locking{c::NSV_SET_MODE_MTG, false},
                          Locking{c::NSV_SET_LAUNCHED_MTG, false}, Locking{c::NSV_GET_KEYCANSEL_UI_MTG, true},
                          Locking{c::SetKeyboardCancelMTG, true}, Locking{c::NSV_GET_BEAMFORMING_UI_MTG, true},
                          Locking{c::SetBeamformingMTG, true}));
}

TEST(DriverLock, IsHeldForTheModeAndNotForTheThirdChainsSettings) {
  DriverLockBench bench(Notebook::ai_speech);
  EXPECT_THAT(
      bench.choose(1),
      ElementsAre(Locking{c::NSV_GET_ALL_SP_MTG, false}, Locking{c::NSV_SET_MODE_MTG, false},
                  Locking{c::NSV_SET_LAUNCHED_MTG, false}, Locking{c::GetAispeechenhance_UI_MTG, true},
                  Locking{c::SetAispeechenhanceMTG, true}, Locking{c::GetAispeechenhanceSetAiModel_UI_MTG, true},
                  Locking{c::SetAispeechenhanceSetAiModelMTG, true}));
}

// ---- While another thread holds it

TEST(DriverLockOfAnother, LeavesThePollOfKeyCancelGoingOn) {
  DriverLockBench bench(Notebook::key_cancel);
  bench.host.m_csDriver.lock();
  bench.start([&] { SubThread(bench.host); });
  EXPECT_THAT(bench.asked(), ElementsAre(Asked{c::GetKeyboardCancelMTG}));
  bench.host.m_csDriver.unlock();
}

TEST(DriverLockOfAnother, LeavesTheDeviceRulesGoingOn) {
  for (const Notebook notebook : {Notebook::beam_forming, Notebook::ai_speech}) {
    DriverLockBench bench(notebook);
    bench.store_parameters();
    bench.use_microphone("USB microphone");
    bench.host.m_bMicDeviceDirty = 1;
    bench.host.m_csDriver.lock();
    bool done = false;
    bench.start([&] {
      deviceNameChange(bench.host);
      done = true;
    });
    EXPECT_TRUE(done);
    EXPECT_THAT(bench.asked(), IsSupersetOf({Asked{c::GetKeyboardCancelMTG}, Asked{c::SetBeamformingMTG, 0}}));
    bench.host.m_csDriver.unlock();
  }
}

struct RegistryLockBench : RegistryBench {
  using RegistryBench::asked;
  using RegistryBench::set_registration;
  using RegistryBench::start;
  using RegistryBench::touch;
};

TEST(DriverLockOfAnother, LeavesABuildGoingOnAsFarAsTheHeadphones) {
  RegistryLockBench bench;
  bench.start();
  bench.host.m_csDriver.lock();
  bench.touch(registration::kBuild);
  const auto asked = bench.asked();
  bench.host.m_csDriver.unlock();
  ASSERT_FALSE(asked.empty());
  EXPECT_THAT(asked, IsSupersetOf({Asked{c::SetAispeechenhanceRegistrationMTG, registration::kRunning},
                                   Asked{c::SetAispeechenhanceSetAiModelMTG, 1},
                                   Asked{c::SetAispeechenhanceRegistrationMTG, 0}}));
  EXPECT_EQ(asked.back(), Asked{c::GetAispeechenhanceModelNoMTG});
  bench.machine.run_for(1);
  EXPECT_THAT(bench.asked(), Contains(Asked{c::GetHeadphone}));
}

TEST(DriverLockOfAnother, LeavesTheEndOfABuildGoingOn) {
  RegistryLockBench bench;
  bench.start(ChangeRegistryThread_Quit);
  bench.host.m_csDriver.lock();
  bench.touch(registration::kAbort);
  EXPECT_THAT(bench.asked(),
              ElementsAre(Asked{c::GetAispeechenhanceRegistrationMTG}, Asked{c::SetAispeechenhanceRegistrationMTG, 0}));
  bench.host.m_csDriver.unlock();
}

}  // namespace
}  // namespace sonivo::test
