#include "classic/kernel_table.h"

namespace sonivo::classic {
namespace {

struct Lanes8 {
  static constexpr std::size_t kLanes = 8;

  static SONIVO_INLINE Vector<8> reversed(Vector<8> v) { return __builtin_shufflevector(v, v, 7, 6, 5, 4, 3, 2, 1, 0); }

  static SONIVO_INLINE void interleave(Vector<8>& a, Vector<8>& b) {
    const Vector<8> low = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
    const Vector<8> high = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
    a = __builtin_shufflevector(low, high, 0, 1, 2, 3, 8, 9, 10, 11);
    b = __builtin_shufflevector(low, high, 4, 5, 6, 7, 12, 13, 14, 15);
  }

  static SONIVO_INLINE void deinterleave(Vector<8>& a, Vector<8>& b) {
    const Vector<8> low = __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
    const Vector<8> high = __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
    a = __builtin_shufflevector(low, high, 0, 2, 8, 10, 4, 6, 12, 14);
    b = __builtin_shufflevector(low, high, 1, 3, 9, 11, 5, 7, 13, 15);
  }

  // The halves of a vector come from two neighbours of 16 points: a load can insert a half on its way, and all further
  // shuffles stay inside of the halves.
  static SONIVO_INLINE void gather_runs(const float* x, Vector<8> (&v)[4]) {
    for (std::size_t r = 0; r < 4; ++r) {
      const Vector<4> low = load<4>(x + 4 * r);
      const Vector<8> wide = __builtin_shufflevector(low, low, 0, 1, 2, 3, -1, -1, -1, -1);
      v[r] = __builtin_ia32_vinsertf128_ps256(wide, load<4>(x + 16 + 4 * r), 1);
    }
  }

  static SONIVO_INLINE void gather_points(const float* x, Vector<8> (&v)[4]) {
    gather_runs(x, v);
    const Vector<8> a = __builtin_shufflevector(v[0], v[1], 0, 1, 8, 9, 4, 5, 12, 13);
    const Vector<8> b = __builtin_shufflevector(v[0], v[1], 2, 3, 10, 11, 6, 7, 14, 15);
    const Vector<8> c = __builtin_shufflevector(v[2], v[3], 0, 1, 8, 9, 4, 5, 12, 13);
    const Vector<8> d = __builtin_shufflevector(v[2], v[3], 2, 3, 10, 11, 6, 7, 14, 15);
    v[0] = __builtin_shufflevector(a, c, 0, 2, 8, 10, 4, 6, 12, 14);
    v[1] = __builtin_shufflevector(a, c, 1, 3, 9, 11, 5, 7, 13, 15);
    v[2] = __builtin_shufflevector(b, d, 0, 2, 8, 10, 4, 6, 12, 14);
    v[3] = __builtin_shufflevector(b, d, 1, 3, 9, 11, 5, 7, 13, 15);
  }
};

}  // namespace

constinit const Kernels kAvx2Kernels = kernels_of<Lanes8>("AVX2");

}  // namespace sonivo::classic
