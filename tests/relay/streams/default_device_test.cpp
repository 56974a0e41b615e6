// How the relay follows the default endpoints of the machine, and wakes the host when they change.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "support/relay_bench.h"

namespace sonivo::test {
namespace {

constexpr std::array kFlows{DataFlow::capture, DataFlow::render};
constexpr std::array kRoles{Role::console, Role::multimedia, Role::communications};

const char* first_endpoint(DataFlow flow) { return flow == DataFlow::capture ? sim::kMicArray : sim::kSpeakers; }
const char* second_endpoint(DataFlow flow) { return flow == DataFlow::capture ? sim::kHeadsetMic : sim::kHeadphones; }

class DefaultDevice : public ::testing::Test {
 protected:
  void set_default(DataFlow flow, Role role, const char* id) {
    bench.machine.endpoints().set_default(flow, role, id);
    bench.machine.run_for(1);
  }
  std::string endpoint(DataFlow flow) { return bench.relay->Stream(flow).EndpointId(); }

  RelayBench bench;
};

TEST_F(DefaultDevice, AConsoleChangeMovesTheStreamThatFollows) {
  bench.start();
  for (const DataFlow flow : kFlows) {
    set_default(flow, Role::console, second_endpoint(flow));
    EXPECT_EQ(endpoint(flow), second_endpoint(flow));
    set_default(flow, Role::console, first_endpoint(flow));
    EXPECT_EQ(endpoint(flow), first_endpoint(flow)) << "it goes on following";
  }
}

TEST_F(DefaultDevice, AConsoleChangeMovesOnlyTheStreamOfItsFlow) {
  bench.start();
  set_default(DataFlow::capture, Role::console, sim::kHeadsetMic);
  EXPECT_EQ(endpoint(DataFlow::render), sim::kSpeakers);
}

TEST_F(DefaultDevice, TheOtherRolesMoveNothing) {
  bench.start();
  for (const DataFlow flow : kFlows) {
    set_default(flow, Role::multimedia, second_endpoint(flow));
    set_default(flow, Role::communications, second_endpoint(flow));
    EXPECT_EQ(endpoint(flow), first_endpoint(flow));
  }
}

TEST_F(DefaultDevice, AStreamWithAnEndpointOfItsOwnDoesNotMove) {
  bench.start();
  for (const DataFlow flow : kFlows) {
    bench.relay->SetEndpoint(flow, first_endpoint(flow));
    set_default(flow, Role::console, second_endpoint(flow));
    EXPECT_EQ(endpoint(flow), first_endpoint(flow));
    bench.relay->SetEndpoint(flow, {});
    EXPECT_EQ(endpoint(flow), second_endpoint(flow)) << "until it follows again";
  }
}

TEST_F(DefaultDevice, ARunningStreamGoesOverToTheNewDefault) {
  bench.start();
  bench.play(pcm_format(48000, 16, 2), {});
  bench.machine.run_for(100);
  set_default(DataFlow::render, Role::console, sim::kHeadphones);
  bench.machine.run_for(20);
  EXPECT_EQ(bench.machine.endpoint(sim::kHeadphones).initialized().size(), 1u);
  EXPECT_EQ(bench.relay->RenderStatistics().streams, 2u);
}

TEST_F(DefaultDevice, TheSameDefaultAgainDoesNotDisturbARunningStream) {
  bench.start();
  bench.play(pcm_format(48000, 16, 2), {});
  bench.machine.run_for(100);
  set_default(DataFlow::render, Role::console, sim::kSpeakers);
  bench.machine.run_for(50);
  EXPECT_EQ(bench.relay->RenderStatistics().streams, 1u);
}

TEST_F(DefaultDevice, NoDefaultAnyMoreLeavesTheStreamWithoutAnEndpoint) {
  bench.start();
  set_default(DataFlow::capture, Role::console, "");
  EXPECT_EQ(endpoint(DataFlow::capture), "");
}

TEST_F(DefaultDevice, AVirtualDefaultIsTakenUncheckedAndThenNotFound) {
  bench.start();
  bench.record(pcm_format(48000, 16, 2), {});
  set_default(DataFlow::capture, Role::console, sim::kVirtualMic);
  EXPECT_EQ(endpoint(DataFlow::capture), sim::kVirtualMic);
  bench.machine.run_for(300);
  EXPECT_NE(bench.relay->Stream(DataFlow::capture).State(), StreamState::ePhysicalStreaming);
  EXPECT_TRUE(bench.machine.endpoint(sim::kVirtualMic).initialized().empty());
  EXPECT_FALSE(bench.log.has("[cap] eWaitVirtualDriver. no endpoint id\n"));
}

TEST_F(DefaultDevice, AfterStopNoChangeIsFollowed) {
  bench.start();
  bench.stop();
  set_default(DataFlow::capture, Role::console, sim::kHeadsetMic);
  EXPECT_EQ(endpoint(DataFlow::capture), sim::kMicArray);
}

// ---- Waking the host

class HostEvents {
 public:
  explicit HostEvents(RelayBench& bench)
      : events_(bench.machine.seams().events),
        changed_(events_.create(Reset::manual)),
        stop_(events_.create(Reset::manual)),
        relay_(*bench.relay) {
    relay_.SetHostEvents(changed_.get(), stop_.get());
  }
  ~HostEvents() { relay_.SetHostEvents(nullptr, nullptr); }
  HostEvents(const HostEvents&) = delete;
  HostEvents& operator=(const HostEvents&) = delete;

  /// Whether the host was woken since the last call.
  bool woken() {
    const bool set = is_set(*changed_);
    changed_->reset();
    return set;
  }
  bool asked_to_stop() { return is_set(*stop_); }

 private:
  bool is_set(Event& event) {
    const std::array<Event*, 1> one{&event};
    return events_.wait_any(one, 0).index.has_value();
  }

  Events& events_;
  const std::unique_ptr<Event> changed_;
  const std::unique_ptr<Event> stop_;
  CAudioControl& relay_;
};

class WakesTheHost : public ::testing::TestWithParam<Notebook> {};
INSTANTIATE_TEST_SUITE_P(Under, WakesTheHost, ::testing::Values(Notebook::beam_forming, Notebook::ai_speech));

TEST_P(WakesTheHost, ADefaultChangeOfAnyFlowAndRole) {
  RelayBench bench({}, GetParam());
  HostEvents host(bench);
  bench.start();
  bench.machine.run_for(1);
  EXPECT_FALSE(host.woken());
  for (const DataFlow flow : kFlows) {
    for (const Role role : kRoles) {
      bench.machine.endpoints().set_default(flow, role, second_endpoint(flow));
      bench.machine.run_for(1);
      EXPECT_TRUE(host.woken());
    }
  }
  EXPECT_FALSE(host.asked_to_stop());
}

TEST_P(WakesTheHost, AlsoWhenNoStreamFollowsTheDefault) {
  RelayBench bench({}, GetParam());
  HostEvents host(bench);
  bench.start();
  bench.relay->SetEndpoint(DataFlow::capture, sim::kMicArray);
  bench.machine.endpoints().set_default(DataFlow::capture, Role::console, sim::kHeadsetMic);
  bench.machine.run_for(1);
  EXPECT_TRUE(host.woken());
}

TEST_P(WakesTheHost, WithoutAnEventNothingHappens) {
  RelayBench bench({}, GetParam());
  bench.start();
  EXPECT_EQ(bench.relay->OnDefaultDeviceChanged(DataFlow::capture, Role::console, sim::kHeadsetMic), kOk);
  EXPECT_EQ(bench.relay->Stream(DataFlow::capture).EndpointId(), sim::kHeadsetMic);
}

class LeavesTheHostAsleep : public ::testing::TestWithParam<Notebook> {};
INSTANTIATE_TEST_SUITE_P(Under, LeavesTheHostAsleep, ::testing::Values(Notebook::plain, Notebook::key_cancel));

TEST_P(LeavesTheHostAsleep, ADefaultChangeOfAnyRole) {
  RelayBench bench({}, GetParam());
  HostEvents host(bench);
  bench.start();
  for (const Role role : kRoles) bench.machine.endpoints().set_default(DataFlow::capture, role, sim::kHeadsetMic);
  bench.machine.run_for(1);
  EXPECT_FALSE(host.woken());
  EXPECT_EQ(bench.relay->Stream(DataFlow::capture).EndpointId(), sim::kHeadsetMic);
}

}  // namespace
}  // namespace sonivo::test
