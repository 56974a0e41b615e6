#pragma once

#include <string>
#include <vector>

namespace meridane::bench {

/// Libraries read how many threads and which instructions they may take when they are loaded: starts the program anew
/// with one thread, and with AVX2 for all of them, ours included, where the first argument is --avx2. That argument is
/// taken away.
void start_with_one_thread(int& argc, char**& argv);

/// Whether all contenders are capped to AVX2.
bool capped_to_avx2();
/// Whether our own kernels are no wider than that cap.
bool cap_holds();

/// Fused multiply-adds of floats per microsecond that a core does at most, with the instructions of the contenders.
double peak_multiply_adds();

}  // namespace meridane::bench
