#pragma once

// The loops of element_wise.h, for the sources that hold kernels. The values behind the last whole vector pass through
// a vector of their own, so that a result doesn't depend on its place.

#include "lib/kernels/exponential.h"
#include "lib/kernels/tangent.h"
#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

template <std::size_t L>
class ElementLoops {
  using V = Vector<float, L>;

 public:
  static void logistic(const float* x, std::size_t count, float slope, float bias, float* y) {
    map(
        count, y, [=](V v) { return 1.0f / (1.0f + exponential<L>(-(slope * v - bias))); }, x);
  }

  static void hyperbolic_tangent(const float* x, std::size_t count, float slope, float bias, float* y) {
    map(
        count, y, [=](V v) { return tangent<L>(slope * v - bias); }, x);
  }

  static void swish(const float* x, std::size_t count, float slope, float bias, float* y) {
    map(
        count, y,
        [=](V v) {
          const V e = exponential<L>(-(slope * v - bias));
          return e == kInfinity ? V{} : v / (1.0f + e);  // the limit, where v is infinite too
        },
        x);
  }

  static void gated(const float* p, const float* q, std::size_t count, float slope, float bias, float* y) {
    map(
        count, y, [=](V u, V v) { return u / (1.0f + exponential<L>(-(slope * v - bias))); }, p, q);
  }

  static void leaky_rectifier(const float* x, std::size_t count, float a, float* y) {
    if (a == 0) {  // an infinity has no part in 0 times it
      map(
          count, y, [=](V v) { return v < 0.0f ? V{} : v; }, x);
    } else {
      map(
          count, y, [=](V v) { return v < 0.0f ? a * v : v; }, x);
    }
  }

  static void softmax(const float* x, std::size_t count, float temperature, float* y) {
    const float most = maximum(x, count);
    map(
        count, y, [=](V v) { return exponential<L>((v - most) / temperature); }, x);
    const float inverse = 1.0f / sum(y, count, 0.0f, [](V v) { return v; });
    map(
        count, y, [=](V v) { return v * inverse; }, y);
  }

  static void normalise(const float* x, std::size_t count, const float* weight, const float* bias, float eps,
                        float* y) {
    if (count == 0) return;
    // Relative to the first value, so that equal values have exactly that mean.
    const float parts = 1.0f / static_cast<float>(count);
    const float mean = x[0] + sum_from(x, count, x[0]) * parts;
    const float variance = squares_from(x, count, mean) * parts;
    normalise_by(x, count, mean, 1.0f / __builtin_sqrtf(variance + eps), weight, bias, y);
  }

  static void normalise_by(const float* x, std::size_t count, float mean, float scale, const float* weight,
                           const float* bias, float* y) {
    map(
        count, y, [=](V v, V w, V b) { return (v - mean) * scale * w + b; }, x, weight, bias);
  }

  static float sum_from(const float* x, std::size_t count, float start) {
    return sum(x, count, start, [=](V v) { return v - start; });
  }

  static float squares_from(const float* x, std::size_t count, float start) {
    return sum(x, count, start, [=](V v) { return (v - start) * (v - start); });
  }

  static void standardise(const float* x, std::size_t count, const float* mean, const float* scale, const float* shift,
                          float* y) {
    map(
        count, y, [](V v, V m, V s, V b) { return (v - m) * s + b; }, x, mean, scale, shift);
  }

  static void add(const float* x, std::size_t count, const float* bias, float* y) {
    map(
        count, y, [](V v, V b) { return v + b; }, x, bias);
  }

  static void scale(const float* x, std::size_t count, const float* factor, float* y) {
    map(
        count, y, [](V v, V s) { return v * s; }, x, factor);
  }

  static void lstm_cell(const float* z, std::size_t count, float* c, float* h) {
    const float *const g = z, *const i = g + count, *const f = i + count, *const o = f + count;
    std::size_t k = 0;
    for (; k + L <= count; k += L) {
      const V cell = next_cell(load<L>(g + k), load<L>(i + k), load<L>(f + k), load<L>(c + k));
      store<L>(c + k, cell);
      store<L>(h + k, sigmoid(load<L>(o + k)) * tangent<L>(cell));
    }
    if (k == count) return;
    const auto last = [rest = count - k, k](const float* from) { return load_first<L>(from + k, rest, 0.0f); };
    const V cell = next_cell(last(g), last(i), last(f), last(c));
    store_first<L>(c + k, count - k, cell);
    store_first<L>(h + k, count - k, sigmoid(last(o)) * tangent<L>(cell));
  }

 private:
  static MERIDANE_INLINE V next_cell(V g, V i, V f, V c) { return tangent<L>(g) * sigmoid(i) + sigmoid(f) * c; }

  static MERIDANE_INLINE V sigmoid(V v) { return 1.0f / (1.0f + exponential<L>(-v)); }

  // y[k] = f(x[k] ...)
  template <class Function, class... Arrays>
  static MERIDANE_INLINE void map(std::size_t count, float* y, Function f, Arrays... x) {
    std::size_t k = 0;
#pragma GCC unroll 4
    for (; k + L <= count; k += L) store<L>(y + k, f(load<L>(x + k)...));
    if (k < count) store_first<L>(y + k, count - k, f(load_first<L>(x + k, count - k, 0.0f)...));
  }

  // f(fill) is 0.
  template <class Function>
  static MERIDANE_INLINE float sum(const float* x, std::size_t count, float fill, Function f) {
    V parts[4] = {};
    std::size_t k = 0;
    for (; k + 4 * L <= count; k += 4 * L) {
      MERIDANE_UNROLL
      for (std::size_t i = 0; i < 4; ++i) parts[i] += f(load<L>(x + k + i * L));
    }
    for (; k + L <= count; k += L) parts[0] += f(load<L>(x + k));
    if (k < count) parts[1] += f(load_first<L>(x + k, count - k, fill));
    return fold((parts[0] + parts[1]) + (parts[2] + parts[3]), [](auto a, auto b) { return a + b; });
  }

  // Passes over what is no number.
  static MERIDANE_INLINE float maximum(const float* x, std::size_t count) {
    V most = broadcast<L>(-kInfinity);
    std::size_t k = 0;
    const auto take = [&most](V v) { most = v > most ? v : most; };
    for (; k + L <= count; k += L) take(load<L>(x + k));
    if (k < count) take(load_first<L>(x + k, count - k, -kInfinity));
    return fold(most, [](auto a, auto b) { return a > b ? a : b; });
  }
};

}  // namespace
}  // namespace meridane
