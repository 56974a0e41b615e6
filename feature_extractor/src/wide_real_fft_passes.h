#pragma once

// The loops of WideRealFft for vectors of any width. All of it stays inside the including source.

#include <cstddef>
#include <utility>

#include "feature_extractor/split_radix_passes.h"
#include "feature_extractor/wide_real_fft.h"

namespace sonivo {
namespace {

template <std::size_t lanes>
struct LanesOf {
  typedef float Vector __attribute__((vector_size(sizeof(float) * lanes)));
};

/// lanes: how many floats a vector has. rows: vectors of a transform, a power of two of lanes or more.
template <std::size_t lanes, std::size_t rows>
class WidePasses {
 public:
  static void forward(const WideRealFft::Tables& tables, float* x) {
    Vector re[rows], im[rows];
    for (std::size_t r = 0; r < rows; r += lanes) columns(tables, x, r, re + r, im + r);
    split_radix<rows>(tables.twiddles, re, im);
    for (std::size_t r = 0; r < rows; ++r) {
      const std::size_t other = bit_reversed(r, rows);
      if (r >= other) continue;
      exchange(re[r], re[other]);
      exchange(im[r], im[other]);
    }
    x[0] = re[0][0] + im[0][0];
    x[1] = re[0][0] - im[0][0];
    untangle(tables, reinterpret_cast<const float*>(re), reinterpret_cast<const float*>(im), x);
  }

 private:
  using Vector = typename LanesOf<lanes>::Vector;
  using EachLane = std::make_index_sequence<lanes>;
  static constexpr std::size_t kHalf = lanes * rows;

  static constexpr std::size_t bit_reversed(std::size_t index, std::size_t count) {
    std::size_t reversed = 0;
    for (std::size_t bit = 1; bit < count; bit *= 2) reversed = 2 * reversed + (index & bit) / bit;
    return reversed;
  }

  static Vector load(const float* from) {
    Vector v;
    __builtin_memcpy(&v, from, sizeof v);
    return v;
  }
  static void store(float* to, Vector v) { __builtin_memcpy(to, &v, sizeof v); }
  static void exchange(Vector& a, Vector& b) {
    const Vector kept = a;
    a = b;
    b = kept;
  }

  template <std::size_t... lane>
  static Vector reversed(Vector v, std::index_sequence<lane...>) {
    return __builtin_shufflevector(v, v, (lanes - 1 - lane)...);
  }
  template <std::size_t offset, std::size_t... lane>
  static Vector every_second(Vector a, Vector b, std::index_sequence<lane...>) {
    return __builtin_shufflevector(a, b, (2 * lane + offset)...);
  }
  template <std::size_t offset, std::size_t... lane>
  static Vector in_turns(Vector a, Vector b, std::index_sequence<lane...>) {
    return __builtin_shufflevector(a, b, (offset + lane / 2 + lane % 2 * lanes)...);
  }
  static void store_complex(float* to, Vector re, Vector im) {
    store(to, in_turns<0>(re, im, EachLane{}));
    store(to + lanes, in_turns<lanes / 2>(re, im, EachLane{}));
  }

  // The right half of a and the left half of b change places, in each block of twice `size`.
  template <std::size_t size, std::size_t... lane>
  static void exchange_blocks(Vector& a, Vector& b, std::index_sequence<lane...>) {
    const Vector upper = __builtin_shufflevector(a, b, ((lane & size) != 0 ? lanes + lane - size : lane)...);
    b = __builtin_shufflevector(a, b, ((lane & size) != 0 ? lanes + lane : lane + size)...);
    a = upper;
  }
  template <std::size_t size = lanes / 2>
  static void transpose(Vector (&block)[lanes]) {
    for (std::size_t i = 0; i < lanes; ++i) {
      if ((i & size) == 0) exchange_blocks<size>(block[i], block[i + size], EachLane{});
    }
    if constexpr (size > 1) transpose<size / 2>(block);
  }

  // Rows r to r + L - 1: L transforms of L points that lie R apart, turned.
  static void columns(const WideRealFft::Tables& tables, const float* x, std::size_t r, Vector* re, Vector* im) {
    Vector from_re[lanes], from_im[lanes], to_re[lanes], to_im[lanes];
    for (std::size_t l = 0; l < lanes; ++l) {
      const float* const z = x + 2 * (rows * l + r);
      const Vector first = load(z), second = load(z + lanes);
      from_re[l] = every_second<0>(first, second, EachLane{});
      from_im[l] = every_second<1>(first, second, EachLane{});
    }
    split_radix<lanes>(tables.twiddles, from_re, from_im);
    for (std::size_t c = 0; c < lanes; ++c) {
      const Vector u = from_re[bit_reversed(c, lanes)], v = from_im[bit_reversed(c, lanes)];
      const Vector cosine = load(tables.turn_cosine + rows * c + r), sine = load(tables.turn_sine + rows * c + r);
      to_re[c] = u * cosine + v * sine;
      to_im[c] = v * cosine - u * sine;
    }
    transpose(to_re);
    transpose(to_im);
    for (std::size_t i = 0; i < lanes; ++i) {
      re[i] = to_re[i];
      im[i] = to_im[i];
    }
  }

  // Bins 1 to M - 1 as in RealFft, lane by lane; k = M / 2, its own mirror, is stored last as k.
  static void untangle(const WideRealFft::Tables& tables, const float* re, const float* im, float* x) {
    for (std::size_t k = 1; k < kHalf / 2; k += lanes) {
      const std::size_t mirror = kHalf - k - (lanes - 1);
      const Vector re_k = load(re + k), re_m = reversed(load(re + mirror), EachLane{});
      const Vector im_k = load(im + k), im_m = reversed(load(im + mirror), EachLane{});
      const Vector even_re = 0.5f * (re_k + re_m), even_im = 0.5f * (im_k - im_m);
      const Vector odd_re = 0.5f * (im_k + im_m), odd_im = 0.5f * (re_m - re_k);
      const Vector cosine = load(tables.cosine + k), sine = load(tables.sine + k);
      const Vector turned_re = odd_re * cosine + odd_im * sine;
      const Vector turned_im = odd_im * cosine - odd_re * sine;
      store_complex(x + 2 * mirror, reversed(even_re - turned_re, EachLane{}),
                    reversed(turned_im - even_im, EachLane{}));
      store_complex(x + 2 * k, even_re + turned_re, even_im + turned_im);
    }
  }
};

/// points: 2 lanes^2 to WideRealFft::kMostPoints.
template <std::size_t lanes, std::size_t most = WideRealFft::kMostPoints>
void forward_of(std::size_t points, const WideRealFft::Tables& tables, float* x) {
  if constexpr (most > 2 * lanes * lanes) {
    if (points < most) return forward_of<lanes, most / 2>(points, tables, x);
  }
  WidePasses<lanes, most / 2 / lanes>::forward(tables, x);
}

template <std::size_t lanes>
constexpr WideRealFft wide_real_fft(const char* name) {
  return {.name = name, .lanes = lanes, .least_points = 2 * lanes * lanes, .forward = forward_of<lanes>};
}

}  // namespace
}  // namespace sonivo
