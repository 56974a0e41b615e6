#include "driver/state_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "base/trace.h"
#include "failing_disk.h"
#include "support/temporary_folder.h"

namespace sonivo::driver {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr const char* kTitle = "numbers 1";

std::string content_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class StateFolderTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(log_.empty() || may_log_) << log_.front(); }

  test::TemporaryFolder home_;
  const std::string path_ = home_ / "state";
  test::FailingDisk disk_;
  Lines log_;
  bool may_log_ = false;
  ScopedTraceSink sink_{[this](TraceLevel, std::string_view text) { log_.emplace_back(text); }};
};

TEST_F(StateFolderTest, LinesAreLoadedAsTheyWereSaved) {
  StateFolder folder(path_, disk_);
  EXPECT_THAT(folder.load("numbers", kTitle), IsEmpty());
  EXPECT_EQ(folder.save("numbers", kTitle, {"one 1", "", "three  3 "}), error::kNone);
  EXPECT_THAT(folder.load("numbers", kTitle), ElementsAre("one 1", "", "three  3 "));
  EXPECT_EQ(folder.save("numbers", kTitle, {}), error::kNone);
  EXPECT_THAT(folder.load("numbers", kTitle), IsEmpty());
  struct stat made {};
  ASSERT_EQ(::stat(path_.c_str(), &made), 0);
  EXPECT_EQ(made.st_mode & 0777, 0700u);
}

TEST_F(StateFolderTest, TheChecksumIsTheFnv1aOfAllBeforeIt) {
  StateFolder folder(path_, disk_);
  ASSERT_EQ(folder.save("numbers", "a", {}), error::kNone);
  std::uint64_t sum = 14695981039346656037u;
  for (const char each : {'a', '\n'}) sum = (sum ^ static_cast<unsigned char>(each)) * 1099511628211u;
  char digits[20];
  std::snprintf(digits, sizeof digits, "%016lx", sum);
  EXPECT_EQ(content_of(path_ + "/numbers"), std::string("a\nchecksum ") + digits + "\n");
}

TEST_F(StateFolderTest, WhicheverStepFailsTheFormerFileIsLoadedAndNothingIsLeftBehind) {
  may_log_ = true;
  StateFolder folder(path_, disk_);
  ASSERT_EQ(folder.save("numbers", kTitle, {"former"}), error::kNone);
  const int steps = disk_.steps;
  ASSERT_EQ(steps, 5);  // new file, write, sync, rename, sync of the folder
  for (int step = 1; step < steps; ++step) {
    disk_.steps = 0;
    disk_.fail_at = step;
    EXPECT_EQ(folder.save("numbers", kTitle, {"next"}), error::kDiskFull) << step;
    EXPECT_THAT(folder.load("numbers", kTitle), ElementsAre("former")) << step;
    EXPECT_FALSE(std::filesystem::exists(path_ + "/numbers.new")) << step;
  }
  disk_.steps = 0;
  disk_.fail_at = steps;
  EXPECT_EQ(folder.save("numbers", kTitle, {"next"}), error::kDiskFull);
  EXPECT_EQ(log_.size(), 5u);
  disk_.fail_at = 0;
  EXPECT_EQ(folder.save("numbers", kTitle, {"after"}), error::kNone);
  EXPECT_THAT(folder.load("numbers", kTitle), ElementsAre("after"));
}

TEST_F(StateFolderTest, ADiskThatTakesAFileInPartsGetsItWhole) {
  disk_.part = 7;
  StateFolder folder(path_, disk_);
  const Lines lines(20, "a line");
  ASSERT_EQ(folder.save("numbers", kTitle, lines), error::kNone);
  EXPECT_EQ(folder.load("numbers", kTitle), lines);
  // Title, lines and checksum, each with its end, in parts of 7; the new file, two syncs and the renaming.
  EXPECT_EQ(disk_.steps, (10 + 20 * 7 + 26 + 6) / 7 + 4);
}

TEST_F(StateFolderTest, WhyTheDiskFailedIsTold) {
  may_log_ = true;
  StateFolder folder(path_, disk_);
  const std::pair<int, Error> cases[]{{ENOSPC, error::kDiskFull},
                                      {EDQUOT, error::kDiskFull},
                                      {EROFS, error::kWriteFault},
                                      {EACCES, error::kWriteFault},
                                      {EIO, error::kWriteFault}};
  for (const auto& [number, expected] : cases) {
    disk_.steps = 0;
    disk_.fail_at = 1;
    disk_.number = number;
    EXPECT_EQ(folder.save("numbers", kTitle, {"one"}), expected) << number;
  }
}

TEST_F(StateFolderTest, AFileCutAnywhereOrWithAnyByteChangedIsSetAside) {
  may_log_ = true;
  StateFolder folder(path_, disk_);
  ASSERT_EQ(folder.save("numbers", kTitle, {"one 1", "two 2"}), error::kNone);
  const std::string file = path_ + "/numbers";
  const std::string whole = content_of(file);
  std::size_t damages = 0;
  const auto expect_damaged = [&](const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
    EXPECT_THAT(folder.load("numbers", kTitle), IsEmpty()) << content;
    EXPECT_FALSE(std::filesystem::exists(file)) << content;
    EXPECT_EQ(content_of(file + ".damaged"), content);
    std::filesystem::remove(file + ".damaged");
    ++damages;
  };
  for (std::size_t size = 0; size < whole.size(); ++size) expect_damaged(whole.substr(0, size));
  for (std::size_t i = 0; i < whole.size(); ++i) {
    std::string changed = whole;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    expect_damaged(changed);
  }
  expect_damaged(whole + "more");
  expect_damaged(whole + "more\n");
  ASSERT_EQ(log_.size(), damages);
  EXPECT_THAT(log_.back(),
              HasSubstr("state/numbers is damaged: its checksum is wrong; it is now called numbers.damaged"));
}

TEST_F(StateFolderTest, OfDamagedFilesTheLatestFiveAreKept) {
  may_log_ = true;
  StateFolder folder(path_, disk_);
  const std::string file = path_ + "/numbers";
  for (const char* const content : {"1", "2", "3", "4", "5", "6", "7"}) {
    std::ofstream(file, std::ios::binary) << content;
    EXPECT_THAT(folder.load("numbers", kTitle), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(file)) << content;
  }
  EXPECT_EQ(content_of(file + ".damaged"), "3");
  const std::string numbers = "2345";
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    EXPECT_EQ(content_of(file + ".damaged." + numbers[i]), std::string(1, "4567"[i]));
  }
  const std::filesystem::directory_iterator kept(path_);
  EXPECT_EQ(std::distance(begin(kept), end(kept)), 5);
  for (const std::size_t i : {4u, 5u, 6u}) {
    EXPECT_THAT(log_[i], HasSubstr("it is now called numbers.damaged.5, and defaults apply"));
  }
}

TEST_F(StateFolderTest, ADamagedFileThatCanNotBeSetAsideStaysAndIsTold) {
  StateFolder folder(path_, disk_);
  const std::string file = path_ + "/numbers";
  for (const char* const end : {"", ".2", ".3", ".4", ".5"}) {
    std::filesystem::create_directories(file + ".damaged" + end + "/mine");
  }
  std::ofstream(file, std::ios::binary) << "1";
  try {
    folder.load("numbers", kTitle);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), file + " is damaged (its last line has no end) and can't be set aside as " +
                                             file + ".damaged.5: Directory not empty");
  }
  EXPECT_EQ(content_of(file), "1");
  for (const char* const end : {"", ".2", ".3", ".4", ".5"}) {
    EXPECT_TRUE(std::filesystem::exists(file + ".damaged" + end + "/mine"));
  }
}

TEST_F(StateFolderTest, AFileWithAnotherTitleIsDamaged) {
  may_log_ = true;
  StateFolder folder(path_, disk_);
  ASSERT_EQ(folder.save("numbers", "numbers 2", {"one"}), error::kNone);
  EXPECT_THAT(folder.load("numbers", kTitle), IsEmpty());
  EXPECT_THAT(log_, ElementsAre(HasSubstr("it doesn't start with \"numbers 1\"")));
}

TEST_F(StateFolderTest, AFileLargerThanAnyIsDamaged) {
  may_log_ = true;
  StateFolder folder(path_, disk_);
  const std::string file = path_ + "/numbers";
  std::ofstream(file).put('x');
  std::filesystem::resize_file(file, (std::size_t{32} << 20) + 1);
  EXPECT_THAT(folder.load("numbers", kTitle), IsEmpty());
  EXPECT_THAT(log_, ElementsAre(HasSubstr("it is too large")));
}

TEST_F(StateFolderTest, WhatCanNotBeReadIsNotTakenForNothing) {
  StateFolder folder(path_, disk_);
  std::filesystem::create_directory(path_ + "/numbers");
  EXPECT_THROW(folder.load("numbers", kTitle), std::runtime_error);
}

TEST_F(StateFolderTest, AFifoIsNeitherReadNorWaitedForNorWrittenTo) {
  StateFolder folder(path_, disk_);
  ASSERT_EQ(::mkfifo((path_ + "/numbers").c_str(), 0600), 0);
  try {
    folder.load("numbers", kTitle);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), path_ + "/numbers is no regular file");
  }
  ASSERT_EQ(::mkfifo((path_ + "/numbers.new").c_str(), 0600), 0);
  EXPECT_EQ(folder.save("numbers", kTitle, {"one"}), error::kNone);
  EXPECT_THAT(folder.load("numbers", kTitle), ElementsAre("one"));
}

TEST_F(StateFolderTest, ALinkWithTheNameOfTheNextFileIsNotFollowed) {
  StateFolder folder(path_, disk_);
  home_.write("elsewhere", "mine");
  std::filesystem::create_symlink(home_ / "elsewhere", path_ + "/numbers.new");
  EXPECT_EQ(folder.save("numbers", kTitle, {"one"}), error::kNone);
  EXPECT_EQ(content_of(home_ / "elsewhere"), "mine");
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path_ + "/numbers")));
}

/// "numbers" is a link to "mine/kept" beside the folder.
class LinkedFile : public StateFolderTest {
 protected:
  LinkedFile() {
    std::filesystem::create_directories(path_);
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
    ::mkdir(mine_.c_str(), 0700);
    std::filesystem::create_symlink("../mine/kept", path_ + "/numbers");
  }
  bool is_still_a_link() const { return std::filesystem::is_symlink(path_ + "/numbers"); }

  const std::string mine_ = home_ / "mine";
};

TEST_F(LinkedFile, IsReplacedWholeWhereTheLinkLeads) {
  StateFolder folder(path_, disk_);
  for (const char* const line : {"first", "second"}) {  // at first the link leads to nothing
    EXPECT_EQ(folder.save("numbers", kTitle, {line}), error::kNone);
    EXPECT_TRUE(is_still_a_link());
    EXPECT_THAT(content_of(mine_ + "/kept"), HasSubstr(line));
    EXPECT_THAT(folder.load("numbers", kTitle), ElementsAre(line));
  }
  may_log_ = true;
  disk_.steps = 0;
  disk_.fail_at = 2;
  EXPECT_EQ(folder.save("numbers", kTitle, {"third"}), error::kDiskFull);
  EXPECT_THAT(folder.load("numbers", kTitle), ElementsAre("second"));
  EXPECT_FALSE(std::filesystem::exists(mine_ + "/kept.new"));
}

TEST_F(LinkedFile, IsSetAsideWhereTheLinkLeads) {
  may_log_ = true;
  StateFolder folder(path_, disk_);
  std::ofstream(mine_ + "/kept") << "damaged";
  EXPECT_THAT(folder.load("numbers", kTitle), IsEmpty());
  EXPECT_EQ(content_of(mine_ + "/kept.damaged"), "damaged");
  EXPECT_TRUE(is_still_a_link());
}

TEST_F(LinkedFile, IsNotWrittenWhereOthersMayWrite) {
  may_log_ = true;
  StateFolder folder(path_, disk_);
  ::chmod(mine_.c_str(), 0777);
  EXPECT_EQ(folder.save("numbers", kTitle, {"one"}), error::kWriteFault);
  EXPECT_THAT(log_, ElementsAre(HasSubstr("numbers can't be written: others may write to the folder ")));
  EXPECT_TRUE(std::filesystem::is_empty(mine_));
}

TEST_F(StateFolderTest, LinksThatLeadNowhereAreTold) {
  StateFolder folder(path_, disk_);
  std::filesystem::create_symlink("numbers", path_ + "/numbers");
  EXPECT_THROW(folder.load("numbers", kTitle), std::runtime_error);
}

TEST_F(StateFolderTest, ASecondDriverIsRefused) {
  const StateFolder folder(path_, disk_);
  try {
    const StateFolder second(path_, disk_);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), "another driver keeps its state in " + path_);
  }
}

TEST_F(StateFolderTest, AFolderThatCanNotBeIsRefused) {
  home_.write("file", "");
  EXPECT_THROW(StateFolder(home_ / "file", disk_), std::runtime_error);
  EXPECT_THROW(StateFolder(home_ / "file/state", disk_), std::runtime_error);
}

TEST_F(StateFolderTest, AFolderIsMadeWithThoseAboveIt) {
  StateFolder folder(home_ / "a/b/c/", disk_);
  EXPECT_EQ(folder.save("numbers", kTitle, {}), error::kNone);
  EXPECT_TRUE(std::filesystem::exists(home_ / "a/b/c/numbers"));
  for (const char* const each : {"a", "a/b", "a/b/c"}) {
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(home_ / each).permissions()), 0700u) << each;
  }
}

TEST_F(StateFolderTest, AFolderThatOthersMayWriteToIsRefused) {
  ASSERT_EQ(::mkdir(path_.c_str(), 0700), 0);
  ASSERT_EQ(::chmod(path_.c_str(), 0777), 0);
  try {
    const StateFolder folder(path_, disk_);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), "others may write to the folder " + path_);
  }
}

TEST(EscapedText, AnyTextComesBack) {
  std::u16string all;
  for (std::uint32_t code = 1; code < 0x10000; ++code) all += static_cast<char16_t>(code);
  const std::string line = escaped(all);
  EXPECT_TRUE(std::all_of(line.begin(), line.end(), [](char each) { return each >= ' ' && each <= '~'; }));
  EXPECT_EQ(unescaped(line), all);
}

TEST(EscapedText, OnlyWhatIsNotPrintableIsWrittenOut) {
  EXPECT_EQ(escaped(u"a b~\\\n\u00e9"), "a b~\\u005c\\u000a\\u00e9");
  EXPECT_EQ(unescaped(""), u"");
}

TEST(EscapedText, AnythingElseIsNone) {
  for (const char* const text : {"\\", "\\u12", "\\x1234", "\\u12g4", "\\u 123", "\\u-123", "\xc3\xa9", "a\tb"}) {
    EXPECT_FALSE(unescaped(text)) << text;
  }
}

}  // namespace
}  // namespace sonivo::driver
