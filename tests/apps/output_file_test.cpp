#include "apps/tool/output_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "apps/tool/failure.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string complaint_about(const std::string& name) {
  try {
    const OutputFile file(name);
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "none";
}

void write(const OutputFile& file, const std::string& text) {
  ASSERT_EQ(::write(file.descriptor(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

TEST(OutputFile, AppearsUnderItsNameWhenCommitted) {
  const TemporaryFolder folder;
  OutputFile file(folder / "out");
  write(file, "new");
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  file.commit();
  EXPECT_THAT(folder.entries(), ElementsAre("out"));
  EXPECT_EQ(bytes_of_file(folder / "out"), "new");
}

TEST(OutputFile, LeavesNothingBehindWhenNotCommitted) {
  const TemporaryFolder folder;
  { const OutputFile file(folder / "out"); }
  EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST(OutputFile, KeepsTheOldFileUntilTheNewOneIsWhole) {
  const TemporaryFolder folder;
  folder.write("out", "old");
  {
    const OutputFile file(folder / "out");
    write(file, "ne");
  }
  EXPECT_EQ(bytes_of_file(folder / "out"), "old");
}

TEST(OutputFile, WritesWhereALinkLeads) {
  const TemporaryFolder folder;
  folder.write("real", "old");
  std::filesystem::create_symlink(folder / "real", folder / "link");
  OutputFile file(folder / "link");
  write(file, "new");
  file.commit();
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(bytes_of_file(folder / "real"), "new");
}

TEST(OutputFile, KeepsThePermissionsOfTheFileThatItReplaces) {
  const TemporaryFolder folder;
  folder.write("out.wav", "old");
  ::chmod((folder / "out.wav").c_str(), 0640);
  OutputFile file(folder / "out.wav");
  file.commit();
  struct stat status {};
  ASSERT_EQ(::stat((folder / "out.wav").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST(OutputFile, IsRemovedWhenTheUserInterrupts) {
  const TemporaryFolder folder;
  const std::string name = folder / "out";
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EXIT(
        {
          const OutputFile file(name);
          std::raise(signal);
        },
        testing::KilledBySignal(signal), "");
    EXPECT_THAT(folder.entries(), IsEmpty());
  }
}

TEST(OutputFile, RefusesAFolderThatDoesNotExist) {
  EXPECT_EQ(
      complaint_about("/nowhere/out.wav"),
      "cannot create '/nowhere/out.wav': No such file or directory; choose a folder that exists and can be written "
      "to");
}

TEST(OutputFile, RefusesAFileAsAFolder) {
  const TemporaryFolder folder;
  folder.write("file", "");
  const std::string name = folder / "file/out.wav";
  EXPECT_EQ(complaint_about(name),
            "cannot create '" + name + "': Not a directory; choose a folder that exists and can be written to");
}

TEST(OutputFile, RefusesAFolderThatCannotBeWrittenTo) {
  // Not even root's to write to.
  EXPECT_EQ(complaint_about("/proc/out.wav"),
            "cannot create '/proc/out.wav': No such file or directory; choose a folder that exists and can be written "
            "to");
}

TEST(OutputFile, RefusesAFolderAsAFile) {
  const TemporaryFolder folder;
  const std::string name = folder.path();
  EXPECT_EQ(complaint_about(name), "'" + name + "' is a folder; give a file name in it");
}

TEST(OutputFile, RefusesADevice) {
  EXPECT_EQ(complaint_about("/dev/null"), "'/dev/null' is a pipe or a device; give a file name");
}

}  // namespace
}  // namespace sonivo::tool
