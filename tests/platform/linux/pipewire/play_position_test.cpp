#include "platform/linux/pipewire/play_position.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace sonivo::test {
namespace {

using pipewire::PlayPosition;

TEST(PlayPosition, NoMorePassesThanWasWritten) {
  PlayPosition position;
  position.write(480);
  position.pass(400);
  EXPECT_EQ(position.waiting(), 80u);
  position.pass(400);
  EXPECT_EQ(position.waiting(), 0u);
  position.write(480);
  EXPECT_EQ(position.waiting(), 480u);
}

TEST(PlayPosition, WhatWasDroppedDoesNotWaitAgainThoughFramesPassMeanwhile) {
  PlayPosition position;
  std::atomic<bool> begun = false, done = false;
  std::thread pacer([&] {
    for (; !done; begun = true) position.pass(1);
  });
  while (!begun) std::this_thread::yield();
  std::uint32_t most = 0;
  for (int round = 0; round < 2'000'000; ++round) {
    position.write(480);
    position.drop();
    most = std::max({most, position.waiting(), position.waiting()});
  }
  done = true;
  pacer.join();
  EXPECT_EQ(most, 0u);
}

}  // namespace
}  // namespace sonivo::test
