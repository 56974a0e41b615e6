#include "enhance/block_dump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <sstream>

#include "files.h"
#include "support/temporary_folder.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// The journal with each date as D and each number of milliseconds as M.
std::string plain(const std::string& journal) {
  std::istringstream lines(journal);
  std::string result;
  for (std::string line; std::getline(lines, line); result += line + "\n") {
    const std::string date = "0000/00/00, 00:00:00.000, ";
    if (shape_of(line.substr(0, date.size())) != date) continue;
    const std::size_t end = line.find_first_not_of("0123456789", date.size());
    if (end != date.size()) line = "D, M" + line.substr(end);
  }
  return result;
}

std::vector<std::int16_t> samples_of(const std::string& bytes) {
  std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
  std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(std::int16_t));
  return samples;
}

class Dump : public ::testing::Test {
 protected:
  TemporaryFolder folder_;
  ScopedVariable variable_{"AI_SPEECH_ENHANCE_DUMP_DIR", folder_.path().c_str()};
  BlockDump dump_;
};

TEST_F(Dump, IsOffWithoutAFolder) {
  const ScopedVariable unset("AI_SPEECH_ENHANCE_DUMP_DIR", nullptr);
  EXPECT_EQ(dump_.open(48000.0f, 1, 2, 20.0f, 20.0f, 1), 1);
  EXPECT_FALSE(dump_.is_on());
  dump_.close();
  EXPECT_THAT(files_in(folder_.path()), IsEmpty());
}

TEST_F(Dump, IsOffInAFolderThatIsNotThere) {
  const ScopedVariable elsewhere("AI_SPEECH_ENHANCE_DUMP_DIR", (folder_.path() / "none").c_str());
  EXPECT_EQ(dump_.open(48000.0f, 1, 2, 20.0f, 20.0f, 1), 1);
  EXPECT_FALSE(dump_.is_on());
}

/// What the other two hold then, nobody could tell the times of.
TEST_F(Dump, IsOffWhereOneOfItsFilesCantBeMade) {
  for (const char* const ending : {".csv", "_in.pcm", "_out.pcm"}) {
    const TemporaryFolder folder;
    const ScopedVariable elsewhere("AI_SPEECH_ENHANCE_DUMP_DIR", folder.path().c_str());
    stand_in_the_way_of_dumps(folder.path(), ending);
    const auto before = files_in(folder.path()).size();
    EXPECT_EQ(dump_.open(48000.0f, 1, 2, 20.0f, 20.0f, 1), 1) << ending;
    EXPECT_FALSE(dump_.is_on()) << ending;
    EXPECT_EQ(files_in(folder.path()).size(), before + 2) << ending;
    const float block[] = {0.5f, -0.25f};
    dump_.block(BlockDump::Kind::input, "Execute: input", block, 1);
    dump_.block(BlockDump::Kind::output, "Execute: output", block, 1);
    dump_.close();
    for (const auto& file : files_in(folder.path())) {
      if (std::filesystem::is_regular_file(file)) {
        EXPECT_EQ(content_of(file), "") << file;
      }
    }
  }
  const ScopedVariable here("AI_SPEECH_ENHANCE_DUMP_DIR", folder_.path().c_str());
  EXPECT_EQ(dump_.open(48000.0f, 1, 2, 20.0f, 20.0f, 1), 0) << "where all can be made";
}

TEST_F(Dump, IsAJournalAndTheSamplesOfBothSides) {
  ASSERT_EQ(dump_.open(44100.0f, 2, 1, 20.0f, 30.5f, 1), 0);
  const float in[] = {0.5f, -0.25f};
  const float out[] = {2.0f, -2.0f};
  dump_.block(BlockDump::Kind::input, "Execute: input", in, 1);
  dump_.block(BlockDump::Kind::output, "Execute: output", out, 1);
  dump_.block(BlockDump::Kind::input, "Execute: input", in, 0);
  dump_.block(BlockDump::Kind::input, "Execute: input", {}, 0);
  dump_.close();

  const auto files = files_in(folder_.path());
  ASSERT_THAT(files, SizeIs(3));
  EXPECT_EQ(shape_of(files[0].filename()), "dump_00000000_000000.csv");
  EXPECT_EQ(plain(content_of(files[0])),
            "Date, Time, timr(ms), Function, No., EnhanceActive, Message\n"
            "D, M, [OPEN ], 0, 1, Open: 44100Hz / length=1 / ch=2 / in-ms=20.000000 / out-ms=30.500000\n"
            "D, M, [INPUT ], 0, 1, Execute: input, \n"
            "D, M, [OUTPUT], 0, 1, Execute: output, \n"
            "D, M, [INPUT ], 1, 0, Execute: input, \n"
            "D, M, [CLOSE ],\n");
  EXPECT_TRUE(files[1].string().ends_with("_in.pcm"));
  EXPECT_THAT(samples_of(content_of(files[1])), ElementsAre(16384, -8192, 16384, -8192));
  EXPECT_TRUE(files[2].string().ends_with("_out.pcm"));
  EXPECT_THAT(samples_of(content_of(files[2])), ElementsAre(32767, -32768));
}

TEST_F(Dump, TruncatesSamplesTowardsZero) {
  ASSERT_EQ(dump_.open(48000.0f, 1, 4, 0.0f, 0.0f, 1), 0);
  const float block[] = {1.9f / 32768, -1.9f / 32768, 0.9f / 32768, -0.9f / 32768};
  dump_.block(BlockDump::Kind::input, "", block, 1);
  dump_.close();
  EXPECT_THAT(samples_of(content_of(files_in(folder_.path())[1])), ElementsAre(1, -1, 0, 0));
}

TEST_F(Dump, WritesZeroForWhatIsNoNumber) {
  ASSERT_EQ(dump_.open(48000.0f, 1, 3, 0.0f, 0.0f, 1), 0);
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const float block[] = {std::numeric_limits<float>::quiet_NaN(), kInfinity, -kInfinity};
  dump_.block(BlockDump::Kind::input, "", block, 1);
  dump_.close();
  EXPECT_THAT(samples_of(content_of(files_in(folder_.path())[1])), ElementsAre(0, 32767, -32768));
}

}  // namespace
}  // namespace sonivo::test
