// The third chain when it is closed between the head of a block and its Execute.

#include <cmath>

#include "ai_bench.h"

namespace sonivo::test {
namespace {

/// Forwards to another chain and runs an action before each SetKeyReductionActive.
class InterruptedChain : public AISpeechChain {
 public:
  InterruptedChain(std::unique_ptr<AISpeechChain> inner, std::function<void()> action)
      : inner_(std::move(inner)), action_(std::move(action)) {}

  int SetKeyReductionActive(std::uint16_t active) override {
    action_();
    return inner_->SetKeyReductionActive(active);
  }

  int GetVersion(std::uint16_t* major, std::uint16_t* minor) override { return inner_->GetVersion(major, minor); }
  int GetParamSize(std::uint32_t* size) override { return inner_->GetParamSize(size); }
  int SetDataLength(std::uint16_t frames) override { return inner_->SetDataLength(frames); }
  int GetDataLength(std::uint16_t* frames) override { return inner_->GetDataLength(frames); }
  int SetSamplingRate(float rate_hz) override { return inner_->SetSamplingRate(rate_hz); }
  int SetChannel(std::uint16_t channels) override { return inner_->SetChannel(channels); }
  int SetNoiseReductionActive(std::uint16_t active) override { return inner_->SetNoiseReductionActive(active); }
  int Execute(float* interleaved) override { return inner_->Execute(interleaved); }
  int Close() override { return inner_->Close(); }
  int Open(const std::uint16_t* params, const char* model, float rate_hz, std::uint16_t channels, std::uint16_t frames,
           float add_buff_in_ms, float add_buff_out_ms) override {
    return inner_->Open(params, model, rate_hz, channels, frames, add_buff_in_ms, add_buff_out_ms);
  }
  int Run() override { return inner_->Run(); }
  int Stop() override { return inner_->Stop(); }
  int SetBeamFormingActive(std::uint16_t active) override { return inner_->SetBeamFormingActive(active); }
  int SetAISpeechEnhanceActive(std::uint16_t active) override { return inner_->SetAISpeechEnhanceActive(active); }
  int SetAISpeechEnhanceStrength(float strength) override { return inner_->SetAISpeechEnhanceStrength(strength); }
  int SetAIModel(const char* model) override { return inner_->SetAIModel(model); }
  int MakeAIModel(const char* base_model, const char* encoder_model, const char* wav, const char* out_file,
                  std::uint16_t preprocess_on) override {
    return inner_->MakeAIModel(base_model, encoder_model, wav, out_file, preprocess_on);
  }
  int QuitMakeAIModel() override { return inner_->QuitMakeAIModel(); }

 private:
  std::unique_ptr<AISpeechChain> inner_;
  std::function<void()> action_;
};

TEST(AISpeechClosedWithinABlock, FadesThatBlockTowardsTheDrySignal) {
  bool close = false;
  RelayBench bench(untrimmed(), Notebook::ai_speech);
  bench.store_beam_forming_parameters();
  bench.relay = std::make_unique<CAudioControl>(bench.machine.seams(), [&] {
    Chains chains = bench.chains.factory()();
    chains.ai_speech = std::make_unique<InterruptedChain>(std::move(chains.ai_speech), [&] {
      if (close) bench.relay->SetAISpeechEnhanceClose();
    });
    return chains;
  });
  bench.relay->SetGenAndFunction(10, 0, 5, 8);
  bench.relay->ChangeAISpeechEnhanceState(true);
  ASSERT_EQ(bench.relay->SetAISpeechEnhanceOpen(), kOk);

  ChainScript& chain = *bench.chains.ai_speech;
  chain.process = [&, block = 0](float* samples, std::size_t frames, std::size_t channels) mutable {
    std::fill_n(samples, frames * channels, 0.5f);
    if (++block != 1) return;
    close = true;
    bench.relay->UpdateAISpeechEnhanceBeamFormingKeyCancelState(true);
  };
  start_idle(bench);
  bench.record(pcm_format(48000, 16, 1), {});
  bench.machine.run_for(155);

  EXPECT_EQ(chain.count("Execute"), 2u);
  const auto heard = bench.machine.driver().recording();
  const auto sample = [&](std::size_t frame) {
    const auto low = std::to_integer<std::uint32_t>(heard[2 * frame]);
    return static_cast<std::int16_t>(low | std::to_integer<std::uint32_t>(heard[2 * frame + 1]) << 8);
  };
  EXPECT_EQ(sample(7 * 480), 16384);
  for (std::size_t f = 0; f < 480; ++f) {  // off by the truncation at most
    ASSERT_NEAR(sample(8 * 480 + f), 16384 * std::pow(0.999, static_cast<double>(f + 1)), 1.5) << f;
  }
  EXPECT_EQ(sample(9 * 480), 0);
}

/// Closed by the host while its Execute waits for the lock; answers then as CAISpeechEnhance does.
class ClosedUnderway final : public InterruptedChain {
 public:
  ClosedUnderway(std::unique_ptr<AISpeechChain> inner, std::function<void()> close)
      : InterruptedChain(std::move(inner), [] {}), close_(std::move(close)) {}

  int Execute(float* interleaved) override {
    if (++blocks_ < 3) return InterruptedChain::Execute(interleaved);
    close_();
    return 5;
  }

 private:
  std::function<void()> close_;
  int blocks_ = 0;
};

TEST(AISpeechClosedWithinABlock, LetsTheBlockPassWhenItAnswersThatItIsClosed) {
  RelayBench bench(untrimmed(), Notebook::ai_speech);
  bench.store_beam_forming_parameters();
  bench.relay = std::make_unique<CAudioControl>(bench.machine.seams(), [&] {
    Chains chains = bench.chains.factory()();
    chains.ai_speech =
        std::make_unique<ClosedUnderway>(std::move(chains.ai_speech), [&] { bench.relay->SetAISpeechEnhanceClose(); });
    return chains;
  });
  bench.relay->SetGenAndFunction(10, 0, 5, 8);
  bench.relay->ChangeAISpeechEnhanceState(true);
  ASSERT_EQ(bench.relay->SetAISpeechEnhanceOpen(), kOk);
  start_idle(bench);
  bench.record(pcm_format(48000, 16, 1), {});
  bench.machine.run_for(155);
  EXPECT_EQ(bench.chains.ai_speech->count("Execute"), 2u);
  EXPECT_GT(bench.relay->CaptureStatistics().blocks, 5u);
}

}  // namespace
}  // namespace sonivo::test
