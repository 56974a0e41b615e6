#pragma once

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <utility>

#include "../../support/temporary_folder.h"
#include "capture_bench.h"
#include "relay/effect_properties.h"

namespace sonivo::test {

inline constexpr const char* kModels1[] = {"model_se_streaming_RTF0.5_v2.bin", "model_tsse_streaming_rtf0.5_v2.bin",
                                           "model_spkenc_rtf0.5_v2.bin"};
inline constexpr const char* kModels2[] = {"model_se_streaming_RTF0.25_v2.bin", "model_tsse_streaming_rtf0.25_v2.bin",
                                           "model_spkenc_rtf0.25_v2.bin"};
inline constexpr const char* kModels3[] = {"model_se_streaming_RTF0.10_v2.bin", "model_tsse_streaming_rtf0.10_v2.bin",
                                           "model_spkenc_rtf0.10_v2.bin"};

/// A relay whose microphone goes through the third chain; its parameters are stored, its folders are empty, and the
/// path of the enrolled model is set.
class AIBench {
 public:
  explicit AIBench(sim::Schedule schedule = sim::Schedule::serial)
      : bench_(config(schedule), Notebook::ai_speech), relay_(*bench_.relay), chain_(*bench_.chains.ai_speech) {
    bench_.store_beam_forming_parameters();
    std::filesystem::create_directories(folder_.path() / "models");
    std::filesystem::create_directories(folder_.path() / "user");
    relay_.SetAISpeechEnhancePmodel(enrolled().c_str());
  }

 protected:
  std::string model(const char* name) const { return (folder_.path() / "models" / name).string(); }
  std::string enrolled() const { return (folder_.path() / "user" / "EnhanceModel.bin").string(); }
  static void make_file(const std::string& path) { std::ofstream(path) << "model"; }
  static bool exists(const std::string& path) { return std::filesystem::exists(path); }
  static std::string open_call(const std::string& model) { return "Open(" + model + ", 48000, 2, 480, 20, 20)"; }
  static std::string call(const char* name, const std::string& argument) {
    return std::string(name) + "(" + argument + ")";
  }

  void store_strength(float strength) {
    std::vector<std::byte> value(sizeof strength);
    std::memcpy(value.data(), &strength, sizeof strength);
    bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_AI_Strength, value);
  }
  void open() { ASSERT_EQ(relay_.SetAISpeechEnhanceOpen(), kOk); }
  /// Opens the chain, starts the relay, and forgets what that asked of the chain.
  void start() {
    open();
    start_idle(bench_);
    chain_.clear();
  }
  void stream(std::uint32_t ms) {
    start();
    record_stereo(bench_);
    bench_.machine.run_for(ms);
  }
  /// The application goes, and the stream with it.
  void end_stream() {
    bench_.machine.driver().close_client(sim::PinId::mic);
    bench_.machine.run_for(1);
  }
  void during_block(int n, std::function<void()> action) { run_during_block(chain_, n, std::move(action)); }

  TemporaryFolder folder_;
  RelayBench bench_;
  CAudioControl& relay_;
  ChainScript& chain_;

 private:
  sim::Config config(sim::Schedule schedule) const {
    sim::Config config = untrimmed();
    config.schedule = schedule;
    config.folder = folder_.path();
    return config;
  }
};

}  // namespace sonivo::test
