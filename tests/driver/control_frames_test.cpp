#include "platform/control_frames.h"

#include <gtest/gtest.h>

#include "raw_client.h"

namespace sonivo::control {
namespace {

using test::Bytes;
using test::frame_of;
using test::head_of;

TEST(ControlFrames, ARequestIsReadAsItWasWritten) {
  const Bytes input{std::byte{1}, std::byte{2}, std::byte{3}};
  const Bytes frame = frame_of(head_of(7, GetFunction, input.size(), 4), input);
  ASSERT_EQ(frame.size(), 23u);
  const auto request = read_request(frame);
  ASSERT_TRUE(request);
  EXPECT_EQ(request->head.id, 7u);
  EXPECT_EQ(request->head.kind, RequestKind::control);
  EXPECT_EQ(request->head.code, GetFunction);
  EXPECT_EQ(request->head.output_bytes, 4u);
  EXPECT_EQ(Bytes(request->input.begin(), request->input.end()), input);
}

TEST(ControlFrames, AllNumbersAreLittleEndianInTheStatedOrder) {
  const Bytes frame = frame_of({0x01020304, RequestKind::cancel, 0, 0, 0});
  const Bytes expected{std::byte{4}, std::byte{3}, std::byte{2}, std::byte{1}, std::byte{2}};
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 5), expected);
}

TEST(ControlFrames, ARequestOneByteShortOrLongIsNone) {
  const Bytes whole = frame_of(head_of(1, SetFunction, 4, 0), Bytes(4));
  ASSERT_TRUE(read_request(whole));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(read_request(std::span(whole).first(size))) << size;
  }
  Bytes longer = whole;
  longer.push_back(std::byte{0});
  EXPECT_FALSE(read_request(longer));
}

TEST(ControlFrames, PayloadsUpToTheLimitAreTaken) {
  EXPECT_TRUE(read_request(frame_of(head_of(1, 2, kMaxPayload, kMaxPayload), Bytes(kMaxPayload))));
  EXPECT_FALSE(read_request(frame_of(head_of(1, 2, kMaxPayload + 1, 0), Bytes(kMaxPayload + 1))));
  EXPECT_FALSE(read_request(frame_of(head_of(1, 2, 0, kMaxPayload + 1))));
  EXPECT_FALSE(read_request(frame_of(head_of(1, 2, 0, 0xFFFFFFFF))));
}

TEST(ControlFrames, AnUnknownKindIsNoRequest) {
  for (const std::uint32_t kind : {0u, 3u, 0xFFFFFFFFu}) {
    EXPECT_FALSE(read_request(frame_of({1, static_cast<RequestKind>(kind), GetFunction, 0, 4}))) << kind;
  }
}

TEST(ControlFrames, ACancelHasNothingButAnId) {
  EXPECT_TRUE(read_request(frame_of(cancel_of(9))));
  EXPECT_FALSE(read_request(frame_of({9, RequestKind::cancel, GetFunction, 0, 0})));
  EXPECT_FALSE(read_request(frame_of({9, RequestKind::cancel, 0, 1, 0}, Bytes(1))));
  EXPECT_FALSE(read_request(frame_of({9, RequestKind::cancel, 0, 0, 1})));
}

TEST(ControlFrames, AReplyHasJustTheOutputThatItTells) {
  Bytes frame = test::bytes_of(ReplyHead{5, error::kNone, 2});
  EXPECT_FALSE(read_reply(frame));
  frame.resize(frame.size() + 2, std::byte{0xAB});
  const auto reply = read_reply(frame);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->head.id, 5u);
  EXPECT_EQ(Bytes(reply->output.begin(), reply->output.end()), Bytes(2, std::byte{0xAB}));
  frame.push_back(std::byte{0});
  EXPECT_FALSE(read_reply(frame));
  EXPECT_FALSE(read_reply(std::span(frame).first(11)));
}

}  // namespace
}  // namespace sonivo::control
