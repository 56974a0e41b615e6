#include "driver/connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace sonivo::driver {
namespace {

/// One end of a connection whose other end reads nothing unless told to.
class SlowlyReadConnection : public testing::Test {
 protected:
  explicit SlowlyReadConnection(const QueueLimits& limits = {.replies = 2}) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    other_ = Descriptor(ends[1]);
    connection_.emplace(Descriptor(ends[0]), limits);
  }

  bool send(Room room) {
    const control::ReplyHead head{++latest_id_, error::kNone, static_cast<std::uint32_t>(output_.size())};
    return connection_->send({head, output_}, room);
  }
  void fill() {
    while (send(Room::limited)) ++taken_;
    --latest_id_;
  }
  /// Reads what the socket holds; the ids have to be in order.
  void read() {
    std::vector<std::byte> packet(control::kMaxReplyBytes);
    while (::recv(other_.number(), packet.data(), packet.size(), MSG_DONTWAIT) > 0) {
      std::uint32_t id = 0;
      std::memcpy(&id, packet.data(), sizeof id);
      EXPECT_EQ(id, ++read_);
    }
  }

  Descriptor other_;
  std::optional<Connection> connection_;
  std::vector<std::byte> output_ = std::vector<std::byte>(1044);
  std::uint32_t latest_id_ = 0;
  std::uint32_t taken_ = 0;
  std::uint32_t read_ = 0;
};

TEST_F(SlowlyReadConnection, HasReservedRoomBeyondItsLimit) {
  fill();
  EXPECT_FALSE(send(Room::limited));
  --latest_id_;
  for (int i = 0; i < 32; ++i) EXPECT_TRUE(send(Room::reserved));
  while (read_ < taken_ + 32) {
    ASSERT_TRUE(connection_->flush());
    read();
  }
  EXPECT_FALSE(connection_->has_queued());
}

TEST_F(SlowlyReadConnection, TakesNothingOnceTheOtherEndIsGone) {
  fill();
  other_.close();
  EXPECT_FALSE(connection_->flush());
  EXPECT_TRUE(connection_->has_queued());
}

/// With room for two packets and a part of another.
class ConnectionOfFewBytes : public SlowlyReadConnection {
 protected:
  ConnectionOfFewBytes() : SlowlyReadConnection({.replies = 1000, .bytes = 3 * (12 + 1044) - 1}) {}
};

TEST_F(ConnectionOfFewBytes, QueuesNoMoreThanThoseAndAsManyAgainOnceTheyAreSent) {
  for (int round = 0; round < 2; ++round) {
    fill();
    read();
    EXPECT_EQ(taken_ - read_, 2u) << "beyond what the socket held";
    ASSERT_TRUE(connection_->flush());
    EXPECT_FALSE(connection_->has_queued());
    read();
  }
}

}  // namespace
}  // namespace sonivo::driver
