// Stands in for the coverage-guided engine where there is none: runs the seed inputs of a fuzz target as they are, and
// then altered and spliced until the time is over. An input that ends the program is left in a file.
//
// Usage: TARGET SEED_FOLDER SECONDS. Exits with 0 when nothing was found, with 1 for an input that takes too long;
// whatever else is wrong ends the program as it would end any other.

#include <sanitizer/common_interface_defs.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
/// A target's own way to alter inputs, if it has one.
extern "C" __attribute__((weak)) std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                                                     std::size_t max_size, unsigned seed);
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

using Clock = std::chrono::steady_clock;
using Input = std::vector<std::uint8_t>;

constexpr std::chrono::seconds kSlowest{10};  // what a single input may take
constexpr std::size_t kLongest = 1 << 16;
constexpr int kMostAlterations = 5;

std::string failure_file;
const Input* running = nullptr;

void keep_input() {
  if (running == nullptr) return;
  std::ofstream(failure_file, std::ios::binary)
      .write(reinterpret_cast<const char*>(running->data()), static_cast<std::streamsize>(running->size()));
  std::fprintf(stderr, "the input is in %s\n", failure_file.c_str());
  running = nullptr;
}

void keep_input_of_abort(int) {
  keep_input();
  std::_Exit(1);
}

bool run(const Input& input) {
  running = &input;
  const auto start = Clock::now();
  LLVMFuzzerTestOneInput(input.data(), input.size());
  if (Clock::now() - start > kSlowest) {
    std::fprintf(stderr, "an input took longer than %d s\n", static_cast<int>(kSlowest.count()));
    keep_input();
    return false;
  }
  running = nullptr;
  return true;
}

std::vector<Input> seeds_of(const std::filesystem::path& folder) {
  std::vector<Input> seeds;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return seeds;
}

/// What inputs are made of, the same in each run.
std::mt19937 generator{1};
std::vector<Input> seeds;

std::size_t below(std::size_t bound) { return std::uniform_int_distribution<std::size_t>(0, bound - 1)(generator); }

void alter(Input& input) {
  if (input.empty()) return input.push_back(static_cast<std::uint8_t>(below(256)));
  const std::size_t at = below(input.size());
  const auto place = input.begin() + static_cast<std::ptrdiff_t>(at);
  const auto end = place + static_cast<std::ptrdiff_t>(1 + below(std::min<std::size_t>(64, input.size() - at)));
  switch (below(7)) {
    case 0:
      *place ^= static_cast<std::uint8_t>(1u << below(8));
      break;
    case 1:
      *place = static_cast<std::uint8_t>(below(256));
      break;
    case 2:
      *place = static_cast<std::uint8_t>(below(2) == 0 ? 0 : 0xff);
      break;
    case 3:
      input.erase(place, end);
      break;
    case 4: {
      const Input piece(place, end);
      input.insert(input.begin() + static_cast<std::ptrdiff_t>(below(input.size() + 1)), piece.begin(), piece.end());
      break;
    }
    case 5: {
      const Input& other = seeds[below(seeds.size())];
      if (other.empty()) break;
      input.erase(place, input.end());
      input.insert(input.end(), other.begin() + static_cast<std::ptrdiff_t>(below(other.size())), other.end());
      break;
    }
    default:  // numbers are often four bytes, least significant first
      for (auto byte = place; byte != input.end() && byte != place + 4; ++byte)
        *byte = byte == place ? static_cast<std::uint8_t>(below(256)) : std::uint8_t{0};
  }
}

Input new_input() {
  Input input = seeds[below(seeds.size())];
  for (std::size_t i = 0, count = 1 + below(kMostAlterations); i < count; ++i) {
    if (LLVMFuzzerCustomMutator == nullptr) {
      alter(input);
      continue;
    }
    const std::size_t size = input.size();
    input.resize(std::max(kLongest, size));
    input.resize(LLVMFuzzerCustomMutator(input.data(), size, input.size(), static_cast<unsigned>(generator())));
  }
  if (input.size() > kLongest) input.resize(kLongest);
  return input;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size) {
  Input input(data, data + size);
  alter(input);
  input.resize(std::min(input.size(), max_size));
  std::copy(input.begin(), input.end(), data);
  return input.size();
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s SEED_FOLDER SECONDS\n", argv[0]);
    return 2;
  }
  failure_file = std::string(argv[0]) + "-failure";
  __sanitizer_set_death_callback(keep_input);
  std::signal(SIGABRT, keep_input_of_abort);

  seeds = seeds_of(argv[1]);
  if (seeds.empty()) {
    std::fprintf(stderr, "no seeds in %s\n", argv[1]);
    return 2;
  }
  for (const Input& seed : seeds)
    if (!run(seed)) return 1;
  std::size_t made = 0;
  for (const auto end = Clock::now() + std::chrono::seconds(std::atoi(argv[2])); Clock::now() < end; ++made)
    if (!run(new_input())) return 1;
  std::printf("%zu seeds and %zu inputs made of them: nothing found\n", seeds.size(), made);
  return 0;
}
