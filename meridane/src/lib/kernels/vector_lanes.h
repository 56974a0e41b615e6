#pragma once

// Vectors for the sources that hold kernels. All of it stays inside the including source: nothing that was compiled for
// a wide machine may be picked by the linker for other code. For the same reason nothing there calls functions of the
// standard library.

#include <cstddef>
#include <cstdint>
#include <utility>

#define MERIDANE_INLINE inline __attribute__((always_inline))
#define MERIDANE_UNROLL _Pragma("GCC unroll 16")

namespace meridane {
namespace {

template <class Value, std::size_t Lanes>
struct VectorOf {
  typedef Value Type __attribute__((vector_size(sizeof(Value) * Lanes)));
  typedef Value InMemory __attribute__((vector_size(sizeof(Value) * Lanes), aligned(sizeof(Value)), may_alias));
};

template <class Value, std::size_t Lanes>
using Vector = typename VectorOf<Value, Lanes>::Type;

template <std::size_t Lanes, class Value>
MERIDANE_INLINE Vector<Value, Lanes> load(const Value* from) {
  return *reinterpret_cast<const typename VectorOf<Value, Lanes>::InMemory*>(from);
}

template <std::size_t Lanes, class Value>
MERIDANE_INLINE void store(Value* to, Vector<Value, Lanes> value) {
  *reinterpret_cast<typename VectorOf<Value, Lanes>::InMemory*>(to) = value;
}

template <std::size_t Lanes, class Value>
MERIDANE_INLINE Vector<Value, Lanes> broadcast(Value value) {
  return value - Vector<Value, Lanes>{};
}

/// magnitude, at least 0, with the sign of each of v.
template <std::size_t Lanes>
MERIDANE_INLINE Vector<float, Lanes> sign_and_magnitude(Vector<float, Lanes> v, float magnitude) {
  using Words = Vector<std::uint32_t, Lanes>;
  const Words sign = reinterpret_cast<Words>(v) & 0x80000000u;
  return reinterpret_cast<Vector<float, Lanes>>(sign | reinterpret_cast<Words>(broadcast<Lanes>(magnitude)));
}

/// The first `count` from memory, the others as `fill`.
template <std::size_t Lanes, class Value>
MERIDANE_INLINE Vector<Value, Lanes> load_first(const Value* from, std::size_t count, Value fill) {
  Vector<Value, Lanes> v = broadcast<Lanes>(fill);
  for (std::size_t i = 0; i < count; ++i) v[i] = from[i];
  return v;
}

/// Into memory, the first `count` of them.
template <std::size_t Lanes, class Value>
MERIDANE_INLINE void store_first(Value* to, std::size_t count, Vector<Value, Lanes> v) {
  for (std::size_t i = 0; i < count; ++i) to[i] = v[i];
}

template <std::size_t Offset, class AnyVector, std::size_t... Lane>
MERIDANE_INLINE auto lanes_from(AnyVector v, std::index_sequence<Lane...>) {
  return __builtin_shufflevector(v, v, (Offset + Lane)...);
}

/// All lanes in one, by halves: join takes two vectors and in the end two numbers.
template <class AnyVector, class Join>
MERIDANE_INLINE auto fold(AnyVector v, Join join) {
  constexpr std::size_t kLanes = sizeof(v) / sizeof(v[0]);
  if constexpr (kLanes > 4) {
    using Half = std::make_index_sequence<kLanes / 2>;
    return fold(join(lanes_from<0>(v, Half{}), lanes_from<kLanes / 2>(v, Half{})), join);
  } else {
    return join(join(v[0], v[1]), join(v[2], v[3]));
  }
}

}  // namespace
}  // namespace meridane
