#include "enhance/whole_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include "../../apps/wav_bytes.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const auto kWriteNew = [](std::ostream& stream) { stream << "new"; };

TEST(WholeFile, AppearsWithItsContent) {
  const TemporaryFolder folder;
  EXPECT_TRUE(write_whole_file(folder / "a", kWriteNew));
  EXPECT_EQ(tool::bytes_of_file(folder / "a"), "new");
  EXPECT_THAT(folder.entries(), ElementsAre("a"));
}

TEST(WholeFile, IsReadByThoseWhoMayReadWhatTheUserMakes) {
  const TemporaryFolder folder;
  const mode_t mask = ::umask(027);
  EXPECT_TRUE(write_whole_file(folder / "a", kWriteNew));
  ::umask(mask);
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(folder / "a").permissions(),
            perms::owner_read | perms::owner_write | perms::group_read);
}

TEST(WholeFile, TakesThePlaceOfAnOlderOneAndOfWhatWasLeft) {
  const TemporaryFolder folder;
  folder.write("a", "an older one");
  folder.write("a.part", "what was left");
  EXPECT_TRUE(write_whole_file(folder / "a", kWriteNew));
  EXPECT_EQ(tool::bytes_of_file(folder / "a"), "new");
  EXPECT_THAT(folder.entries(), ElementsAre("a"));
}

TEST(WholeFile, LeavesTheOlderOneWhereItIsNotWritten) {
  const TemporaryFolder folder;
  folder.write("a", "an older one");
  EXPECT_THROW(write_whole_file(folder / "a",
                                [](std::ostream& stream) {
                                  stream << "ne";
                                  throw std::runtime_error("no more");
                                }),
               std::runtime_error);
  EXPECT_FALSE(write_whole_file(folder / "a", [](std::ostream& stream) {
    stream << "ne";
    stream.setstate(std::ios::failbit);
  }));
  EXPECT_EQ(tool::bytes_of_file(folder / "a"), "an older one");
  EXPECT_THAT(folder.entries(), ElementsAre("a"));
}

TEST(WholeFile, NeedsAFolder) {
  const TemporaryFolder folder;
  EXPECT_FALSE(write_whole_file(folder / "none/a", kWriteNew));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST(WholeFile, DoesNotTakeThePlaceOfAFolder) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder / "a");
  EXPECT_FALSE(write_whole_file(folder / "a", kWriteNew));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_THAT(folder.entries(), ElementsAre("a"));
}

TEST(WholeFile, LiesInTheFolderOfTheProcessWithoutAnother) {
  const TemporaryFolder folder;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  EXPECT_TRUE(write_whole_file("a", kWriteNew));
  std::filesystem::current_path(before);
  EXPECT_THAT(folder.entries(), ElementsAre("a"));
}

}  // namespace
}  // namespace sonivo::test
