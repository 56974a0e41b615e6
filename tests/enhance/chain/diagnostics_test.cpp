// The diagnostic outputs of the chain as a whole: its log file, the dump of its blocks, recordings.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "../diagnostics/files.h"
#include "chain_bench.h"
#include "enhance/pcm16.h"

namespace sonivo::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

std::string pcm_of(const std::vector<float>& samples) {
  std::string bytes;
  for (const float sample : samples) bytes += e2e::test::bytes_of(to_pcm16(sample));
  return bytes;
}

std::uint32_t number_at(const std::string& bytes, std::size_t at) {
  std::uint32_t value = 0;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

struct ChainDump : ChainBench {
  std::filesystem::path target = folder.path() / "dump";
  ScopedVariable variable{"AI_SPEECH_ENHANCE_DUMP_DIR", target.c_str()};

  ChainDump() { std::filesystem::create_directory(target); }

  std::string content(const std::string& ending) const {
    for (const auto& file : files_in(target)) {
      if (file.string().ends_with(ending)) return content_of(file);
    }
    return "no file";
  }
  /// The journal from the brackets of each line on.
  std::vector<std::string> journal() const {
    std::istringstream text(content(".csv"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
      const auto bracket = line.find('[');
      lines.push_back(bracket == std::string::npos ? line : line.substr(bracket));
    }
    return lines;
  }
};

TEST_F(ChainDump, HoldsEachBlockThatWentThrough) {
  ASSERT_EQ(open(passing, 44100.0f, 2, 441, 10.0f, 20.5f), 0);
  Block refused(882, 0.5f);
  ASSERT_EQ(chain->Execute(refused.data()), ERROR_AI_SPEECH_ENHANCE_STOPPED);
  ASSERT_EQ(chain->Run(), 0);
  Block first(882), second(882, -0.25f);
  for (std::size_t i = 0; i < first.size(); ++i) first[i] = static_cast<float>(i) / 882.0f - 0.5f;
  Block in = first;
  in.insert(in.end(), second.begin(), second.end());
  ASSERT_EQ(play(first), 0);
  ASSERT_EQ(chain->SetAISpeechEnhanceActive(1), 0);
  ASSERT_EQ(play(second), 0);
  Block out = first;
  out.insert(out.end(), second.begin(), second.end());
  ASSERT_EQ(chain->Stop(), 0);
  ASSERT_EQ(chain->Close(), 0);

  EXPECT_THAT(journal(),
              ElementsAre("Date, Time, timr(ms), Function, No., EnhanceActive, Message",
                          "[OPEN ], 0, 0, Open: 44100Hz / length=441 / ch=2 / in-ms=10.000000 / out-ms=20.500000",
                          "[INPUT ], 0, 0, Execute: input, ", "[OUTPUT], 0, 0, Execute: output, ",
                          "[INPUT ], 1, 1, Execute: input, ", "[OUTPUT], 1, 1, Execute: output, ", "[CLOSE ],"));
  EXPECT_EQ(content("_in.pcm"), pcm_of(in));
  EXPECT_EQ(content("_out.pcm"), pcm_of(out));
}

TEST_F(ChainDump, IsNotOpenedForArgumentsThatAreRefused) {
  EXPECT_EQ(open(passing, 16000.0f), ERROR_AI_SPEECH_ENHANCE_SAMPLING_RATE);
  EXPECT_TRUE(files_in(target).empty());
}

TEST_F(ChainDump, HoldsNoBlockThatPassedABusyChain) {
  start();
  log.hold_at("MakeAIModel: base_model_file=");
  std::thread enrolment([this] { chain->MakeAIModel("b", "e", "w", (folder / "o").c_str(), 0); });
  ASSERT_TRUE(log.wait_for_held());
  Block block(kBlock);
  EXPECT_EQ(chain->Execute(block.data()), WARNING_AI_SPEECH_ENHANCE_BUSY);
  log.let_go();
  enrolment.join();
  EXPECT_EQ(content("_in.pcm"), "");
}

TEST_F(ChainDump, ThatCantBeMadeLeavesTheChainAlone) {
  stand_in_the_way_of_dumps(target, "_out.pcm");
  start();
  EXPECT_EQ(play_silence(), 0);
  EXPECT_EQ(chain->Stop(), 0);
  EXPECT_EQ(chain->Close(), 0);
  EXPECT_EQ(content(".csv"), "");
  EXPECT_EQ(content("_in.pcm"), "");
}

struct ChainRecording : ChainBench {
  std::string wav = folder / "rec.wav";
};

TEST_F(ChainRecording, NeedsAnOpenChainAFileAndABlock) {
  Block block(kBlock);
  EXPECT_EQ(chain->OpenRecFile(nullptr), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(chain->Rec(nullptr), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  ASSERT_EQ(open(), 0);
  log.take();
  EXPECT_EQ(chain->Rec(block.data()), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(chain->Rec(nullptr), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG) << "before the look for a file";
  EXPECT_EQ(chain->CloseRecFile(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(chain->OpenRecFile(nullptr), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_EQ(chain->OpenRecFile((folder / "none/rec.wav").c_str()), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_THAT(
      errors(),
      ElementsAre("Rec: return ERROR_AI_SPEECH_ENHANCE_NO_INIT\n", "Rec: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n",
                  "CloseRecFile: return ERROR_AI_SPEECH_ENHANCE_NO_INIT\n",
                  "OpenRecFile: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n",
                  AllOf(HasSubstr("none/rec.wav"), EndsWith("return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN\n"))));
  EXPECT_EQ(chain->OpenRecFile(wav.c_str()), 0);
}

TEST_F(ChainRecording, IsOneAtATime) {
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(chain->OpenRecFile(wav.c_str()), 0);
  log.take();
  const std::string other = folder / "other.wav";
  EXPECT_EQ(chain->OpenRecFile(other.c_str()), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
  EXPECT_THAT(errors(), ElementsAre("OpenRecFile: rec file already open, " + other +
                                    ", return ERROR_AI_SPEECH_ENHANCE_FILE_OPEN\n"));
  EXPECT_EQ(chain->CloseRecFile(), 0);
  EXPECT_EQ(chain->CloseRecFile(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(chain->OpenRecFile(other.c_str()), 0);
}

/// Whatever runs: the blocks are the caller's.
TEST_F(ChainRecording, HoldsTheBlocksOfAllChannels) {
  ASSERT_EQ(open(passing, 44100.0f, 2, 441), 0);
  ASSERT_EQ(chain->OpenRecFile(wav.c_str()), 0);
  std::string expected;
  for (int n = 0; n < 3; ++n) {
    const Block block(882, 0.25f * static_cast<float>(n));
    ASSERT_EQ(chain->Rec(block.data()), 0);
    expected += pcm_of(block);
  }
  ASSERT_EQ(chain->CloseRecFile(), 0);
  const std::string bytes = content_of(wav);
  ASSERT_EQ(bytes.size(), 44 + expected.size());
  EXPECT_EQ(bytes.substr(44), expected);
  EXPECT_EQ(number_at(bytes, 24), 44100u);
  EXPECT_EQ(number_at(bytes, 28), 44100u * 2 * 2);
  EXPECT_EQ(number_at(bytes, 40), 2 * expected.size()) << "each sample counts as a frame";
  EXPECT_EQ(number_at(bytes, 4), 2 * expected.size() + 36);
}

/// It belongs to the object, not to what is open in it.
TEST_F(ChainRecording, GoesOnWhenTheChainIsClosedAndOpenedAgain) {
  const Block first(kBlock, 0.25f), second(882, -0.5f);
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(chain->OpenRecFile(wav.c_str()), 0);
  ASSERT_EQ(chain->Rec(first.data()), 0);
  ASSERT_EQ(chain->Close(), 0);
  EXPECT_EQ(chain->Rec(first.data()), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(chain->CloseRecFile(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  ASSERT_EQ(open(passing, 44100.0f, 2, 441), 0);
  EXPECT_EQ(chain->OpenRecFile((folder / "other.wav").c_str()), ERROR_AI_SPEECH_ENHANCE_FILE_OPEN) << "there is one";
  EXPECT_EQ(chain->Rec(second.data()), 0);
  ASSERT_EQ(chain->CloseRecFile(), 0);

  const std::string bytes = content_of(wav);
  EXPECT_EQ(bytes.substr(44), pcm_of(first) + pcm_of(second));
  EXPECT_EQ(number_at(bytes, 22) & 0xffff, 2u) << "channels of the end";
  EXPECT_EQ(number_at(bytes, 24), 44100u) << "and its rate";
  EXPECT_EQ(number_at(bytes, 40), 2u * (480 + 882) * 2);
}

TEST_F(ChainRecording, TakesTheChannelsOfTheTime) {
  ASSERT_EQ(open(passing, 48000.0f, 2), 0);
  ASSERT_EQ(chain->OpenRecFile(wav.c_str()), 0);
  std::string expected;
  for (const std::uint16_t channels : {std::uint16_t{2}, std::uint16_t{1}, std::uint16_t{4}}) {
    ASSERT_EQ(chain->SetChannel(channels), 0);
    const Block block(std::size_t{channels} * kBlock, 0.125f * static_cast<float>(channels));
    ASSERT_EQ(chain->Rec(block.data()), 0) << channels;
    expected += pcm_of(block);
  }
  ASSERT_EQ(chain->SetChannel(1), 0);
  ASSERT_EQ(chain->CloseRecFile(), 0);
  const std::string bytes = content_of(wav);
  EXPECT_EQ(bytes.substr(44), expected);
  EXPECT_EQ(number_at(bytes, 22) & 0xffff, 1u) << "of the end";
  EXPECT_EQ(number_at(bytes, 40), expected.size());
}

TEST_F(ChainRecording, OnAFullDiskDoesNotBegin) {
  ASSERT_EQ(open(), 0);
  log.take();
  EXPECT_EQ(chain->OpenRecFile("/dev/full"), ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY);
  EXPECT_THAT(errors(), ElementsAre("OpenRecFile: file write error, wav_rec header, return "
                                    "ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY\n"));
  EXPECT_EQ(chain->OpenRecFile(wav.c_str()), 0) << "nothing is open";
}

/// No file of the process may grow beyond so many bytes while this lives.
class FileLimit {
 public:
  explicit FileLimit(rlim_t bytes) : before_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &limit_);
    const rlimit lower{.rlim_cur = bytes, .rlim_max = limit_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &lower);
  }
  ~FileLimit() {
    ::setrlimit(RLIMIT_FSIZE, &limit_);
    std::signal(SIGXFSZ, before_);
  }
  FileLimit(const FileLimit&) = delete;
  FileLimit& operator=(const FileLimit&) = delete;

 private:
  void (*before_)(int);
  rlimit limit_{};
};

TEST_F(ChainRecording, OnADiskThatFillsUpSaysSo) {
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(chain->OpenRecFile(wav.c_str()), 0);
  const Block block(kBlock, 0.5f);
  int code = 0;
  {
    const FileLimit limit(10000);
    for (int n = 0; n < 100 && code == 0; ++n) code = chain->Rec(block.data());
  }
  EXPECT_EQ(code, ERROR_AI_SPEECH_ENHANCE_FILE_WRITE);
  EXPECT_EQ(errors().back(), "Rec: return ERROR_AI_SPEECH_ENHANCE_FILE_WRITE\n");
}

TEST(ChainLogFile, OfTheLifeCycleIsFromTheFirstLineToTheLast) {
  const TemporaryFolder folder;
  const ScopedVariable directory("AI_SPEECH_ENHANCE_LOG_DIR", folder.path().c_str());
  const ScopedVariable level("AI_SPEECH_ENHANCE_LOG_LEVEL", "999");
  {
    CAISpeechEnhance chain;
    EXPECT_EQ(chain.Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
    EXPECT_EQ(chain.ResetBuffer(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  }
  const auto files = files_in(folder.path());
  ASSERT_EQ(files.size(), 1u);
  const std::string time = "[0000/00/00 00:00:00.000] [INFO0] ";
  EXPECT_EQ(shape_of(content_of(files[0])),
            shape_of(time + "CAISpeechEnhance::CAISpeechEnhance()\n" + time + "Close:\n" + time +
                     "Close: return (00)\n" + time + "CAISpeechEnhance::~CAISpeechEnhance():\n" + time +
                     "CAISpeechEnhance::~CAISpeechEnhance(): delete impl\n"));
}

TEST(ChainLogFile, IsOneForTwoChainsUntilTheLastIsGone) {
  const TemporaryFolder folder;
  const ScopedVariable directory("AI_SPEECH_ENHANCE_LOG_DIR", folder.path().c_str());
  const ScopedVariable level("AI_SPEECH_ENHANCE_LOG_LEVEL", "999");
  {
    auto first = std::make_unique<CAISpeechEnhance>();
    CAISpeechEnhance second;
    EXPECT_EQ(first->Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
    first.reset();
    EXPECT_EQ(second.Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
  }
  const auto files = files_in(folder.path());
  ASSERT_EQ(files.size(), 1u);
  std::string expected;
  for (const char* const text :
       {"CAISpeechEnhance::CAISpeechEnhance()", "CAISpeechEnhance::CAISpeechEnhance()", "Close:", "Close: return (00)",
        "CAISpeechEnhance::~CAISpeechEnhance():", "CAISpeechEnhance::~CAISpeechEnhance(): delete impl",
        "Close:", "Close: return (00)",
        "CAISpeechEnhance::~CAISpeechEnhance():", "CAISpeechEnhance::~CAISpeechEnhance(): delete impl"}) {
    expected += std::string("[0000/00/00 00:00:00.000] [INFO0] ") + text + "\n";
  }
  EXPECT_EQ(shape_of(content_of(files[0])), shape_of(expected));
}

}  // namespace
}  // namespace sonivo::test
