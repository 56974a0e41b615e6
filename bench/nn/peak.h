#pragma once

namespace meridane::bench {

/// Fused multiply-adds of vectors in registers, and nothing else. Gives how many numbers were multiplied.
double multiply_adds_avx2();
double multiply_adds_avx512();

}  // namespace meridane::bench
