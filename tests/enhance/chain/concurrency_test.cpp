// Blocks from an audio thread while other threads change all there is to change.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "../../support/temporary_folder.h"
#include "../diagnostics/files.h"
#include "chain_bench.h"
#include "enhance/thread_priority.h"
#include "small_voices.h"

namespace sonivo::test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::AnyOf;
using testing::Each;
using testing::Key;

#if defined(SONIVO_ASAN) || defined(SONIVO_TSAN)
constexpr milliseconds kStorm{2250};
#else
constexpr milliseconds kStorm{7500};
#endif

/// How often an operation gave each of its codes.
using Codes = std::map<int, int>;

struct Storm : testing::Test {
  static constexpr std::uint16_t kBlock = 480;

  TemporaryFolder folder;
  BeamBlob blob;
  std::string passing = folder.write("passing.bin", gain_model(1.0f));
  std::string doubling = folder.write("double.bin", gain_model(2.0f));
  std::string broken = folder.write("broken.bin", "senb and nothing more");
  std::string cut_short = folder.write("short.bin", "sen");
  std::string missing = folder / "missing.bin";
  std::string base = folder.write("base.bin", base_model());
  std::string encoder = folder.write("encoder.bin", voice_encoder());
  std::string wav = folder.write("voice.wav", spoken_wav(0.6));
  CAISpeechEnhance chain;

  std::atomic<bool> ended{false};
  std::atomic<bool> is_changing{false};
  bool is_reopened = false;  // by a thread of the storm

  void SetUp() override {
    ASSERT_EQ(open(), 0);
    ASSERT_EQ(chain.SetAISpeechEnhanceActive(1), 0);
    ASSERT_EQ(chain.Run(), 0);
  }

  int open() { return chain.Open(blob.get(), passing.c_str(), 48000.0f, 1, kBlock, 20.0f, 20.0f); }

  /// Time goes on when the model has dealt with the block.
  void settle() {
    if (is_reopened) return std::this_thread::sleep_for(milliseconds(1));
    const auto end = steady_clock::now() + kPatience;
    while (!chain.IsEnhancementIdle() && steady_clock::now() < end) std::this_thread::sleep_for(microseconds(50));
  }

  struct Audio {
    Codes codes;
    std::chrono::duration<double, std::milli> longest{0}, longest_at_change{0};
  };

  /// As the thread of a capture stream is scheduled, where the machine permits it.
  void play(Audio& audio) {
    make_thread_time_critical({});
    std::mt19937 generator(1);
    std::uniform_real_distribution<float> sample(-0.3f, 0.3f);
    std::vector<float> noise(kBlock);
    for (float& x : noise) x = sample(generator);
    while (!ended) {
      std::vector<float> block = noise;
      const bool before = is_changing;
      const auto begin = steady_clock::now();
      const int code = chain.Execute(block.data());
      const std::chrono::duration<double, std::milli> took = steady_clock::now() - begin;
      ++audio.codes[code];
      audio.longest = std::max(audio.longest, took);
      if (before && is_changing) audio.longest_at_change = std::max(audio.longest_at_change, took);
      if (code == WARNING_AI_SPEECH_ENHANCE_BUSY || code == ERROR_AI_SPEECH_ENHANCE_STOPPED ||
          code == ERROR_AI_SPEECH_ENHANCE_NO_INIT) {
        EXPECT_EQ(block, noise) << code;
        std::this_thread::sleep_for(milliseconds(1));
      }
      for (const float x : block) ASSERT_TRUE(std::isfinite(x) && std::abs(x) <= 1.0f);
      settle();
    }
  }

  /// Runs the step until the storm is over, with a rest after each.
  void repeat(milliseconds rest, const std::function<void(int)>& step) {
    for (int n = 0; !ended; ++n) {
      step(n);
      std::this_thread::sleep_for(rest);
    }
  }

  void change_settings(int n, Codes& codes) {
    const auto flag = static_cast<std::uint16_t>(n & 1);
    const float strength = static_cast<float>(n % 5) / 4.0f;
    std::uint16_t word = 0;
    float number = 0.0f;
    std::array<char, 64> text{};
    const BeamBlob other(static_cast<std::uint16_t>(n));
    const std::function<int()> settings[] = {
        [&] { return chain.SetAISpeechEnhanceStrength(strength); },
        [&] { return chain.SetKeyReductionActive(flag); },
        [&] { return chain.SetNoiseReductionActive(flag); },
        [&] { return chain.SetBeamFormingActive(flag); },
        [&] { return chain.SetParam(other.get()); },
        [&] { return chain.GetParamID(&word); },
        [&] { return chain.GetAISpeechEnhanceStrength(&number); },
        [&] { return chain.GetAISpeechEnhanceActive(&word); },
        [&] { return chain.GetAIModelID(text.data()); },
        [&] { return chain.ResetBuffer(); },
        [&] { return chain.SetAISpeechEnhanceActive(0); },
        [&] { return chain.SetAISpeechEnhanceActive(1); },
        [&] { return chain.SetSamplingRate(48000.0f); },
        [&] { return chain.GetDataLength(&word); },
    };
    ++codes[settings[static_cast<std::size_t>(n) % std::size(settings)]()];
  }
  void change_settings(int n) {
    Codes codes;
    change_settings(n, codes);
    EXPECT_EQ(codes, (Codes{{0, 1}})) << n;
  }

  void change_model(const std::string& file, int expected) {
    is_changing = true;
    EXPECT_EQ(chain.SetAIModel(file.c_str()), expected) << file;
    is_changing = false;
  }

  static std::string text_of(const Codes& codes) {
    std::string text;
    for (const auto& [code, count] : codes) text += " " + std::to_string(code) + ": " + std::to_string(count);
    return text;
  }

  /// All of them at once; what the blocks answered.
  Audio rage(const std::vector<std::function<void()>>& weather) {
    Audio audio;
    std::vector<std::thread> threads;
    threads.emplace_back([&] { play(audio); });
    for (const auto& part : weather) threads.emplace_back(part);
    std::this_thread::sleep_for(kStorm);
    ended = true;
    for (auto& thread : threads) thread.join();
    std::printf("blocks by code:%s; longest %.3f ms, during a change of the model %.3f ms\n",
                text_of(audio.codes).c_str(), audio.longest.count(), audio.longest_at_change.count());
    return audio;
  }

  /// With a model and a run, whatever was before: each block goes through.
  void expect_good_weather() {
    EXPECT_THAT(chain.Run(), AnyOf(0, ERROR_AI_SPEECH_ENHANCE_RUNNING, ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL));
    ASSERT_EQ(chain.SetAIModel(passing.c_str()), 0);
    EXPECT_THAT(chain.Run(), AnyOf(0, ERROR_AI_SPEECH_ENHANCE_RUNNING));
    ASSERT_EQ(chain.SetAISpeechEnhanceActive(1), 0);
    for (int n = 0; n < 50; ++n) {
      std::vector<float> block(kBlock, 0.1f);
      ASSERT_EQ(chain.Execute(block.data()), 0) << n;
      settle();
    }
    EXPECT_EQ(chain.Stop(), 0);
    EXPECT_EQ(chain.Close(), 0);
  }
};

/// No block finds a ring full or empty: what the changes take, the text of the code says.
TEST_F(Storm, OfSettingsModelsAndRunsLosesNoBlockThatWentIn) {
  const Audio audio = rage({
      [&] { repeat(milliseconds(2), [&](int n) { change_settings(n); }); },
      [&] {
        repeat(milliseconds(150), [&](int n) {
          if (n % 4 == 0) change_model(doubling, 0);
          if (n % 4 == 1) change_model(missing, ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
          if (n % 4 == 2) change_model(passing, 0);
          if (n % 4 == 3) change_model(cut_short, ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
        });
      },
      [&] { repeat(milliseconds(90), [&](int n) { EXPECT_EQ(n % 2 == 0 ? chain.Stop() : chain.Run(), 0); }); },
  });
  EXPECT_THAT(audio.codes, Each(Key(AnyOf(0, ERROR_AI_SPEECH_ENHANCE_STOPPED, WARNING_AI_SPEECH_ENHANCE_BUSY))));
  EXPECT_GT(audio.codes.at(0), 0);
  EXPECT_GT(audio.codes.at(WARNING_AI_SPEECH_ENHANCE_BUSY), 0);
  EXPECT_LT(audio.longest_at_change.count(), 200.0) << "a change holds the lock for 50 ms and more";
  expect_good_weather();
}

TEST_F(Storm, OfBadModelsAndEnrolmentsPasses) {
  Codes made, runs, steered;
  const Audio audio = rage({
      [&] { repeat(milliseconds(3), [&](int n) { change_settings(n); }); },
      [&] {
        repeat(milliseconds(250), [&](int n) {
          if (n % 4 == 0) change_model(broken, ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
          if (n % 4 == 1) change_model(cut_short, ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL);
          if (n % 4 == 2) change_model(doubling, 0);
          if (n % 4 == 3) change_model(missing, ERROR_AI_SPEECH_ENHANCE_FILE_OPEN);
        });
      },
      [&] { repeat(milliseconds(170), [&](int n) { ++runs[n % 2 == 0 ? chain.Stop() : chain.Run()]; }); },
      [&] {
        repeat(milliseconds(400), [&](int n) {
          const std::string out = folder / ("voice" + std::to_string(n % 2) + ".bin");
          ++made[chain.MakeAIModel(base.c_str(), encoder.c_str(), wav.c_str(), out.c_str(), 0)];
        });
      },
      [&] {
        repeat(milliseconds(37), [&](int n) {
          if (n % 3 == 0) ++steered[chain.PauseMakeAIModel()];
          if (n % 3 == 1) ++steered[chain.ResumeMakeAIModel()];
          if (n % 12 == 11) ++steered[chain.QuitMakeAIModel()];
        });
        chain.ResumeMakeAIModel();
      },
  });
  std::printf("enrolments by code:%s; runs and stops:%s; steering:%s\n", text_of(made).c_str(), text_of(runs).c_str(),
              text_of(steered).c_str());
  EXPECT_THAT(audio.codes, Each(Key(AnyOf(0, ERROR_AI_SPEECH_ENHANCE_STOPPED, WARNING_AI_SPEECH_ENHANCE_BUSY,
                                          WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN))))
      << "without a model nothing comes out of it";
  EXPECT_GT(audio.codes.at(0), 0);
  EXPECT_GT(audio.codes.at(WARNING_AI_SPEECH_ENHANCE_BUSY), 0);
  EXPECT_THAT(made, Each(Key(AnyOf(0, WARNING_AI_SPEECH_ENHANCE_MAKEMODEL_QUIT))));
  EXPECT_THAT(runs, Each(Key(AnyOf(0, ERROR_AI_SPEECH_ENHANCE_INVARID_MODEL, ERROR_AI_SPEECH_ENHANCE_STOPPED))));
  EXPECT_THAT(
      steered,
      Each(Key(AnyOf(0, ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_RUNNING, ERROR_AI_SPEECH_ENHANCE_MAKEMODEL_NOT_PAUSE))));
  expect_good_weather();
}

/// Every other opening finds the folder of the dump; what a closed chain answers, the text of the code says.
TEST_F(Storm, OfOpeningsRecordingsAndDumpsPasses) {
  const std::filesystem::path dump = folder.path() / "dump", no_dump = folder.path() / "no dump";
  const std::string wav_of_blocks = folder / "blocks.wav";
  std::filesystem::create_directory(no_dump);
  const ScopedVariable variable("AI_SPEECH_ENHANCE_DUMP_DIR", dump.c_str());
  is_reopened = true;
  Codes settings, changes, recordings;
  const std::vector<float> block(kBlock, 0.1f);
  const Audio audio = rage({
      [&] { repeat(milliseconds(2), [&](int n) { change_settings(n, settings); }); },
      [&] {
        repeat(milliseconds(110),
               [&](int n) { ++changes[chain.SetAIModel((n % 2 == 0 ? doubling : passing).c_str())]; });
      },
      [&] {
        repeat(milliseconds(25), [&](int n) {
          EXPECT_EQ(chain.Stop(), 0);
          EXPECT_EQ(chain.Close(), 0);
          std::filesystem::rename(n % 2 == 0 ? no_dump : dump, n % 2 == 0 ? dump : no_dump);
          EXPECT_EQ(open(), 0);
          EXPECT_EQ(chain.Run(), 0);
        });
      },
      [&] {
        repeat(milliseconds(3), [&](int n) {
          ++recordings[n % 8 == 0   ? chain.OpenRecFile(wav_of_blocks.c_str())
                       : n % 8 == 7 ? chain.CloseRecFile()
                                    : chain.Rec(block.data())];
        });
      },
  });
  std::printf("settings by code:%s; changes:%s; recordings:%s\n", text_of(settings).c_str(), text_of(changes).c_str(),
              text_of(recordings).c_str());
  const auto is_closed_at_worst = Each(Key(AnyOf(0, ERROR_AI_SPEECH_ENHANCE_NO_INIT)));
  EXPECT_THAT(settings, is_closed_at_worst);
  EXPECT_THAT(changes, is_closed_at_worst);
  EXPECT_THAT(recordings, Each(Key(AnyOf(0, ERROR_AI_SPEECH_ENHANCE_NO_INIT, ERROR_AI_SPEECH_ENHANCE_FILE_OPEN))))
      << "one that a closed chain did not end is there still";
  EXPECT_THAT(audio.codes, Each(Key(AnyOf(0, ERROR_AI_SPEECH_ENHANCE_NO_INIT, ERROR_AI_SPEECH_ENHANCE_STOPPED,
                                          WARNING_AI_SPEECH_ENHANCE_BUFF_OVERFLOW,
                                          WARNING_AI_SPEECH_ENHANCE_BUFF_UNDERRUN, WARNING_AI_SPEECH_ENHANCE_BUSY))))
      << "its time is faster than the model's";
  for (const Codes* const codes : std::initializer_list<const Codes*>{&settings, &changes, &recordings, &audio.codes}) {
    EXPECT_GT(codes->at(0), 0);
  }
  EXPECT_FALSE(files_in(std::filesystem::exists(dump) ? dump : no_dump).empty());
  EXPECT_THAT(chain.CloseRecFile(), AnyOf(0, ERROR_AI_SPEECH_ENHANCE_NO_INIT));
  is_reopened = false;
  expect_good_weather();
}

/// Nobody but the audio thread and the changes: what a block takes then, for as long as the machine lets it run.
TEST_F(Storm, OfChangesDoesNotHoldUpABlock) {
  const Audio audio =
      rage({[&] { repeat(milliseconds(20), [&](int n) { change_model(n % 2 == 0 ? doubling : passing, 0); }); }});
  EXPECT_THAT(audio.codes, Each(Key(AnyOf(0, WARNING_AI_SPEECH_ENHANCE_BUSY))));
#if !defined(SONIVO_ASAN) && !defined(SONIVO_TSAN)
  EXPECT_LT(audio.longest_at_change.count(), 20.0) << "ms";
#endif
}

}  // namespace
}  // namespace sonivo::test
