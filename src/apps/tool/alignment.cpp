#include "apps/tool/alignment.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <vector>

#include "apps/tool/correlation.h"

namespace sonivo::tool {

namespace {

constexpr std::size_t kWindows = 4;         // that are tried
constexpr double kWholeResemblance = 0.25;  // the same of whole signals, one of them in noise
constexpr double kClearlyMore = 1.01;       // of a correlation over another
constexpr double kSilence = 1e-12;          // share of all energy that may be rounding

/// First frames of the most energetic windows, on a grid of half windows, that do not overlap; the earliest of equals
/// first. None of them is silent.
std::vector<std::size_t> energetic_windows(std::span<const float> signal, std::size_t window) {
  const std::size_t step = std::max<std::size_t>(window / 2, 1);
  std::vector<double> energies;
  for (std::size_t at = 0; at + window <= signal.size(); at += step) {
    const auto samples = signal.subspan(at, window);
    energies.push_back(product(samples, samples.data()));
  }

  std::vector<std::size_t> chosen;
  while (chosen.size() < kWindows && !energies.empty()) {
    const double highest = *std::max_element(energies.begin(), energies.end());
    if (highest == 0) break;
    const auto found =
        std::find_if(energies.begin(), energies.end(), [highest](double e) { return e >= kEqualEnergy * highest; });
    const auto index = static_cast<std::size_t>(found - energies.begin());
    chosen.push_back(step * index);
    for (std::size_t i = index == 0 ? 0 : index - 1; i <= std::min(index + 1, energies.size() - 1); ++i)
      energies[i] = 0;
  }
  return chosen;
}

struct Best {
  double correlation = kResemblance;
  std::optional<std::int64_t> delay{};

  void offer(double other, std::int64_t at) {
    if (other > correlation + kEqualCorrelation) *this = {other, at};
  }
};

/// The delays at which a window of the reference, from `first` on, lies within the test.
Alignment search(std::span<const float> wanted, std::size_t first, std::span<const float> test,
                 std::size_t max_frames) {
  const std::size_t lowest = first - std::min(first, max_frames);
  const std::size_t end = std::min(first + max_frames + wanted.size(), test.size());
  if (end < lowest + wanted.size()) return {Alignment::Outcome::no_resemblance};
  const std::vector<double> energies = running_energy(test.subspan(lowest, end - lowest));
  const double wanted_energy = product(wanted, wanted.data());
  Best upright, inverted;
  const auto look_at = [&](std::size_t start) {
    const double energy = energies[start - lowest + wanted.size()] - energies[start - lowest];
    if (energy <= kSilence * energies.back()) return;
    const double correlation = product(wanted, test.data() + start) / std::sqrt(wanted_energy * energy);
    const auto delay = static_cast<std::int64_t>(start) - static_cast<std::int64_t>(first);
    (correlation > 0 ? upright : inverted).offer(std::abs(correlation), delay);
  };
  for (std::size_t shift = 0; shift <= max_frames; ++shift) {
    if (first + shift + wanted.size() <= end) look_at(first + shift);
    if (shift > 0 && shift <= first && first - shift + wanted.size() <= end) look_at(first - shift);
  }
  const bool is_inverted = inverted.delay && inverted.correlation > kClearlyMore * upright.correlation;
  const Best& best = is_inverted ? inverted : upright;
  if (!best.delay) return {Alignment::Outcome::no_resemblance};
  return {Alignment::Outcome::found, *best.delay, is_inverted};
}

/// A window of a voice may resemble another sound of it; the whole does not.
bool holds_over_all(std::span<const float> reference, std::span<const float> test, std::int64_t delay) {
  const auto shift = static_cast<std::size_t>(std::abs(delay));
  const auto a = delay < 0 ? reference.subspan(shift) : reference;
  const auto b = delay < 0 ? test : test.subspan(shift);
  const std::size_t frames = std::min(a.size(), b.size());
  const auto x = a.first(frames);
  const auto y = b.first(frames);
  const double energies = product(x, x.data()) * product(y, y.data());
  return std::abs(product(x, y.data())) >= kWholeResemblance * std::sqrt(energies);
}

}  // namespace

Alignment align(std::span<const float> reference, std::span<const float> test, std::size_t max_frames) {
  const std::size_t window = std::min({kWindowFrames, reference.size(), test.size()});
  if (window == 0) return {Alignment::Outcome::reference_silent};
  const std::size_t reachable = std::min(reference.size(), test.size() + max_frames);
  const std::vector<std::size_t> windows = energetic_windows(reference.first(reachable), window);
  if (windows.empty()) return {Alignment::Outcome::reference_silent};
  for (const std::size_t first : windows) {
    const Alignment found = search(reference.subspan(first, window), first, test, max_frames);
    if (found.outcome == Alignment::Outcome::found && holds_over_all(reference, test, found.delay)) return found;
  }
  return {Alignment::Outcome::no_resemblance};
}

}  // namespace sonivo::tool
