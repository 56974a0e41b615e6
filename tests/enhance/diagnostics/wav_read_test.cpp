#include "enhance/wav_read.h"

#include <gtest/gtest.h>

#include "enhance/block_dump.h"
#include "files.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

using namespace std::string_literals;

const std::string kFormatChunk = "fmt \x10\0\0\0\x01\0\x02\0\x80\xBB\0\0\0\xEE\x02\0\x04\0\x10\0"s;
const std::string kDataChunk = "data\x04\0\0\0abcd"s;

std::string wav(const std::string& chunks) { return "RIFF\x40\0\0\0WAVE"s + chunks; }

class WavReader : public ::testing::Test {
 protected:
  int read(const std::string& bytes) {
    file_.reset(opened(folder_.path() / "a.wav", bytes));
    return wavRead(file_.get(), &format_);
  }

  TemporaryFolder folder_;
  File file_;
  WavFormat format_;
};

TEST_F(WavReader, GivesTheFormatAndThePlaceOfTheSamples) {
  ASSERT_EQ(read(wav(kFormatChunk + kDataChunk)), 0);
  EXPECT_EQ(format_.tag, 1);
  EXPECT_EQ(format_.channels, 2);
  EXPECT_EQ(format_.rate_hz, 48000u);
  EXPECT_EQ(format_.bits, 16);
  EXPECT_EQ(format_.data_offset, 44u);
  EXPECT_EQ(format_.data_bytes, 4u);
  EXPECT_EQ(std::fgetc(file_.get()), 'a');
}

TEST_F(WavReader, PassesOverOtherChunksInWholeWords) {
  const std::string odd = "LIST\x05\0\0\0INFOx\0"s;
  for (const char* name : {"fact", "cue ", "DISP", "plst", "any!"}) {
    const std::string other = name + "\x02\0\0\0zz"s;
    ASSERT_EQ(read(wav(odd + kFormatChunk + other + kDataChunk)), 0) << name;
    EXPECT_EQ(format_.data_offset, 68u) << name;
  }
}

TEST_F(WavReader, TakesALongerFormatChunk) {
  const std::string format = "fmt \x12\0\0\0\x01\0\x02\0\x80\xBB\0\0\0\xEE\x02\0\x04\0\x10\0\0\0"s;
  ASSERT_EQ(read(wav(format + kDataChunk)), 0);
  EXPECT_EQ(format_.data_offset, 46u);
}

TEST_F(WavReader, RefusesWhatIsNoWav) {
  EXPECT_NE(read(""), 0);
  EXPECT_NE(read("RIFF"), 0);
  EXPECT_NE(read("RIFX\x40\0\0\0WAVE"s + kFormatChunk + kDataChunk), 0);
  EXPECT_NE(read("RIFF\x40\0\0\0WAVX"s + kFormatChunk + kDataChunk), 0);
  EXPECT_NE(read("RIFF\0\0\0\0WAVE"s + kFormatChunk + kDataChunk), 0);
}

TEST_F(WavReader, RefusesAFileWithoutSamples) {
  EXPECT_NE(read(wav(kFormatChunk)), 0);
  EXPECT_NE(read(wav(kFormatChunk + "data\0\0\0\0"s)), 0);
  EXPECT_NE(read(wav(kFormatChunk + "data\0\0\0\x80zz"s)), 0);
}

TEST_F(WavReader, RefusesSamplesBeforeTheirFormat) { EXPECT_NE(read(wav(kDataChunk + kFormatChunk)), 0); }

TEST_F(WavReader, RefusesAFormatWithoutChannels) {
  std::string format = kFormatChunk;
  format[10] = 0;
  EXPECT_NE(read(wav(format + kDataChunk)), 0);
}

TEST_F(WavReader, RefusesAFormatThatIsTooShort) { EXPECT_NE(read(wav("fmt \x04\0\0\0\x01\0\x01\0"s + kDataChunk)), 0); }

TEST_F(WavReader, EndsAtAChunkOfNoLength) { EXPECT_NE(read(wav(kFormatChunk + "LIST\0\0\0\0"s + kDataChunk)), 0); }

TEST_F(WavReader, TellsWhetherTheFileHoldsTheSamplesItStates) {
  ASSERT_EQ(read(wav(kFormatChunk + kDataChunk)), 0);
  EXPECT_TRUE(format_.is_whole);
  ASSERT_EQ(read(wav(kFormatChunk + "data\xFF\xFF\xFF\x7Fzz"s)), 0);
  EXPECT_FALSE(format_.is_whole);
  EXPECT_EQ(format_.data_bytes, 0x7FFFFFFFu);
  ASSERT_EQ(read(wav(kFormatChunk + "data\x05\0\0\0abcd"s)), 0);
  EXPECT_FALSE(format_.is_whole);
}

TEST_F(WavReader, SurvivesAFileThatEndsAnywhere) {
  const std::string whole = wav(kFormatChunk + kDataChunk);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_TRUE(read(whole.substr(0, size)) != 0 || !format_.is_whole) << size;
  }
}

}  // namespace
}  // namespace sonivo::test
