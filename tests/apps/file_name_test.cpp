#include "apps/tool/file_name.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "apps/tool/failure.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

template <typename Action>
std::string complaint_of(Action action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "none";
}

TEST(RefuseSameFile, SeesThroughLinks) {
  const TemporaryFolder folder;
  const std::string in = folder.write("in.wav", "x");
  std::filesystem::create_symlink(in, folder / "soft.wav");
  std::filesystem::create_hard_link(in, folder / "hard.wav");
  for (const std::string name : {"in.wav", "./in.wav", "soft.wav", "hard.wav"}) {
    const std::string out = folder / name;
    EXPECT_EQ(complaint_of([&] { refuse_same_file(in, out); }),
              "'" + out + "' is the input itself; choose another name for the output");
  }
  EXPECT_EQ(complaint_of([&] { refuse_same_file(in, in, "the parameter blob"); }),
            "'" + in + "' is the parameter blob itself; choose another name for the output");
  EXPECT_NO_THROW(refuse_same_file(in, folder / "out.wav"));
}

TEST(RequireFile, WantsOneThatCanBeRead) {
  const TemporaryFolder folder;
  EXPECT_NO_THROW(require_file(folder.write("in.par", ""), "a parameter file"));
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {pipe, std::string("/dev/null")}) {
    EXPECT_EQ(complaint_of([&] { require_file(path, "a parameter file"); }),
              "'" + path + "' is a pipe or a device; give a parameter file");
  }
  EXPECT_EQ(complaint_of([&] { require_file(folder / "", "a blob"); }),
            "'" + (folder / "") + "' is a folder; give a blob");
  EXPECT_EQ(complaint_of([&] { require_file(folder / "none", "a blob"); }),
            "cannot open '" + (folder / "none") + "': No such file or directory; check its name and its permissions");
}

}  // namespace
}  // namespace sonivo::tool
