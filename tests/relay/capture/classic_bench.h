#pragma once

#include "capture_bench.h"

namespace sonivo::test {

/// Frames that the application hears before the first processed block, at 48 kHz with periods of 10 ms.
inline constexpr std::size_t kSilentFrames = 7 * 480;

/// A relay whose microphone goes through one of the classic chains; its parameters are stored.
class ClassicBench {
 public:
  explicit ClassicBench(Notebook notebook) : bench_(untrimmed(), notebook), chain_(script_of(notebook)) {
    bench_.store_key_cancel_parameters(1, 1);
    bench_.store_beam_forming_parameters();
  }

 protected:
  /// Starts the relay and forgets what its start asked of the chain.
  void start() {
    start_idle(bench_);
    chain_.clear();
  }
  void stream(std::uint32_t ms) {
    start();
    record_stereo(bench_);
    bench_.machine.run_for(ms);
  }
  void during_block(int n, std::function<void()> action) { run_during_block(chain_, n, std::move(action)); }
  void restart_stream() { bench_.relay->Stream(DataFlow::capture).RequestRestart(); }
  StreamState state() { return bench_.relay->Stream(DataFlow::capture).State(); }

  RelayBench bench_;
  ChainScript& chain_;

 private:
  ChainScript& script_of(Notebook notebook) {
    return notebook == Notebook::key_cancel ? *bench_.chains.key_cancel : *bench_.chains.beam_forming;
  }
};

}  // namespace sonivo::test
