#include "relay/io_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <type_traits>

#include "fake_device.h"
#include "platform/sim/machine.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::has_virtual_destructor_v<IOBuffer>);

class IOBufferTest : public testing::Test {
 protected:
  bool bind(IOBuffer& buffer) { return buffer.BindDevice(machine.seams().events, device); }

  sim::SimMachine machine;
  std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
};

TEST_F(IOBufferTest, BindingMakesOneEventAndTheDestructorClosesIt) {
  {
    IOBuffer buffer;
    EXPECT_EQ(buffer.DoneEvent(), nullptr);
    EXPECT_TRUE(bind(buffer));
    EXPECT_NE(buffer.DoneEvent(), nullptr);
    EXPECT_EQ(machine.leaks().events, 1u);
  }
  EXPECT_EQ(machine.leaks().events, 0u);
}

TEST_F(IOBufferTest, BindingAgainClosesTheEventItHad) {
  IOBuffer buffer;
  bind(buffer);
  EXPECT_TRUE(bind(buffer));
  EXPECT_EQ(machine.leaks().events, 1u);
}

TEST_F(IOBufferTest, BindingFailsWhenTheMachineHasNoEventLeft) {
  IOBuffer buffer;
  machine.script().fail(sim::Step::event_create, error::kAccessDenied);
  EXPECT_FALSE(bind(buffer));
  EXPECT_EQ(buffer.DoneEvent(), nullptr);
}

TEST_F(IOBufferTest, TheEventStaysSetUntilItIsResetByHand) {
  IOBuffer buffer;
  bind(buffer);
  buffer.DoneEvent()->set();
  const std::array<Event*, 1> events{buffer.DoneEvent()};
  EXPECT_EQ(machine.seams().events.wait_any(events, 0).index, 0u);
  EXPECT_EQ(machine.seams().events.wait_any(events, 0).index, 0u);
}

TEST_F(IOBufferTest, TheDeviceIsNeitherOwnedNorClosed) {
  {
    IOBuffer buffer;
    bind(buffer);
  }
  EXPECT_EQ(device->closed, 0);
}

TEST_F(IOBufferTest, FillSetsAllBytes) {
  IOBuffer buffer;
  buffer.Allocate(5);
  buffer.Fill(std::byte{0xA7});
  EXPECT_EQ(buffer.Data().size(), 5u);
  EXPECT_THAT(buffer.Data(), testing::Each(std::byte{0xA7}));
}

TEST_F(IOBufferTest, AllocateReplacesTheMemory) {
  IOBuffer buffer;
  EXPECT_EQ(buffer.Data().size(), 0u);
  buffer.Allocate(5);
  buffer.Allocate(1920);
  EXPECT_EQ(buffer.Data().size(), 1920u);
}

TEST_F(IOBufferTest, AWriteHandsTheWholeMemoryToTheDeviceAsInput) {
  IOBuffer buffer;
  bind(buffer);
  buffer.Allocate(12);
  EXPECT_TRUE(buffer.SubmitWrite());
  ASSERT_EQ(device->requests.size(), 1u);
  const auto& request = device->requests[0];
  EXPECT_EQ(request.code, 0x80000004u);
  EXPECT_EQ(request.input.data(), buffer.Data().data());
  EXPECT_EQ(request.input.size(), 12u);
  EXPECT_TRUE(request.output.empty());
  EXPECT_EQ(request.overlapped->hEvent, buffer.DoneEvent());
}

TEST_F(IOBufferTest, AReadHandsTheWholeMemoryToTheDeviceAsOutput) {
  IOBuffer buffer;
  bind(buffer);
  buffer.Allocate(12);
  EXPECT_TRUE(buffer.SubmitRead());
  ASSERT_EQ(device->requests.size(), 1u);
  const auto& request = device->requests[0];
  EXPECT_EQ(request.code, 0x80000004u);
  EXPECT_TRUE(request.input.empty());
  EXPECT_EQ(request.output.data(), buffer.Data().data());
  EXPECT_EQ(request.output.size(), 12u);
  EXPECT_EQ(request.overlapped->hEvent, buffer.DoneEvent());
}

TEST_F(IOBufferTest, ASubmissionThatIsPendingOrDoneSucceeds) {
  IOBuffer buffer;
  bind(buffer);
  buffer.Allocate(4);
  for (const Error answer : {error::kIoPending, error::kNone}) {
    device->answer = answer;
    EXPECT_TRUE(buffer.SubmitWrite()) << answer;
    EXPECT_TRUE(buffer.SubmitRead()) << answer;
  }
  EXPECT_THAT(device->waits, IsEmpty());
}

TEST_F(IOBufferTest, ARefusedSubmissionFailsAndLeavesTheError) {
  IOBuffer buffer;
  bind(buffer);
  buffer.Allocate(4);
  device->answer = error::kDeviceNotConnected;
  EXPECT_FALSE(buffer.SubmitWrite());
  EXPECT_EQ(buffer.LastError(), 1167u);
  device->answer = error::kInvalidParameter;
  EXPECT_FALSE(buffer.SubmitRead());
  EXPECT_EQ(buffer.LastError(), 87u);
}

TEST_F(IOBufferTest, EveryRequestFailsUntilADeviceIsBound) {
  IOBuffer buffer;
  buffer.Allocate(4);
  WAVEFORMATEXTENSIBLE format;
  EXPECT_FALSE(buffer.SubmitWrite());
  EXPECT_FALSE(buffer.SubmitRead());
  EXPECT_FALSE(buffer.GetResult(nullptr, true));
  EXPECT_FALSE(buffer.WaitStream(format));
  EXPECT_FALSE(buffer.SetFeedback(1));
  EXPECT_EQ(buffer.LastError(), error::kInvalidHandle);
}

TEST_F(IOBufferTest, TheResultStoresTheByteCountWhereAPointerIsGiven) {
  IOBuffer buffer;
  bind(buffer);
  buffer.Allocate(4);
  buffer.SubmitWrite();
  device->outcome_bytes = 4;
  std::uint32_t bytes = 99;
  EXPECT_TRUE(buffer.GetResult(&bytes, true));
  EXPECT_EQ(bytes, 4u);
  EXPECT_TRUE(buffer.GetResult(nullptr, true));
}

TEST_F(IOBufferTest, TheResultIsWaitedForOnDemandOnly) {
  IOBuffer buffer;
  bind(buffer);
  buffer.Allocate(4);
  buffer.SubmitWrite();
  buffer.GetResult(nullptr, false);
  buffer.GetResult(nullptr, true);
  EXPECT_THAT(device->waits, ElementsAre(false, true));
}

TEST_F(IOBufferTest, AFailedTransferShowsInTheResult) {
  IOBuffer buffer;
  bind(buffer);
  buffer.Allocate(4);
  buffer.SubmitWrite();
  device->outcome = error::kDeviceNotConnected;
  EXPECT_FALSE(buffer.GetResult(nullptr, true));
  EXPECT_EQ(buffer.LastError(), 1167u);
}

TEST_F(IOBufferTest, WaitStreamTakesTheFortyBytesOfTheFormat) {
  IOBuffer buffer;
  bind(buffer);
  const WAVEFORMATEXTENSIBLE opened = pcm_format(44100, 24, 4);
  device->reply.resize(40);
  std::memcpy(device->reply.data(), &opened, 40);
  device->outcome_bytes = 40;
  WAVEFORMATEXTENSIBLE format;
  EXPECT_TRUE(buffer.WaitStream(format));
  EXPECT_EQ(format, opened);
  ASSERT_EQ(device->requests.size(), 1u);
  EXPECT_EQ(device->requests[0].code, 0x80000000u);
  EXPECT_TRUE(device->requests[0].input.empty());
  EXPECT_EQ(device->requests[0].output.size(), 40u);
  EXPECT_THAT(device->waits, ElementsAre(true));
}

TEST_F(IOBufferTest, WaitStreamDoesNotWaitForWhatIsDoneAtOnce) {
  IOBuffer buffer;
  bind(buffer);
  device->answer = error::kNone;
  WAVEFORMATEXTENSIBLE format;
  EXPECT_TRUE(buffer.WaitStream(format));
  EXPECT_THAT(device->waits, IsEmpty());
}

TEST_F(IOBufferTest, WaitStreamFailsAtOnceWhenItIsRefused) {
  IOBuffer buffer;
  bind(buffer);
  device->answer = error::kInvalidHandle;
  WAVEFORMATEXTENSIBLE format;
  EXPECT_FALSE(buffer.WaitStream(format));
  EXPECT_EQ(buffer.LastError(), 6u);
  EXPECT_THAT(device->waits, IsEmpty());
}

TEST_F(IOBufferTest, WaitStreamFailsWhenTheRequestIsAborted) {
  IOBuffer buffer;
  bind(buffer);
  device->outcome = error::kOperationAborted;
  WAVEFORMATEXTENSIBLE format;
  EXPECT_FALSE(buffer.WaitStream(format));
  EXPECT_EQ(buffer.LastError(), 995u);
}

TEST_F(IOBufferTest, FeedbackIsSentAsASigned32BitValueAndNotWaitedFor) {
  for (const std::int32_t value : {-1, 0, 1}) {
    IOBuffer buffer;
    bind(buffer);
    EXPECT_TRUE(buffer.SetFeedback(value));
    const auto& request = device->requests.back();
    EXPECT_EQ(request.code, 0x80000008u);
    EXPECT_TRUE(request.output.empty());
    ASSERT_EQ(request.input.size(), 4u);
    std::int32_t sent = 99;  // the request is still pending, so the device may read it now
    std::memcpy(&sent, request.input.data(), sizeof sent);
    EXPECT_EQ(sent, value);
  }
  EXPECT_THAT(device->waits, IsEmpty());
}

TEST_F(IOBufferTest, ARefusedFeedbackFailsAndLeavesTheError) {
  IOBuffer buffer;
  bind(buffer);
  device->answer = error::kInvalidHandle;
  EXPECT_FALSE(buffer.SetFeedback(0));
  EXPECT_EQ(buffer.LastError(), 6u);
}

TEST_F(IOBufferTest, APendingRequestIsCancelledBeforeTheBufferGoes) {
  {
    IOBuffer buffer;
    bind(buffer);
    buffer.Allocate(4);
    buffer.SubmitWrite();
  }
  ASSERT_EQ(device->requests.size(), 1u);
  EXPECT_THAT(device->cancelled, ElementsAre(device->requests[0].overlapped));
}

TEST_F(IOBufferTest, APendingRequestIsCancelledBeforeAnotherBinding) {
  IOBuffer buffer;
  bind(buffer);
  buffer.Allocate(4);
  buffer.SubmitWrite();
  bind(buffer);
  EXPECT_EQ(device->cancelled.size(), 1u);
}

TEST_F(IOBufferTest, ADoneRequestIsNotCancelled) {
  {
    IOBuffer buffer;
    bind(buffer);
    buffer.Allocate(4);
    buffer.SubmitWrite();
    buffer.GetResult(nullptr, true);
  }
  EXPECT_THAT(device->cancelled, IsEmpty());
}

TEST_F(IOBufferTest, AnArrayOfBuffersGoesInReverseOrder) {
  auto buffers = std::make_unique<IOBuffer[]>(3);
  for (std::size_t i = 0; i < 3; ++i) {
    bind(buffers[i]);
    buffers[i].Allocate(4);
    buffers[i].SubmitRead();
  }
  buffers.reset();
  EXPECT_THAT(device->cancelled, ElementsAre(device->requests[2].overlapped, device->requests[1].overlapped,
                                             device->requests[0].overlapped));
}

}  // namespace
}  // namespace sonivo::test
