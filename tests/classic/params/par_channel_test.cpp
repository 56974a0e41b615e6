#include "classic/par_channel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <random>
#include <sstream>

#include "built_in_text.h"
#include "classic/beam_forming_channel.h"
#include "classic/built_in_params.h"
#include "classic/key_cancel_channel.h"
#include "reference_blob.h"
#include "test_files.h"

namespace sonivo::classic {
namespace {

using reference::Blob;
using reference::Kind;

class ParChannel : public testing::Test {
 protected:
  std::string path() const { return folder_ / "tuning.par"; }

  /// A complete par file, behind lines that come before its own.
  void write(const Blob& blob, const std::string& first_lines = "") const {
    write_file(path(), first_lines + blob.text());
    for (std::size_t o = 0; o < 2; ++o) {
      for (std::size_t i = 0; i < 2; ++i) {
        const auto& taps = blob.taps()[o][i];
        write_file(folder_ / ("flt" + std::to_string(o) + std::to_string(i) + ".bin"),
                   {reinterpret_cast<const char*>(taps.data()), taps.size() * sizeof taps[0]});
      }
    }
  }

  template <class Channel>
  void expect_nothing(const std::string& said) {
    std::ostringstream messages;
    EXPECT_EQ(MakeChannel<Channel>(path(), messages), nullptr);
    EXPECT_EQ(messages.str(), said);
  }

  const TemporaryFolder folder_;
};

TEST_F(ParChannel, OfOneMicrophoneIsBoundToTheBlobOfItsFile) {
  const Blob blob(Kind::key_cancel, {}, 1, '\0');
  write(blob);
  std::ostringstream messages;
  const auto channel = MakeChannel<KeyCancelChannel>(path(), messages);
  ASSERT_NE(channel, nullptr);
  EXPECT_EQ(messages.str(), "");
  EXPECT_EQ(bytes_of(channel->param()), blob.bytes());
}

TEST_F(ParChannel, OfTwoMicrophonesIsBoundToTheBlobOfItsFile) {
  write(Blob(Kind::beam_forming, {}, 2, '\0'));
  std::ostringstream messages;
  const auto channel = MakeChannel<BeamFormingChannel>(path(), messages);
  ASSERT_NE(channel, nullptr);
  EXPECT_EQ(messages.str(), "");
  EXPECT_EQ(bytes_of(channel->param()), bytes_of(*MakeParams<BeamFormingKeyCancelParam>(path())));
}

/// The channel keeps its blob: it goes on after its file is gone.
TEST_F(ParChannel, ProcessesAsAChannelOfTheSameBlob) {
  write_file(path(), test::built_in_text());
  const auto made = MakeChannel<KeyCancelChannel>(path());
  ASSERT_NE(made, nullptr);
  std::filesystem::remove(path());
  KeyCancelChannel other(std::make_shared<KeyCancelParam>(NrModelParam()));

  std::mt19937 random(4);
  std::uniform_real_distribution<float> sample(-1000.0f, 1000.0f);
  float loudest = 0.0f;
  for (int frame = 0; frame < 20; ++frame) {
    Frames in{};
    for (float& x : in[0]) x = sample(random);
    Frames out{}, expected{};
    made->process(in, 0, out);
    other.process(in, 0, expected);
    for (std::size_t n = 0; n < out[0].size(); ++n) {
      ASSERT_EQ(out[0][n], expected[0][n]) << frame << ", " << n;
      loudest = std::max(loudest, std::abs(out[0][n]));
    }
  }
  EXPECT_GT(loudest, 1.0f);
}

TEST_F(ParChannel, IsNotMadeWithoutAFile) {
  std::ostringstream messages;
  EXPECT_EQ(MakeChannel<KeyCancelChannel>(path(), messages), nullptr);
  EXPECT_TRUE(messages.str().starts_with("can not open par file " + path() + "\n"));
  EXPECT_TRUE(messages.str().ends_with("\nparametre error\n"));
}

TEST_F(ParChannel, IsNotMadeWithoutAKey) {
  write(Blob(Kind::key_cancel, {}, 5, '\0'), "paramID = none\n");
  expect_nothing<KeyCancelChannel>("paramID = none is bad format\nparametre error\n");
}

TEST_F(ParChannel, IsNotMadeWithoutAFilter) {
  write(Blob(Kind::beam_forming, {}, 6, '\0'));
  std::filesystem::remove(folder_ / "flt01.bin");
  expect_nothing<BeamFormingChannel>("fd_fbf_ain_flt[0][1] is bad value\ncan not open " + (folder_ / "flt01.bin") +
                                     "\nparametre error\n");
}

TEST_F(ParChannel, IsNotMadeOfValuesThatItCannotRunOn) {
  write(Blob(Kind::key_cancel, {}, 7, '\0'), "pulse_sup_delay.delay = -1\n");
  expect_nothing<KeyCancelChannel>("parametre error\n");
  write(Blob(Kind::beam_forming, {}, 8, '\0'), "pulse_sup.npm_num = 4\n");
  expect_nothing<BeamFormingChannel>("npm_num must be less than NS_NR_MAX_NPM_NUMparametre error\n");
}

}  // namespace
}  // namespace sonivo::classic
