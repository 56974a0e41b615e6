#pragma once

#include <cstddef>
#include <random>
#include <vector>

#include "quality/noises.h"

namespace sonivo::bench {

Noise key_strokes(std::size_t frames, std::mt19937_64& random);
Noise desk_thumps(std::size_t frames, std::mt19937_64& random);

/// Whether each frame of 10 ms holds a blow that sounds this long.
std::vector<bool> sounding(const Noise& noise, std::size_t blow);

}  // namespace sonivo::bench
