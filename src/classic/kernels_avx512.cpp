#include "classic/kernel_table.h"

namespace sonivo::classic {
namespace {

struct Lanes16 {
  static constexpr std::size_t kLanes = 16;

  static SONIVO_INLINE Vector<16> reversed(Vector<16> v) {
    return __builtin_shufflevector(v, v, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  }

  static SONIVO_INLINE void interleave(Vector<16>& a, Vector<16>& b) {
    const Vector<16> low = __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    b = __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
    a = low;
  }

  static SONIVO_INLINE void deinterleave(Vector<16>& a, Vector<16>& b) {
    const Vector<16> even = __builtin_shufflevector(a, b, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    b = __builtin_shufflevector(a, b, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
    a = even;
  }

  static SONIVO_INLINE void gather_runs(const float* x, Vector<16> (&v)[4]) {
    const Vector<16> z0 = load<16>(x), z1 = load<16>(x + 16), z2 = load<16>(x + 32), z3 = load<16>(x + 48);
    join_halves(__builtin_shufflevector(z0, z1, 0, 1, 2, 3, 16, 17, 18, 19, 4, 5, 6, 7, 20, 21, 22, 23),
                __builtin_shufflevector(z0, z1, 8, 9, 10, 11, 24, 25, 26, 27, 12, 13, 14, 15, 28, 29, 30, 31),
                __builtin_shufflevector(z2, z3, 0, 1, 2, 3, 16, 17, 18, 19, 4, 5, 6, 7, 20, 21, 22, 23),
                __builtin_shufflevector(z2, z3, 8, 9, 10, 11, 24, 25, 26, 27, 12, 13, 14, 15, 28, 29, 30, 31), v);
  }

  static SONIVO_INLINE void gather_points(const float* x, Vector<16> (&v)[4]) {
    const Vector<16> z0 = load<16>(x), z1 = load<16>(x + 16), z2 = load<16>(x + 32), z3 = load<16>(x + 48);
    join_halves(__builtin_shufflevector(z0, z1, 0, 4, 8, 12, 16, 20, 24, 28, 1, 5, 9, 13, 17, 21, 25, 29),
                __builtin_shufflevector(z0, z1, 2, 6, 10, 14, 18, 22, 26, 30, 3, 7, 11, 15, 19, 23, 27, 31),
                __builtin_shufflevector(z2, z3, 0, 4, 8, 12, 16, 20, 24, 28, 1, 5, 9, 13, 17, 21, 25, 29),
                __builtin_shufflevector(z2, z3, 2, 6, 10, 14, 18, 22, 26, 30, 3, 7, 11, 15, 19, 23, 27, 31), v);
  }

 private:
  // a and b hold points 0, 1 and 2, 3 of the first runs, c and d of the last.
  static SONIVO_INLINE void join_halves(Vector<16> a, Vector<16> b, Vector<16> c, Vector<16> d, Vector<16> (&v)[4]) {
    v[0] = __builtin_shufflevector(a, c, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
    v[1] = __builtin_shufflevector(a, c, 8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30, 31);
    v[2] = __builtin_shufflevector(b, d, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
    v[3] = __builtin_shufflevector(b, d, 8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30, 31);
  }
};

}  // namespace

constinit const Kernels kAvx512Kernels = kernels_of<Lanes16>("AVX-512");

}  // namespace sonivo::classic
