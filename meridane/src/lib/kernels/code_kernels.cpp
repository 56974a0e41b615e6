#include "lib/kernels/code_kernels.h"

#include <cpuid.h>

#include "lib/kernels/kernels.h"

namespace meridane {
namespace {

// Bit 4 of EAX, leaf 7, part 1; older compilers have no name for it.
bool has_avx_vnni() {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  return __get_cpuid_count(7, 1, &eax, &ebx, &ecx, &edx) != 0 && (eax & (1u << 4)) != 0;
}

}  // namespace

bool runs_here(const CodeKernels& kernels) {
  if (&kernels == &kAvx512VnniCodeKernels) return runs_here(kAvx512Kernels) && __builtin_cpu_supports("avx512vnni");
  if (&kernels == &kAvxVnniCodeKernels) return runs_here(kAvx2Kernels) && has_avx_vnni();
  if (&kernels == &kAvx2CodeKernels) return runs_here(kAvx2Kernels);
  return true;
}

const CodeKernels& best_code_kernels() {
  static const CodeKernels& best = []() -> const CodeKernels& {
    const CodeKernels* last = &kPortableCodeKernels;
    for (const CodeKernels* kernels : kAllCodeKernels) {
      if (runs_here(*kernels)) last = kernels;
    }
    return *last;
  }();
  return best;
}

}  // namespace meridane
