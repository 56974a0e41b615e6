// The host on simulated endpoints, in real time, beside the real driver.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "platform/fx_requests.h"
#include "real_driver_bench.h"
#include "relay/effect_properties.h"

namespace sonivo::test {
namespace {

using testing::HasSubstr;
namespace c = control;

std::size_t open_descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/// How often the driver is killed; more in a long run.
int kills() {
  const char* wanted = std::getenv("SONIVO_DRIVER_KILLS");
  return wanted != nullptr ? std::atoi(wanted) : 4;
}

// The chain silences what it processes, so that an application hears whether it is on.
TEST_F(RealDriver, ASettingReachesTheApplicationWithin300Ms) {
  const auto driver = start_driver();
  make_key_cancel_machine();
  set_effect(PKEY_NVC_MTGMIC_KC_Param, c::kTypeBlob, std::vector<std::byte>(2 + chains.key_cancel->param_size));
  chains.key_cancel->process = [](float* block, std::size_t frames, std::size_t channels) {
    std::fill_n(block, frames * channels, 0.0f);
  };
  simulation.endpoint(sim::kMicArray).set_source([](std::span<std::byte> frames) {
    std::fill(frames.begin(), frames.end(), std::byte{0x22});
  });
  std::atomic<int> heard = -1;
  simulation.driver().open_recorder(pcm_format(48000, 16, 2), [&](std::span<const std::byte> frames) {
    if (!frames.empty()) heard = std::to_integer<int>(frames.back());
  });
  start_service();
  ASSERT_TRUE(wait_until([&] { return chains.key_cancel->count("Execute") > 50 && heard == 0; }));

  double slowest = 0;
  for (std::uint32_t value = 0; value < 6; ++value) {
    const double start = seconds_now();
    ASSERT_EQ(set(c::SetKeyboardCancelMTG, value % 2), error::kNone);
    EXPECT_TRUE(wait_until([&] { return heard == (value % 2 != 0 ? 0 : 0x22); }));
    slowest = std::max(slowest, seconds_now() - start);
  }
  std::printf("slowest way of a setting to the application: %.0f ms\n", slowest * 1e3);
#if !defined(SONIVO_TSAN) && !defined(SONIVO_ASAN)
  EXPECT_LT(slowest, 0.3);
#endif
}

TEST_F(RealDriver, KillsAtRandomMomentsAreSurvivedAndSettingsKept) {
  auto driver = start_driver();
  make_key_cancel_machine();
  start_service();
  ASSERT_TRUE(wait_until([&] { return ready(); }));
  simulation.run_for(500);
  const std::size_t descriptors = open_descriptors();
  const std::size_t threads = simulation.scheduler().live_threads();

  std::mt19937 dice(7);
  for (int kill = 0; kill < kills(); ++kill) {
    const auto value = static_cast<std::uint32_t>(dice() % 1000);
    ASSERT_EQ(set(c::SetAutoExit, value), error::kNone);  // acknowledged: it has to be there again
    simulation.run_for(static_cast<std::uint32_t>(dice() % 50));
    simulation.scheduler().outside([&] { driver->end(SIGKILL); });
    ASSERT_TRUE(wait_until([&] { return !ready(); }));
    driver = start_driver();
    ASSERT_TRUE(wait_until([&] { return ready(); })) << "after kill " << kill;
    EXPECT_EQ(get(c::GetAutoExit), value);
  }
  wait_until([&] { return open_descriptors() == descriptors && simulation.scheduler().live_threads() == threads; });
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(simulation.scheduler().live_threads(), threads);
}

TEST_F(RealDriver, TheReportSaysWhatTheServiceDoes) {
  const auto driver = start_driver();
  make_key_cancel_machine();
  start_service();
  const auto report = [&]() -> std::string {
    return simulation.scheduler().outside([&]() -> std::string {
      linux::ControlBus bus(socket());
      Error why = error::kNone;
      const auto device = bus.open(socket(), Sharing::shared, Completion::synchronous, why);
      std::string text(c::kMaxReportBytes, '\0');
      std::uint32_t bytes = 0;
      const Error outcome = device->control_now(c::NSV_READ_REPORT, {}, std::as_writable_bytes(std::span(text)), bytes);
      return outcome == error::kNone ? text.substr(0, bytes) : std::string();
    });
  };
  ASSERT_TRUE(wait_until([&] { return report().find("\"driver_ready\":true") != std::string::npos; }));
  EXPECT_THAT(report(), HasSubstr("\"chain\":\"keycancel\""));
  EXPECT_THAT(report(), HasSubstr("\"state\":\"eWaitVirtualStream\""));
  EXPECT_THAT(report(), HasSubstr("\"last_trouble\":\"\""));
}

}  // namespace
}  // namespace sonivo::test
