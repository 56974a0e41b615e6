#include "apps/tool/param_blob.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "param_files.h"

namespace sonivo::tool {
namespace {

constexpr std::size_t kSize = 15808;

std::string failure_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "no failure";
}

class ParamBlob : public testing::Test {
 protected:
  std::string failure(const std::optional<std::string>& path, std::size_t size = kSize) {
    return failure_of([&] { read_param_blob(path, "keycancel", size); });
  }

  const TemporaryFolder folder_;
};

TEST_F(ParamBlob, IsReadAsItIs) {
  std::string bytes(kSize, '\0');
  for (std::size_t i = 0; i < kSize; ++i) bytes[i] = static_cast<char>(i * 7);
  const auto blob = read_param_blob(folder_.write("blob", bytes), "keycancel", kSize);
  ASSERT_EQ(blob.size(), kSize);
  EXPECT_EQ(std::memcmp(blob.data(), bytes.data(), kSize), 0);
}

TEST_F(ParamBlob, OfAnotherSizeIsNone) {
  for (const std::size_t size : {std::size_t{0}, kSize - 1, kSize + 1, 2 * kSize, std::size_t{32636}}) {
    const std::string path = folder_.write("blob", std::string(size, 'x'));
    EXPECT_EQ(failure(path), "'" + path +
                                 "' is no parameter blob of the keycancel chain, which has 15808 bytes; build one with "
                                 "sonivo params build keycancel")
        << size;
  }
}

TEST_F(ParamBlob, ThatIsMissingOrAFolderFails) {
  const std::string missing = folder_ / "none";
  EXPECT_EQ(failure(missing),
            "cannot open '" + missing + "': No such file or directory; check its name and its permissions");
  EXPECT_EQ(failure(folder_.path().string()), "'" + folder_.path().string() + "' is a folder; give a parameter blob");
}

TEST_F(ParamBlob, IsNotWaitedForInAPipeOrADevice) {
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {pipe, std::string("/dev/zero")}) {
    EXPECT_EQ(failure(path), "'" + path + "' is a pipe or a device; give a parameter blob");
  }
}

TEST_F(ParamBlob, IsWithoutANameTheSetThatLiesBesideTheProgram) {
  const auto program = std::filesystem::read_symlink("/proc/self/exe");
  const auto own = program.parent_path().parent_path() / "share/sonivo/par";
  EXPECT_EQ(failure_of([] { read_param_blob(std::nullopt, "no-such-chain", kSize); }),
            "cannot open '" + (own / "no-such-chain.bin").string() +
                "': No such file or directory; give a parameter blob with --params");
}

TEST_F(ParamBlob, OpensItsChain) {
  CKeyCancel chain;
  const auto blob = open_with_params(chain, key_cancel_blob(folder_), "keycancel", 44100, 3, 441);
  EXPECT_EQ(blob.size(), kSize);
  float rate = 0;
  std::uint16_t channels = 0;
  std::uint16_t frames = 0;
  EXPECT_EQ(chain.GetSamplingRate(&rate), 0);
  EXPECT_EQ(chain.GetChannel(&channels), 0);
  EXPECT_EQ(chain.GetDataLength(&frames), 0);
  EXPECT_EQ(rate, 44100.0f);
  EXPECT_EQ(channels, 3);
  EXPECT_EQ(frames, 441);
  CBeamFormingKeyCancel beams;
  EXPECT_EQ(open_with_params(beams, beam_forming_blob(folder_), "beamforming", 48000, 2, 480).size(), 32636u);
}

TEST_F(ParamBlob, OfAnotherVersionOrDamagedOpensNothing) {
  auto other = classic::test::key_cancel_params();
  other.version_major = 1;
  auto damaged = classic::test::key_cancel_params();
  damaged.head.syk2.nbin = 61;
  for (const auto& param : {other, damaged}) {
    const std::string path = folder_.write("blob", bytes_of(param));
    CKeyCancel chain;
    EXPECT_EQ(failure_of([&] { open_with_params(chain, path, "keycancel", 48000, 1, 480); }),
              "the parameter blob of the keycancel chain is damaged or of another version; build it again with sonivo "
              "params build");
  }
}

TEST_F(ParamBlob, SaysWhyAChainDoesNotOpen) {
  CKeyCancel chain;
  EXPECT_EQ(failure_of([&] { open_with_params(chain, key_cancel_blob(folder_), "keycancel", 16000, 1, 480); }),
            "the keycancel chain does not open, result 3");
}

}  // namespace
}  // namespace sonivo::tool
