// How long the ai chain holds the audio thread up for a block, at worst: a block every 10 ms while the network runs on
// its own thread. Beside each, in turns of who comes first, the same thread passes the block through a beamforming
// chain that has no other thread, and reads the clock, and nothing else, for as long as a block takes on average: what
// those are late, the machine is. Give all real-time priority: chrt -f 50 ai_execute_bench IN.wav

#include <sched.h>
#include <sys/resource.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "apps/tool/failure.h"
#include "apps/tool/param_blob.h"
#include "apps/tool/share_folder.h"
#include "apps/tool/wav_file.h"
#include "classic/beam_forming_key_cancel.h"
#include "enhance/ai_speech_enhance.h"
#include "relay/model_table.h"

namespace {

using namespace sonivo;
using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr std::size_t kBlockFrames = 480;
constexpr std::chrono::milliseconds kBlock{10};
constexpr std::size_t kWarmUpBlocks = 200;
constexpr nanoseconds kLate{1'000'000};  // what a block may take at most

/// What the calling thread went through.
struct Thread {
  nanoseconds computed;  ///< without what the machine's own host took from its processor, where that is told
  long waits, preemptions, faults;

  static Thread now() {
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return {.computed = std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec),
            .waits = usage.ru_nvcsw,
            .preemptions = usage.ru_nivcsw,
            .faults = usage.ru_minflt + usage.ru_majflt};
  }
};

struct Measured {
  std::vector<nanoseconds> taken;
  std::vector<nanoseconds> computed;
  long waits = 0, preemptions = 0, faults = 0;

  template <class Work>
  void measure(Work work) {
    const Thread before = Thread::now();
    const auto start = Clock::now();
    work();
    taken.push_back(Clock::now() - start);
    const Thread after = Thread::now();
    computed.push_back(after.computed - before.computed);
    waits += after.waits - before.waits;
    preemptions += after.preemptions - before.preemptions;
    faults += after.faults - before.faults;
  }
  void forget() {
    taken.clear();
    computed.clear();
    waits = preemptions = faults = 0;
  }
  nanoseconds mean() const {
    return std::accumulate(taken.begin(), taken.end(), nanoseconds{}) / static_cast<std::int64_t>(taken.size());
  }
  /// Of all but that share of them the longest.
  nanoseconds longest_without(double share) {
    std::sort(taken.begin(), taken.end());
    const auto left_out = static_cast<std::size_t>(share * static_cast<double>(taken.size()));
    return taken[taken.size() - 1 - left_out];
  }
  nanoseconds most_computed() const { return *std::max_element(computed.begin(), computed.end()); }
};

std::ptrdiff_t late(const std::vector<nanoseconds>& times) {
  return std::count_if(times.begin(), times.end(), [](auto time) { return time > kLate; });
}

void print(const char* name, Measured& measured) {
  const auto ms = [](nanoseconds time) { return static_cast<double>(time.count()) / 1e6; };
  std::cout << std::left << std::setw(18) << name << std::right << std::fixed << std::setprecision(3)  //
            << std::setw(9) << ms(measured.mean()) << std::setw(9) << ms(measured.longest_without(0.001))
            << std::setw(9) << ms(measured.longest_without(0.0)) << std::setw(9) << late(measured.taken)  //
            << std::setw(11) << ms(measured.most_computed()) << std::setw(9) << late(measured.computed)   //
            << std::setw(9) << measured.waits << std::setw(13) << measured.preemptions << std::setw(9)
            << measured.faults << '\n';
}

void run(const std::string& input, double minutes) {
  const tool::FloatAudio audio = tool::read_wav_float(input);
  if (audio.rate_hz != 48000 || audio.frames() < kBlockFrames) {
    throw tool::Failure("'" + input + "' is not a recording at 48000 Hz");
  }
  CAISpeechEnhance chain;
  std::uint32_t size = 0;
  chain.GetParamSize(&size);
  const auto params = tool::read_param_blob({}, "beamforming", size);
  const std::string model = GetModelRow(tool::share_folder() / "models", kLastModelNo).speech_enhancement;
  if (chain.Open(reinterpret_cast<const std::uint16_t*>(params.data()), model.c_str(), 48000.0f, audio.channels,
                 kBlockFrames, 20, 20) != 0 ||
      chain.Run() != 0) {
    throw tool::Failure("the ai chain does not open");
  }
  CBeamFormingKeyCancel beams;
  if (beams.Open(params.data(), 48000.0f, audio.channels, kBlockFrames) != 0) {
    throw tool::Failure("the beamforming chain does not open");
  }
  if (::sched_getscheduler(0) != SCHED_FIFO) std::cout << "without real-time priority: others come first\n";

  const auto blocks = kWarmUpBlocks + static_cast<std::size_t>(minutes * 6000);
  Measured execute, alone, reading;
  for (Measured* measured : {&execute, &alone, &reading}) {
    measured->taken.reserve(blocks);
    measured->computed.reserve(blocks);
  }
  std::vector<float> block(kBlockFrames * audio.channels);
  std::vector<float> same_block(block.size());
  std::size_t place = 0;
  int bad = 0;
  auto due = Clock::now();
  nanoseconds total{};
  for (std::size_t n = 0; n < blocks; ++n) {
    if (n == kWarmUpBlocks) {
      for (Measured* measured : {&execute, &alone, &reading}) measured->forget();
      total = {};
    }
    std::this_thread::sleep_until(due += kBlock);
    if (place + block.size() > audio.samples.size()) place = 0;
    std::copy_n(audio.samples.begin() + static_cast<std::ptrdiff_t>(place), block.size(), block.begin());
    place += block.size();
    same_block = block;
    const auto execute_block = [&] {
      execute.measure([&] { bad += chain.Execute(block.data()) != 0; });
      total += execute.taken.back();
    };
    const auto beamform = [&] { alone.measure([&] { bad += beams.Execute(same_block.data()) != 0; }); };
    const auto read_clock = [&] {
      const nanoseconds mean = total / std::max<std::int64_t>(1, static_cast<std::int64_t>(execute.taken.size()));
      reading.measure([&] {
        const auto end = Clock::now() + mean;
        while (Clock::now() < end) {
        }
      });
    };
    // Who comes first after the sleep gets what has piled up meanwhile.
    for (std::size_t turn = n; turn < n + 3; ++turn) {
      switch (turn % 3) {
        case 0:
          execute_block();
          break;
        case 1:
          beamform();
          break;
        default:
          read_clock();
      }
    }
  }
  std::cout
      << blocks - kWarmUpBlocks << " blocks of 10 ms, ms a block:\n"
      << "                       mean   99.9 %  highest   > 1 ms   computed   > 1 ms    waits  preemptions   faults\n";
  print("ai chain", execute);
  print("beamforming alone", alone);
  print("reading the clock", reading);
  std::cout << bad << " blocks without the enhancement\n";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("How long the ai chain holds the audio thread up for a block at worst");
  std::string input;
  double minutes = 1;
  app.add_option("IN", input, "what the microphones hear, over and over: WAV at 48000 Hz")->required();
  app.add_option("--minutes", minutes, "how long; 1 unless given")->check(CLI::Range(0.01, 1440.0));
  CLI11_PARSE(app, argc, argv);
  try {
    run(input, minutes);
  } catch (const std::exception& error) {
    std::cerr << "error: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
