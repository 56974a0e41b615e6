// IOBuffer on the audio half of the driver.

#include <gtest/gtest.h>

#include <array>
#include <optional>

#include "platform/sim/machine.h"
#include "relay/io_buffer.h"
#include "support/signals.h"

namespace sonivo::test {
namespace {

using sim::PinId;

class IOBufferDriver : public testing::Test {
 protected:
  std::shared_ptr<Device> open(PinId pin) {
    Error why = error::kNone;
    return machine.seams().bus.open(sim::SimDriver::device_path(pin), Sharing::exclusive, Completion::overlapped, why);
  }
  void bind(IOBuffer& buffer, const std::shared_ptr<Device>& device) {
    ASSERT_NE(device, nullptr);
    ASSERT_TRUE(buffer.BindDevice(machine.seams().events, device));
  }
  /// Index of the event that fired by now.
  std::optional<std::size_t> fired(IOBuffer& buffer) {
    const std::array<Event*, 1> events{buffer.DoneEvent()};
    return machine.seams().events.wait_any(events, 0).index;
  }

  sim::SimMachine machine;
  const WAVEFORMATEXTENSIBLE format = pcm_format(48000, 16, 2);
};

TEST_F(IOBufferDriver, WaitStreamBlocksUntilAnApplicationOpensTheEndpoint) {
  IOBuffer buffer;
  bind(buffer, open(PinId::mic));
  const sim::Time start = machine.scheduler().now();
  machine.after(70, [&] { machine.driver().open_recorder(format); });
  WAVEFORMATEXTENSIBLE opened;
  EXPECT_TRUE(buffer.WaitStream(opened));
  EXPECT_EQ(opened, format);
  EXPECT_EQ(machine.scheduler().now() - start, 70 * sim::kMillisecond);
}

TEST_F(IOBufferDriver, WaitStreamAnswersAtOnceForAnEndpointThatIsOpen) {
  IOBuffer buffer;
  bind(buffer, open(PinId::mic));
  machine.driver().open_recorder(format);
  const sim::Time start = machine.scheduler().now();
  WAVEFORMATEXTENSIBLE opened;
  EXPECT_TRUE(buffer.WaitStream(opened));
  EXPECT_EQ(machine.scheduler().now(), start);
}

TEST_F(IOBufferDriver, WaitStreamEndsWhenTheHandleIsClosed) {
  IOBuffer buffer;
  const auto device = open(PinId::speaker);
  bind(buffer, device);
  machine.after(30, [&] { device->close(); });
  WAVEFORMATEXTENSIBLE opened;
  EXPECT_FALSE(buffer.WaitStream(opened));
  EXPECT_EQ(buffer.LastError(), error::kOperationAborted);
}

TEST_F(IOBufferDriver, AWriteIsHeardAndFiresItsEventWhenItsPeriodHasPassed) {
  IOBuffer buffer;
  bind(buffer, open(PinId::mic));
  machine.driver().open_recorder(format);
  buffer.Allocate(480 * 4);
  buffer.Fill(std::byte{0x21});
  ASSERT_TRUE(buffer.SubmitWrite());
  EXPECT_EQ(buffer.LastError(), error::kIoPending);
  EXPECT_FALSE(buffer.GetResult(nullptr, false));
  EXPECT_EQ(fired(buffer), std::nullopt);
  machine.run_for(10);
  EXPECT_EQ(fired(buffer), 0u);
  std::uint32_t bytes = 0;
  EXPECT_TRUE(buffer.GetResult(&bytes, false));
  EXPECT_EQ(bytes, 480u * 4);
  EXPECT_EQ(machine.driver().recording(), std::vector<std::byte>(480 * 4, std::byte{0x21}));
}

TEST_F(IOBufferDriver, AReadTakesWhatTheApplicationPlays) {
  IOBuffer buffer;
  bind(buffer, open(PinId::speaker));
  const std::vector<std::byte> signal = numbered_pcm(480, 16, 2);
  machine.driver().open_player(format, sim::memory_source(signal));
  buffer.Allocate(signal.size());
  ASSERT_TRUE(buffer.SubmitRead());
  EXPECT_TRUE(buffer.GetResult(nullptr, true));
  EXPECT_EQ(std::vector(buffer.Data().begin(), buffer.Data().end()), signal);
}

TEST_F(IOBufferDriver, ASubmissionClearsTheEventOfTheOneBefore) {
  IOBuffer buffer;
  bind(buffer, open(PinId::mic));
  machine.driver().open_recorder(format);
  buffer.Allocate(480 * 4);
  buffer.SubmitWrite();
  machine.run_for(10);
  ASSERT_EQ(fired(buffer), 0u);
  ASSERT_TRUE(buffer.SubmitWrite());
  EXPECT_EQ(fired(buffer), std::nullopt);
}

TEST_F(IOBufferDriver, FourOutstandingTransfersCompleteInOrder) {
  const auto device = open(PinId::mic);
  machine.driver().open_recorder(format);
  std::array<IOBuffer, 4> buffers;
  for (IOBuffer& buffer : buffers) {
    bind(buffer, device);
    buffer.Allocate(480 * 4);
    ASSERT_TRUE(buffer.SubmitWrite());
  }
  for (std::size_t done = 1; done <= buffers.size(); ++done) {
    machine.run_for(10);
    for (std::size_t i = 0; i < buffers.size(); ++i) EXPECT_EQ(fired(buffers[i]).has_value(), i < done) << i;
  }
}

TEST_F(IOBufferDriver, ATransferFailsWhenTheApplicationGoes) {
  IOBuffer buffer;
  bind(buffer, open(PinId::mic));
  machine.driver().open_recorder(format);
  buffer.Allocate(480 * 4);
  buffer.SubmitWrite();
  machine.driver().close_client(PinId::mic);
  EXPECT_EQ(fired(buffer), 0u);
  EXPECT_FALSE(buffer.GetResult(nullptr, true));
  EXPECT_FALSE(buffer.SubmitWrite());
}

TEST_F(IOBufferDriver, FeedbackReachesTheDriver) {
  IOBuffer buffer;
  bind(buffer, open(PinId::mic));
  for (const std::int32_t value : {1, -1, 0}) EXPECT_TRUE(buffer.SetFeedback(value));
  const auto sent = machine.driver().feedback(PinId::mic);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].value, 1);
  EXPECT_EQ(sent[1].value, -1);
  EXPECT_EQ(sent[2].value, 0);
}

TEST_F(IOBufferDriver, APendingTransferIsWithdrawnBeforeTheBufferGoes) {
  const auto device = open(PinId::mic);
  machine.driver().open_recorder(format);
  {
    IOBuffer buffer;
    bind(buffer, device);
    buffer.Allocate(480 * 4);
    buffer.SubmitWrite();
    EXPECT_EQ(machine.leaks().pending_requests, 1u);
  }
  EXPECT_EQ(machine.leaks().pending_requests, 0u);
}

}  // namespace
}  // namespace sonivo::test
