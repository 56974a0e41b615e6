#include "relay/echo_filter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/sim/machine.h"

namespace sonivo::test {
namespace {

using sim::Step;
using testing::ElementsAre;

class EchoFilterTest : public testing::Test {
 protected:
  sim::EchoFilter& driver() { return machine.driver().echo_filter(); }

  sim::SimMachine machine{{.echo_filter = true}};
  EchoFilter filter{machine.seams().bus};
};

TEST_F(EchoFilterTest, IsToldTheValueAndAnswersSuccess) {
  EXPECT_TRUE(filter.NotifyEchoFilter(1));
  EXPECT_TRUE(filter.NotifyEchoFilter(0));
  EXPECT_THAT(driver().values(), ElementsAre(1u, 0u));
  EXPECT_EQ(driver().open_handles(), 0u);
}

TEST_F(EchoFilterTest, ThatIsAbsentMakesNoSuccess) {
  driver().set_present(false);
  EXPECT_FALSE(filter.NotifyEchoFilter(1));
  EXPECT_EQ(machine.script().count(Step::filter_control), 0u);
}

TEST_F(EchoFilterTest, AnyAnswerButZeroIsNoSuccess) {
  for (const std::uint32_t answer : {1u, 0xFFFFFFFFu}) {
    driver().set_answer(answer);
    EXPECT_FALSE(filter.NotifyEchoFilter(1)) << answer;
  }
  EXPECT_EQ(driver().open_handles(), 0u);
}

TEST_F(EchoFilterTest, AnAnswerOfAnotherLengthIsNoSuccess) {
  for (const std::uint32_t bytes : {0u, 3u, 8u}) {
    driver().set_answer(0, bytes);
    EXPECT_FALSE(filter.NotifyEchoFilter(1)) << bytes;
  }
  EXPECT_EQ(driver().open_handles(), 0u);
}

TEST_F(EchoFilterTest, ARefusedCallIsNoSuccessAndLeavesTheHandleOpenUntilTheNext) {
  machine.script().fail(Step::filter_control, error::kInvalidFunction);
  EXPECT_FALSE(filter.NotifyEchoFilter(1));
  EXPECT_EQ(driver().open_handles(), 1u);
  EXPECT_TRUE(filter.NotifyEchoFilter(0));
  EXPECT_EQ(driver().open_handles(), 0u);
  EXPECT_THAT(driver().values(), ElementsAre(0u));
}

TEST_F(EchoFilterTest, LetsGoOfARefusedCallsHandleWhenItGoes) {
  {
    EchoFilter other(machine.seams().bus);
    machine.script().fail(Step::filter_control, error::kInvalidFunction);
    other.NotifyEchoFilter(1);
    ASSERT_EQ(driver().open_handles(), 1u);
  }
  EXPECT_EQ(driver().open_handles(), 0u);
}

/// A bus with one device, which keeps how it was opened and asked.
class FilterBus final : public DeviceBus, public Device {
 public:
  std::vector<DeviceInterface> interfaces(const Guid&) override { return {}; }
  std::shared_ptr<Device> open(const std::string& its_path, Sharing its_sharing, Completion, Error& why) override {
    path = its_path;
    sharing = its_sharing;
    why = error::kNone;
    return {std::shared_ptr<void>(), this};
  }
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast&, WindowHandle) override { return nullptr; }
  std::unique_ptr<Registration> notify_actions(const Device&, DeviceActionCallback) override { return nullptr; }

  Error control(std::uint32_t, std::span<const std::byte>, std::span<std::byte>, Overlapped&) override {
    return error::kInvalidFunction;
  }
  Error result(Overlapped&, std::uint32_t&, bool) override { return error::kInvalidFunction; }
  void cancel(Overlapped&) override {}
  Error control_now(std::uint32_t its_code, std::span<const std::byte> its_input, std::span<std::byte> output,
                    std::uint32_t& transferred) override {
    code = its_code;
    input.assign(its_input.begin(), its_input.end());
    output_before.assign(output.begin(), output.end());
    transferred = 4;
    return error::kNone;
  }
  void close() override {}

  std::string path;
  Sharing sharing = Sharing::exclusive;
  std::uint32_t code = 0;
  std::vector<std::byte> input;
  std::vector<std::byte> output_before;
};

TEST(EchoFilterRequest, GoesToTheFiltersPathSharedWithFourBytesEachWay) {
  FilterBus bus;
  EchoFilter filter(bus);
  filter.NotifyEchoFilter(0x04030201);
  EXPECT_EQ(bus.path, "\\\\.\\KELVARECFILTER");
  EXPECT_EQ(bus.sharing, Sharing::shared);
  EXPECT_EQ(bus.code, 0x9C40E0A0u);
  EXPECT_THAT(bus.input, ElementsAre(std::byte{1}, std::byte{2}, std::byte{3}, std::byte{4}));
}

TEST(EchoFilterRequest, AnAnswerThatIsNeverWrittenIsNoSuccess) {
  FilterBus bus;
  EchoFilter filter(bus);
  EXPECT_FALSE(filter.NotifyEchoFilter(1));  // four bytes reported, none stored
  EXPECT_THAT(bus.output_before, ElementsAre(std::byte{0xFF}, std::byte{0xFF}, std::byte{0xFF}, std::byte{0xFF}));
}

}  // namespace
}  // namespace sonivo::test
