#include "apps/tool/output_file.h"

#include <fcntl.h>
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

TEST(OutputFile, WritesWhereALinkLeadsThoughNothingIsThereYet) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder / "inner");
  std::filesystem::create_symlink("inner/second", folder / "first");
  std::filesystem::create_symlink("real", folder / "inner/second");
  {
    const OutputFile file(folder / "first");
    write(file, "ne");
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "inner/real"));
  OutputFile file(folder / "first");
  write(file, "new");
  file.commit();
  EXPECT_THAT(folder.entries(), ElementsAre("first", "inner"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "first"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "inner/second"));
  EXPECT_EQ(bytes_of_file(folder / "inner/real"), "new");
}

TEST(OutputFile, RefusesALinkIntoAFolderThatDoesNotExist) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("gone/out.wav", folder / "link");
  const std::string name = folder / "link";
  EXPECT_EQ(complaint_about(name), "cannot create '" + name +
                                       "': No such file or directory; choose a folder that exists and can be written "
                                       "to");
}

TEST(OutputFile, RefusesALinkToItself) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("link", folder / "link");
  const std::string name = folder / "link";
  EXPECT_EQ(complaint_about(name),
            "cannot create '" + name + "': Too many levels of symbolic links; choose another name");
  EXPECT_TRUE(std::filesystem::is_symlink(name));
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

TEST(OutputFile, RefusesALinkToADevice) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("/dev/null", folder / "link");
  const std::string name = folder / "link";
  EXPECT_EQ(complaint_about(name), "'" + name + "' is a pipe or a device; give a file name");
}

TEST(OutputFile, RefusesAPipe) {
  const TemporaryFolder folder;
  const std::string name = folder / "pipe";
  ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0);
  EXPECT_EQ(complaint_about(name), "'" + name + "' is a pipe or a device; give a file name");
}

TEST(OutputFile, RefusesAFileThatARedirectionHasOpen) {
  const TemporaryFolder folder;
  const std::string name = folder.write("out.wav", "old");
  const int descriptor = ::open(name.c_str(), O_WRONLY);
  ASSERT_GE(descriptor, 0);
  ASSERT_LT(descriptor, 10);
  for (const std::string& alias : {name, "/dev/fd/" + std::to_string(descriptor)}) {
    EXPECT_EQ(complaint_about(alias),
              "'" + alias + "' belongs to a redirection of this command; give the name of another file");
  }
  ::close(descriptor);
  EXPECT_EQ(complaint_about(name), "none");
  EXPECT_EQ(bytes_of_file(name), "old");
}

}  // namespace
}  // namespace sonivo::tool
