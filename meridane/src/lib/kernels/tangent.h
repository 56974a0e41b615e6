#pragma once

// The hyperbolic tangent of vectors, for the sources that hold kernels: tanh(x) = x P(x^2) / Q(x^2), both of degree 4
// with positive coefficients, which tools/tanh-coefficients finds. Up to |x| = 9.02, from where on the float next to
// tanh(x) is 1, they leave out less than 0.4 ulp.

#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

template <std::size_t L>
MERIDANE_INLINE Vector<float, L> tangent(Vector<float, L> x) {
  using V = Vector<float, L>;
  const auto within = [](V v, float most) {  // what is no number stays so
    V least = broadcast<L>(-most), greatest = broadcast<L>(most);
    asm("" : "+v"(least), "+v"(greatest));  // constants are compared and blended, values have an instruction for that
    v = least > v ? least : v;
    return greatest < v ? greatest : v;
  };
  const V a = within(x, 9.02f), u = a * a;
  V p = u * 1.331906595e-8f + 2.0583476e-5f;
  V q = u * 7.76201673e-7f + 3.283092272e-4f;
  p = p * u + 3.49403419e-3f;
  q = q * u + 2.587107173e-2f;
  p = p * u + 0.1337971761f;
  q = q * u + 0.4671303285f;
  p = p * u + 1.0f;
  q = q * u + 1.0f;
  return within(a * p / q, 1.0f);
}

}  // namespace
}  // namespace meridane
