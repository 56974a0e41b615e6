#include "driver/listener.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <optional>

#include "environment.h"
#include "raw_client.h"
#include "support/temporary_folder.h"

namespace sonivo::driver {
namespace {

using test::Variable;
using testing::HasSubstr;

unsigned mode_of(const std::string& path) {
  struct stat there {};
  EXPECT_EQ(::stat(path.c_str(), &there), 0) << path;
  return there.st_mode & 07777;
}

std::string why_not(const std::string& path) {
  try {
    const ListenerPath listener(path);
    return "listens";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

class ListenerPathTest : public testing::Test {
 protected:
  test::TemporaryFolder home_;
  const std::string path_ = home_ / "sonivo/driver.sock";
};

TEST_F(ListenerPathTest, SocketAndFolderAreTheOwnersAlone) {
  const ListenerPath listener(path_);
  EXPECT_EQ(mode_of(path_), 0600u);
  EXPECT_EQ(mode_of(home_ / "sonivo"), 0700u);
  EXPECT_TRUE(test::RawClient(path_).is_connected());
}

TEST_F(ListenerPathTest, TheNameGoesWithTheObject) {
  { const ListenerPath listener(path_); }
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(ListenerPathTest, ANameThatAnotherHasTakenStays) {
  std::optional<ListenerPath> first(path_);
  std::filesystem::remove(path_);
  const ListenerPath second(path_);
  first.reset();
  EXPECT_TRUE(test::RawClient(path_).is_connected());
}

TEST_F(ListenerPathTest, ASocketThatIsLeftOverIsReplaced) {
  {
    ListenerPath first(path_);
    std::filesystem::rename(path_, path_ + ".kept");  // as if the driver had been killed
    first.take();
  }
  std::filesystem::rename(path_ + ".kept", path_);
  ASSERT_FALSE(test::RawClient(path_).is_connected());
  const ListenerPath second(path_);
  EXPECT_TRUE(test::RawClient(path_).is_connected());
}

TEST_F(ListenerPathTest, ALiveDriverKeepsItsSocket) {
  const ListenerPath first(path_);
  EXPECT_EQ(why_not(path_), "can't listen at " + path_ + ": another driver does");
  EXPECT_TRUE(test::RawClient(path_).is_connected());
}

TEST_F(ListenerPathTest, WhatIsNoSocketIsLeftAlone) {
  home_.write("file", "text");
  EXPECT_THAT(why_not(home_ / "file"), HasSubstr("something that is no socket has that name"));
  EXPECT_EQ(std::filesystem::file_size(home_ / "file"), 4u);
}

TEST_F(ListenerPathTest, APathThatNoSocketCanHaveIsRefused) {
  EXPECT_THAT(why_not(home_ / std::string(108, 'x')), HasSubstr("the path is too long for a socket"));
  home_.write("file", "");
  EXPECT_THAT(why_not(home_ / "file/driver.sock"), HasSubstr("can't open the folder " + (home_ / "file")));
}

TEST_F(ListenerPathTest, AFolderThatAnotherHoldsIsNotWaitedForBeyondTheLimit) {
  ASSERT_EQ(::mkdir((home_ / "sonivo").c_str(), 0700), 0);
  const Descriptor holder(::open((home_ / "sonivo").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(holder.number(), LOCK_EX), 0);
  try {
    const ListenerPath listener(path_, std::chrono::milliseconds(30));
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), "can't listen at " + path_ + ": its folder is locked");
  }
  ASSERT_EQ(::flock(holder.number(), LOCK_UN), 0);
  EXPECT_EQ(why_not(path_), "listens");
}

TEST_F(ListenerPathTest, AFolderThatOthersMayWriteToIsRefused) {
  ASSERT_EQ(::mkdir((home_ / "sonivo").c_str(), 0700), 0);
  for (const mode_t mode : {0770u, 0707u, 01777u, 0720u}) {
    ASSERT_EQ(::chmod((home_ / "sonivo").c_str(), mode), 0);
    EXPECT_EQ(why_not(path_), "others may write to the folder " + (home_ / "sonivo"));
  }
  ASSERT_EQ(::chmod((home_ / "sonivo").c_str(), 0755), 0);
  EXPECT_EQ(why_not(path_), "listens");
}

TEST_F(ListenerPathTest, AFolderOfAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  ASSERT_EQ(::mkdir((home_ / "sonivo").c_str(), 0700), 0);
  ASSERT_EQ(::chown((home_ / "sonivo").c_str(), 65534, 65534), 0);
  EXPECT_EQ(why_not(path_), "the folder " + (home_ / "sonivo") + " belongs to another user");
}

TEST(DriverFolders, FollowTheEnvironment) {
  const Variable home("HOME", "/home/a");
  {
    const Variable runtime("XDG_RUNTIME_DIR", "/run/user/5");
    const Variable state("XDG_STATE_HOME", "/state");
    EXPECT_EQ(default_socket_path(), "/run/user/5/sonivo/driver.sock");
    EXPECT_EQ(default_state_folder(), "/state/sonivo");
  }
  const Variable runtime("XDG_RUNTIME_DIR", nullptr);
  EXPECT_EQ(default_socket_path(), std::nullopt);
  for (const char* const unset : {static_cast<const char*>(nullptr), "", "relative"}) {
    const Variable state("XDG_STATE_HOME", unset);
    EXPECT_EQ(default_state_folder(), "/home/a/.local/state/sonivo");
    const Variable nowhere("HOME", nullptr);
    EXPECT_EQ(default_state_folder(), std::nullopt);
  }
}

TEST(InheritedListener, IsNoneForAnotherProcess) {
  const Variable count("LISTEN_FDS", "1");
  const Variable process("LISTEN_PID", "1");
  EXPECT_FALSE(inherited_listener());
  const Variable nobody("LISTEN_PID", nullptr);
  EXPECT_FALSE(inherited_listener());
}

TEST(InheritedListener, MoreSocketsThanOneAreRefused) {
  const Variable count("LISTEN_FDS", "2");
  const Variable process("LISTEN_PID", std::to_string(::getpid()).c_str());
  EXPECT_THROW(inherited_listener(), std::runtime_error);
}

}  // namespace
}  // namespace sonivo::driver
