#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "classic/param_blobs.h"

namespace sonivo::classic::test {

using Edges = std::vector<std::uint16_t>;

BandTable band_table(const Edges& edges);

/// Sets the pulse bands, with the band counts of all blocks that go by them.
void set_pulse_bands(PulsePath& path, const Edges& edges);
/// Sets the prm or ui bands over pulse bands, and their tables over bins where they lie within the pulse bands.
void set_prm_bands(PulsePath& path, const Edges& edges);
void set_ui_bands(PulsePath& path, const Edges& edges);

/// A complete record: 16 pulse bands over all bins, 3 prm and 2 ui bands, two groups, one sub-block of delay.
PulsePath key_parameters();

struct KeySet {
  std::string name;
  PulsePath path;
};

/// Parameter sets that differ in tables, groups, delays, windows and thresholds.
std::vector<KeySet> key_sets();

std::vector<float> white_noise(std::size_t samples, float rms, unsigned seed);
std::vector<float> sweep(std::size_t samples, float amplitude);
/// White noise with a burst of 100 samples about every 60 ms.
std::vector<float> clicks_over_noise(std::size_t samples, float rms, float click, unsigned seed);

}  // namespace sonivo::classic::test
