// Open and Close, Run and Stop: what they answer in each state, what they look at in which order, and what they log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "chain_bench.h"

namespace sonivo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Pair;

using LifeCycle = ChainBench;

/// The first of all things that are wrong decides; put right one after the other.
TEST_F(LifeCycle, OpenLooksAtItsArgumentsInOrder) {
  const std::uint16_t* param = nullptr;
  const char* model = passing.c_str();
  float rate = 16000.0f, in_ms = -1.0f, out_ms = -2.5f;
  std::uint16_t channels = 0, length = 0;
  const auto opened = [&] { return chain->Open(param, model, rate, channels, length, in_ms, out_ms); };
  const auto error = [&] {
    const auto texts = errors();
    return texts.empty() ? "" : texts.back();
  };

  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_EQ(error(), "Open: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n");
  param = blob.get();
  model = nullptr;
  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  const std::string missing = folder / "missing.bin";
  model = missing.c_str();

  for (const float wrong : {16000.0f, 0.0f, 47999.0f, 44101.0f, -48000.0f}) {
    rate = wrong;
    EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_SAMPLING_RATE) << wrong;
    EXPECT_EQ(error(), "Open: return ERROR_AI_SPEECH_ENHANCE_SAMPLING_RATE\n");
  }
  rate = 48000.0f;

  for (const std::uint16_t wrong : {std::uint16_t{0}, std::uint16_t{5}}) {
    channels = wrong;
    EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_CHANNEL_NUM) << wrong;
    EXPECT_EQ(error(), "Open: return ERROR_AI_SPEECH_ENHANCE_CHANNEL_NUM\n");
  }
  channels = 1;

  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
  EXPECT_EQ(error(), "Open: return ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH\n");
  length = kBlock;

  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
  EXPECT_EQ(error(),
            "Open: add_buff error, add_buff_in_ms=-1.000000, add_buff_out_ms=-2.500000, return "
            "ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH\n");
  in_ms = 20.0f;
  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH) << "the other one alone";
  std::swap(in_ms, out_ms);
  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH) << "and the first one alone";
  in_ms = out_ms = 0.0f;

  blob->version_major = 2;
  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_PARAM_VERSION) << "the blob before the model";
  EXPECT_EQ(error(), "Open: bf.Open error, ret (2)\n");
  blob->version_major = 1;

  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(error(), "Open: return ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL\n");
  model = passing.c_str();

  EXPECT_EQ(opened(), 0);
  param = nullptr;
  rate = 0.0f;
  EXPECT_EQ(opened(), ERROR_AI_SPEECH_ENHANCE_ALREADY_OPEND) << "before all else";
  EXPECT_EQ(error(), "Open: return ERROR_AI_SPEECH_ENHANCE_ALREADY_OPEND\n");
}

TEST_F(LifeCycle, BufferTimesThatAreNoNumbersAreRefused) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(open(passing, 48000.0f, 1, kBlock, nan, 20.0f), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
  EXPECT_EQ(open(passing, 48000.0f, 1, kBlock, 20.0f, nan), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
}

TEST_F(LifeCycle, EachStateAnswersEachEvent) {
  Block block(kBlock);
  const auto execute = [&] { return chain->Execute(block.data()); };

  // closed
  EXPECT_EQ(chain->Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
  EXPECT_EQ(chain->Run(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(chain->Stop(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(execute(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(open(), 0);

  for (int round = 0; round < 2; ++round) {
    // open, stopped
    EXPECT_EQ(open(), ERROR_AI_SPEECH_ENHANCE_ALREADY_OPEND);
    EXPECT_EQ(chain->Stop(), ERROR_AI_SPEECH_ENHANCE_STOPPED);
    EXPECT_EQ(execute(), ERROR_AI_SPEECH_ENHANCE_STOPPED);
    EXPECT_EQ(chain->Run(), 0);

    // open, running
    EXPECT_EQ(open(), ERROR_AI_SPEECH_ENHANCE_ALREADY_OPEND);
    EXPECT_EQ(chain->Run(), ERROR_AI_SPEECH_ENHANCE_RUNNING);
    EXPECT_EQ(chain->Close(), ERROR_AI_SPEECH_ENHANCE_RUNNING);
    EXPECT_EQ(execute(), 0) << "none of it changed the state";
    EXPECT_EQ(chain->Stop(), 0);
  }

  EXPECT_EQ(chain->Close(), 0);
  EXPECT_EQ(chain->Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
  EXPECT_EQ(execute(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(open(), 0) << "and from the start";
  EXPECT_EQ(execute(), ERROR_AI_SPEECH_ENHANCE_STOPPED);
}

TEST_F(LifeCycle, RefusalsHaveTheirTexts) {
  EXPECT_EQ(chain->Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
  EXPECT_EQ(chain->Run(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(chain->Stop(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_THAT(errors(), ElementsAre("Close: return ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED\n",
                                    "Run: return ERROR_AI_SPEECH_ENHANCE_NO_INIT\n",
                                    "Stop: return ERROR_AI_SPEECH_ENHANCE_NO_INIT\n"));
  ASSERT_EQ(open(), 0);
  EXPECT_EQ(chain->Stop(), ERROR_AI_SPEECH_ENHANCE_STOPPED);
  Block block(kBlock);
  EXPECT_EQ(chain->Execute(block.data()), ERROR_AI_SPEECH_ENHANCE_STOPPED);
  EXPECT_THAT(errors(), ElementsAre("Run: return ERROR_AI_SPEECH_ENHANCE_STOPPED\n",
                                    "Execute: return ERROR_AI_SPEECH_ENHANCE_STOPPED\n"));
  ASSERT_EQ(chain->Run(), 0);
  EXPECT_EQ(chain->Run(), ERROR_AI_SPEECH_ENHANCE_RUNNING);
  EXPECT_EQ(chain->Close(), ERROR_AI_SPEECH_ENHANCE_RUNNING);
  EXPECT_EQ(chain->Execute(nullptr), ERROR_AI_SPEECH_ENHANCE_INVARID_ARG);
  EXPECT_THAT(errors(), ElementsAre("Run: return ERROR_AI_SPEECH_ENHANCE_RUNNING\n",
                                    "Run: return ERROR_AI_SPEECH_ENHANCE_RUNNING\n",
                                    "Execute: return ERROR_AI_SPEECH_ENHANCE_INVARID_ARG\n"));
}

TEST_F(LifeCycle, ALifeIsLoggedAtItsLevel) {
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(chain->Run(), 0);
  ASSERT_EQ(chain->Stop(), 0);
  ASSERT_EQ(chain->Close(), 0);
  EXPECT_EQ(chain->Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
  EXPECT_THAT(log.take(LogLevel::info0),
              ElementsAre("CAISpeechEnhance::CAISpeechEnhance()\n", "Open:\n", "Open: return (0)\n", "Run:\n",
                          "Run: return (0)\n", "Stop:\n", "Stop: return (0)\n", "Close:\n", "Close: return (0)\n",
                          "Close:\n", "Close: return (14)\n"));
}

TEST_F(LifeCycle, TheEndOfARunningOneStopsAndClosesIt) {
  start();
  log.take();
  chain.reset();
  EXPECT_THAT(
      log.take(LogLevel::info0),
      ElementsAre("CAISpeechEnhance::~CAISpeechEnhance():\n", "CAISpeechEnhance::~CAISpeechEnhance(): Stop process\n",
                  "Stop:\n", "Stop: return (0)\n", "CAISpeechEnhance::~CAISpeechEnhance(): Close process\n", "Close:\n",
                  "Close: return (0)\n", "CAISpeechEnhance::~CAISpeechEnhance(): delete impl\n"));
}

TEST_F(LifeCycle, TheEndOfAStoppedOneClosesIt) {
  ASSERT_EQ(open(), 0);
  log.take();
  chain.reset();
  EXPECT_THAT(
      log.take(LogLevel::info0),
      ElementsAre("CAISpeechEnhance::~CAISpeechEnhance():\n", "CAISpeechEnhance::~CAISpeechEnhance(): Close process\n",
                  "Close:\n", "Close: return (0)\n", "CAISpeechEnhance::~CAISpeechEnhance(): delete impl\n"));
}

TEST_F(LifeCycle, TheEndOfAClosedOneIsQuiet) {
  log.take();
  chain.reset();
  EXPECT_THAT(log.take(LogLevel::info0), ElementsAre("CAISpeechEnhance::~CAISpeechEnhance():\n",
                                                     "CAISpeechEnhance::~CAISpeechEnhance(): delete impl\n"));
}

TEST_F(LifeCycle, ItRunsAgainAfterEachStop) {
  start();
  Block noise(20 * kBlock);
  for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = 0.1f * static_cast<float>(i * 7919 % 2003) / 2003.0f;
  const Block first = through(noise);
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(chain->Stop(), 0);
    ASSERT_EQ(chain->SetDataLength(kBlock), 0);  // empties the chain in front
    ASSERT_EQ(chain->Run(), 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(through(noise), first) << "as the first time";
  }
}

TEST_F(LifeCycle, AFailedLoadLeavesItClosedAndReadyToOpen) {
  EXPECT_EQ(open(folder.write("none.bin", "no model at all")), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(chain->Run(), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(chain->Close(), ERROR_AI_SPEECH_ENHANCE_ALREADY_CLOSED);
  std::uint16_t channels = 0;
  EXPECT_EQ(chain->GetChannel(&channels), ERROR_AI_SPEECH_ENHANCE_NO_INIT);
  EXPECT_EQ(open(), 0);
}

/// What would end the enhancement thread as it starts, or at its first chunk.
TEST_F(LifeCycle, AModelThatCantEnhanceIsNotOpened) {
  for (const std::string& model : {three_row_model(), model_of(gains_network({1.0f}), {{"window-type", "rectangle"}}),
                                   model_of(gains_network({1.0f, 1.0f}), {{"is-switching-se", "true"}}),
                                   model_of(gains_network({1.0f}), {{"feature-extractor-type", "lmfb"}})}) {
    EXPECT_EQ(open(folder.write("bad.bin", model)), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
    EXPECT_EQ(errors().back(), "Open: return ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL\n");
  }
  EXPECT_EQ(open(), 0);
}

/// The sizes of the rings at the rate, in the words of the log.
struct Rings {
  std::string in;
  std::string out;
};
Rings rings_of(const std::vector<std::string>& texts) {
  Rings rings;
  for (const auto& text : texts) {
    const auto comma = text.find(", ");
    if (text.starts_with("FifoInput::BuffInit: [") && !text.ends_with("return (true)\n")) rings.in = text.substr(comma);
    if (text.starts_with("FifoOutput::BuffInit: [") && !text.ends_with("return (true)\n")) {
      rings.out = text.substr(comma);
    }
  }
  return rings;
}

/// (20 + 5 * 10) * 48, and 5 * 10 * 48 more behind the model.
TEST_F(LifeCycle, RingsHoldAChunkAndTheAddedTime) {
  ASSERT_EQ(open(), 0);
  const Rings rings = rings_of(log.take(LogLevel::info3));
  EXPECT_EQ(rings.in, ", size=3360, rate=48000, chunk=5\n");
  EXPECT_EQ(rings.out, ", size=3360, exec_leng=2400, rate=48000\n");
}

TEST_F(LifeCycle, RingsAreAsLongAt44100) {
  ASSERT_EQ(open(passing, 44100.0f, 2, 441), 0);
  const Rings rings = rings_of(log.take(LogLevel::info3));
  EXPECT_EQ(rings.in, ", size=3360, rate=44100, chunk=5\n");
  EXPECT_EQ(rings.out, ", size=3360, exec_leng=2400, rate=44100\n");
}

TEST_F(LifeCycle, AddedTimeIsCutToMilliseconds) {
  ASSERT_EQ(open(passing, 48000.0f, 1, kBlock, 10.99f, 0.0f), 0);
  const Rings rings = rings_of(log.take(LogLevel::info3));
  EXPECT_EQ(rings.in, ", size=2880, rate=48000, chunk=5\n");
  EXPECT_EQ(rings.out, ", size=2400, exec_leng=2400, rate=48000\n");
}

TEST_F(LifeCycle, TheModelsOwnChunkAndModeDontCount) {
  const std::string file =
      folder.write("offline.bin", model_of(gains_network({1.0f}), {{"chunk-size", "20"}, {"offline", "true"}}));
  start(file);
  const auto messages = log.take();
  EXPECT_THAT(messages, Contains(Pair(LogLevel::info2, "Open: frame-shift=10, chunk-size=5\n")));
  EXPECT_THAT(messages, Contains(Pair(LogLevel::info2, "Run: sample-frequency=16000, frame-shift=10, chunk-size=5\n")));
  for (int n = 1; n <= 5; ++n) ASSERT_EQ(play_silence(), 0);
  EXPECT_THAT(log.take(LogLevel::info3), Contains(EndsWith("return (size=800)\n"))) << "streaming, five frames at once";
}

TEST_F(LifeCycle, FramesOfAnotherLengthMakeOtherRings) {
  const std::string file =
      folder.write("long.bin", model_of(gains_network({1.0f}), {{"frame-length", "20"}, {"frame-shift", "20.7"}}));
  ASSERT_EQ(open(file), 0);
  const auto messages = log.take();
  EXPECT_THAT(messages, Contains(Pair(LogLevel::info2, "Open: frame-shift=20, chunk-size=5\n")));
  std::vector<std::string> texts;
  for (const auto& [level, text] : messages) texts.push_back(text);
  const Rings rings = rings_of(texts);
  EXPECT_EQ(rings.in, ", size=5760, rate=48000, chunk=5\n") << "(20 + 5 * 20) * 48";
  EXPECT_EQ(rings.out, ", size=5760, exec_leng=4800, rate=48000\n");
}

TEST_F(LifeCycle, OpenRefusesWhatTheRingsCantFeed) {
  const auto opens = [&](const Symbols& symbols) {
    const int code = open(folder.write("odd.bin", model_of(gains_network({1.0f}), symbols)));
    if (code == 0) chain->Close();
    return code;
  };
  EXPECT_EQ(opens({{"sample-frequency", "8000"}}), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(opens({{"sample-frequency", "48000"}}), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(opens({{"frame-shift", "0.5"}}), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(opens({{"frame-shift", "1001"}, {"frame-length", "1001"}}), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
  EXPECT_EQ(opens({{"frame-length", "71"}}), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL) << "20 + 5 * 10 ms";
  EXPECT_EQ(opens({{"frame-length", "70"}}), 0);
}

/// What would fill the ring behind the model, or leave it empty.
TEST_F(LifeCycle, OpenRefusesAModelThatGivesMoreOrLessThanItTakes) {
  const auto reason = [&](const std::string& model) {
    EXPECT_EQ(open(folder.write("odd.bin", model)), ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
    const auto texts = errors();
    return texts.empty() ? "" : texts.front();
  };
  const auto windows = [](const char* length, const char* shift) {
    e2e::test::ModelParts parts{
        .has_preprocessor = 1,
        .preprocessor = e2e::test::flow_text(
            "FrameWindowNode", std::string("<length>") + length + "</length><shift>" + shift + "</shift>"),
        .network = gains_network({1.0f})};
    parts.symbols = {{"sample-frequency", "16000"}, {"frame-length", "10"}, {"frame-shift", "10"}};
    return e2e::test::model_bytes(parts);
  };
  EXPECT_EQ(reason(model_of(gains_network({1.0f}), {{"overlap", "1"}})),
            "Open: its chunks overlap, so that it gives more than it takes\n");
  const auto changes = [](const char* taken, const char* given) {
    return std::string("Open: its preprocessor or its network changes the number of frames: of ") + taken +
           " samples it makes " + given + ", where chunks have 800\n";
  };
  EXPECT_EQ(reason(windows("2", "1")), changes("800", "1600")) << "each frame twice";
  EXPECT_EQ(reason(windows("1", "2")), changes("1600", "800")) << "every other frame";
  EXPECT_EQ(reason(windows("2", "2")), changes("1600", "1600")) << "two frames at a time";
  EXPECT_EQ(reason(model_of(e2e::test::thinning_network())), changes("800", "200"));
  EXPECT_EQ(reason(windows("1", "100000")), "Open: it takes samples and gives none\n");
  EXPECT_EQ(open(folder.write("even.bin", windows("1", "1"))), 0);
}

TEST_F(LifeCycle, OpenAddsTenSecondsAtMost) {
  EXPECT_EQ(open(passing, 48000.0f, 1, kBlock, 10000.5f, 20.0f), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
  EXPECT_EQ(open(passing, 48000.0f, 1, kBlock, 20.0f, 10000.5f), ERROR_AI_SPEECH_ENHANCE_DATA_LENGTH);
  EXPECT_EQ(open(passing, 48000.0f, 1, kBlock, 10000.0f, 10000.0f), 0);
}

TEST_F(LifeCycle, OpenLogsItsArguments) {
  ASSERT_EQ(open(passing, 44100.0f, 3, 441, 10.0f, 30.0f), 0);
  EXPECT_TRUE(logged("Open: model_file=" + passing +
                     ", sampling_rate_local=44100.000000, channel_local=3, length_local=441, "
                     "add_buff_in_ms=10.000000, add_buff_out_ms=30.000000\n"));
}

TEST_F(LifeCycle, StopEndsTheThreadInItsOwnWords) {
  start();
  ASSERT_EQ(play_silence(), 0);
  log.take();
  ASSERT_EQ(chain->Stop(), 0);
  EXPECT_TRUE(logged("ThreadExec: FINISHED, state=1, return\n"));
}

TEST_F(LifeCycle, EachEnhancementThreadAsksForRealTimeOnce) {
  std::atomic<int> asked = 0;
  std::atomic<int> priority = 0;
  chain = std::make_unique<CAISpeechEnhance>([&](int wanted) {
    priority = wanted;
    ++asked;
    return true;
  });
  start();
  EXPECT_EQ(play_silence(), 0);
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(priority, 10);
  EXPECT_EQ(chain->Stop(), 0);
  run();
  EXPECT_EQ(asked, 2);
  chain.reset();
}

}  // namespace
}  // namespace sonivo::test
