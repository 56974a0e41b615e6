#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "../../classic/chain/chain_params.h"
#include "../../support/temporary_folder.h"
#include "chain_models.h"
#include "classic/block_framing.h"
#include "enhance/ai_speech_enhance.h"
#include "enhance/result.h"
#include "watched_log.h"

namespace sonivo::test {

/// A blob for the beamforming chain.
class BeamBlob {
 public:
  explicit BeamBlob(std::uint16_t id = 8) : param_(classic::test::beam_forming_params(id)) {}
  classic::BeamFormingKeyCancelParam* operator->() { return &param_; }
  const std::uint16_t* get() const { return reinterpret_cast<const std::uint16_t*>(&param_); }

 private:
  classic::BeamFormingKeyCancelParam param_;
};

/// The third chain, and time that is simulated: between two blocks the enhancement thread gets as long as it needs.
struct ChainBench : testing::Test {
  static constexpr std::uint16_t kBlock = 480;
  using Block = std::vector<float>;

  TemporaryFolder folder;
  WatchedLog log;
  BeamBlob blob;
  std::string passing = folder.write("passing.bin", gain_model(1.0f));
  std::unique_ptr<CAISpeechEnhance> chain = std::make_unique<CAISpeechEnhance>();

  ~ChainBench() override { log.let_go(); }

  int open(const std::string& model, float rate = 48000.0f, std::uint16_t channels = 1, std::uint16_t length = kBlock,
           float in_ms = 20.0f, float out_ms = 20.0f) {
    return chain->Open(blob.get(), model.c_str(), rate, channels, length, in_ms, out_ms);
  }
  int open() { return open(passing); }

  /// Lets the beamforming chain do nothing but delay by beam_delay() samples.
  void bypass_beams() {
    ASSERT_EQ(chain->SetBeamFormingActive(0), 0);
    ASSERT_EQ(chain->SetKeyReductionActive(0), 0);
    ASSERT_EQ(chain->SetNoiseReductionActive(0), 0);
  }
  static std::size_t beam_delay(std::uint16_t length = kBlock) { return classic::BlockFraming::preroll(length); }

  /// Of what is open: enhancement on, the thread started and waiting for input.
  void run() {
    ASSERT_EQ(chain->SetAISpeechEnhanceActive(1), 0);
    ASSERT_EQ(chain->Run(), 0);
    ASSERT_TRUE(settle());
  }
  void start(const std::string& model, float rate = 48000.0f, std::uint16_t channels = 1, std::uint16_t length = kBlock,
             float in_ms = 20.0f, float out_ms = 20.0f) {
    ASSERT_EQ(open(model, rate, channels, length, in_ms, out_ms), 0);
    bypass_beams();
    run();
  }
  void start() { start(passing); }

  /// Until the enhancement thread has dealt with all input.
  bool settle() const {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!chain->IsEnhancementIdle()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    return true;
  }

  /// One block in place.
  int play(Block& block) {
    const int code = chain->Execute(block.data());
    EXPECT_TRUE(settle());
    return code;
  }
  int play_silence(std::uint16_t length = kBlock, std::uint16_t channels = 1) {
    Block block(std::size_t{length} * channels);
    return play(block);
  }
  /// The signal in whole blocks; all of them must answer 0.
  Block through(Block signal, std::uint16_t length = kBlock, std::uint16_t channels = 1) {
    const std::size_t size = std::size_t{length} * channels;
    for (std::size_t at = 0; at + size <= signal.size(); at += size) {
      Block block(signal.begin() + static_cast<std::ptrdiff_t>(at),
                  signal.begin() + static_cast<std::ptrdiff_t>(at + size));
      EXPECT_EQ(play(block), 0) << "at sample " << at;
      std::copy(block.begin(), block.end(), signal.begin() + static_cast<std::ptrdiff_t>(at));
    }
    return signal;
  }

  std::vector<std::string> errors() { return log.take(LogLevel::error); }
  std::vector<std::string> warnings() { return log.take(LogLevel::warning); }
  bool logged(const std::string& text) {
    const auto messages = log.take();
    return std::any_of(messages.begin(), messages.end(), [&](const auto& message) { return message.second == text; });
  }
};

}  // namespace sonivo::test
