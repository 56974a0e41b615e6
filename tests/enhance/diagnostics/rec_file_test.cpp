#include "enhance/rec_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "enhance/result.h"
#include "enhance/wav_read.h"
#include "files.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

using namespace std::string_literals;

class Recording : public ::testing::Test {
 protected:
  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_.path() / "rec.wav";
  RecFile rec_;
};

TEST_F(Recording, IsAWavFile) {
  ASSERT_EQ(rec_.open(path_.c_str()), 0);
  ASSERT_EQ(rec_.begin(1, 2), 0);
  const float block[] = {0.5f, -2.0f};
  ASSERT_EQ(rec_.write(block, 2), 0);
  EXPECT_EQ(rec_.close(1, 48000.0f), 0);
  EXPECT_EQ(content_of(path_),
            "RIFF\x28\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x80\xBB\0\0\0\x77\x01\0\x02\0\x10\0"
            "data\x04\0\0\0\0\x40\0\x80"s);
}

TEST_F(Recording, OfTwoChannelsStatesTwiceWhatItHolds) {
  ASSERT_EQ(rec_.open(path_.c_str()), 0);
  ASSERT_EQ(rec_.begin(2, 1), 0);
  const float block[] = {0.5f, -0.5f};
  ASSERT_EQ(rec_.write(block, 2), 0);
  EXPECT_EQ(rec_.close(2, 44100.9f), 0);
  EXPECT_EQ(content_of(path_),
            "RIFF\x2c\0\0\0WAVEfmt \x10\0\0\0\x01\0\x02\0\x44\xAC\0\0\x10\xB1\x02\0\x04\0\x10\0"
            "data\x08\0\0\0\0\x40\0\xC0"s);
}

TEST_F(Recording, IsRefusedWhileThereIsOne) {
  ASSERT_EQ(rec_.open(path_.c_str()), 0);
  EXPECT_EQ(rec_.open((folder_.path() / "other.wav").c_str()), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "other.wav"));
}

TEST_F(Recording, IsRefusedWhereNoFileCanBeMade) {
  EXPECT_EQ(rec_.open((folder_.path() / "none" / "rec.wav").c_str()), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_FALSE(rec_.is_open());
}

TEST_F(Recording, ThatIsNoneCantBeWrittenOrClosed) {
  const float sample = 0.0f;
  EXPECT_EQ(rec_.write(&sample, 1), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(rec_.close(1, 48000.0f), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
}

TEST_F(Recording, TakesBlocksThatBecameLonger) {
  ASSERT_EQ(rec_.open(path_.c_str()), 0);
  ASSERT_EQ(rec_.begin(1, 2), 0);
  const std::vector<float> block(5, 0.25f);
  ASSERT_EQ(rec_.write(block.data(), block.size()), 0);
  ASSERT_EQ(rec_.close(1, 48000.0f), 0);
  EXPECT_EQ(content_of(path_).substr(44), "\0\x20\0\x20\0\x20\0\x20\0\x20"s);
}

TEST_F(Recording, OnAFullDiskSaysSo) {
  // A device that is always full; its buffer must be flushed for that to be seen.
  ASSERT_EQ(rec_.open("/dev/full"), 0);
  EXPECT_EQ(rec_.begin(1, 480), ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY);
  EXPECT_FALSE(rec_.is_open());
}

TEST_F(Recording, IsReadBackByTheEnrolmentsReader) {
  ASSERT_EQ(rec_.open(path_.c_str()), 0);
  ASSERT_EQ(rec_.begin(1, 480), 0);
  const std::vector<float> block(480, 0.1f);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(rec_.write(block.data(), block.size()), 0);
  ASSERT_EQ(rec_.close(1, 44100.0f), 0);
  const File file(std::fopen(path_.c_str(), "rb"));
  WavFormat format;
  ASSERT_EQ(wavRead(file.get(), &format), 0);
  EXPECT_EQ(format.tag, 1);
  EXPECT_EQ(format.channels, 1);
  EXPECT_EQ(format.bits, 16);
  EXPECT_EQ(format.rate_hz, 44100u);
  EXPECT_EQ(format.data_offset, 44u);
  EXPECT_EQ(format.data_bytes, 2880u);
}

}  // namespace
}  // namespace sonivo::test
