#include "classic/recursive_level.h"

namespace sonivo::classic {

void follow_level(const PwrBlock& param, const float* input, float* level) {
  for (int b = 0; b < param.nbin; ++b) {
    const float c = level[b] > input[b] ? param.PWCdn : param.PWCup;
    level[b] = c * level[b] + (1.0f - c) * input[b];
  }
}

}  // namespace sonivo::classic
