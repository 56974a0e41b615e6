#include "classic/kernel_table.h"

namespace sonivo::classic {
namespace {

struct Lanes4 {
  static constexpr std::size_t kLanes = 4;

  static SONIVO_INLINE Vector<4> reversed(Vector<4> v) { return __builtin_shufflevector(v, v, 3, 2, 1, 0); }

  static SONIVO_INLINE void interleave(Vector<4>& a, Vector<4>& b) {
    const Vector<4> low = __builtin_shufflevector(a, b, 0, 4, 1, 5);
    b = __builtin_shufflevector(a, b, 2, 6, 3, 7);
    a = low;
  }

  static SONIVO_INLINE void deinterleave(Vector<4>& a, Vector<4>& b) {
    const Vector<4> even = __builtin_shufflevector(a, b, 0, 2, 4, 6);
    b = __builtin_shufflevector(a, b, 1, 3, 5, 7);
    a = even;
  }

  static SONIVO_INLINE void gather_runs(const float* x, Vector<4> (&v)[4]) {
    for (std::size_t r = 0; r < 4; ++r) v[r] = load<4>(x + 4 * r);
  }

  static SONIVO_INLINE void gather_points(const float* x, Vector<4> (&v)[4]) {
    gather_runs(x, v);
    const Vector<4> a = __builtin_shufflevector(v[0], v[1], 0, 1, 4, 5);
    const Vector<4> b = __builtin_shufflevector(v[0], v[1], 2, 3, 6, 7);
    const Vector<4> c = __builtin_shufflevector(v[2], v[3], 0, 1, 4, 5);
    const Vector<4> d = __builtin_shufflevector(v[2], v[3], 2, 3, 6, 7);
    v[0] = __builtin_shufflevector(a, c, 0, 2, 4, 6);
    v[1] = __builtin_shufflevector(a, c, 1, 3, 5, 7);
    v[2] = __builtin_shufflevector(b, d, 0, 2, 4, 6);
    v[3] = __builtin_shufflevector(b, d, 1, 3, 5, 7);
  }
};

}  // namespace

constinit const Kernels kSse2Kernels = kernels_of<Lanes4>("SSE2");

}  // namespace sonivo::classic
