#pragma once

// Vectors of 4, 8 or 16 floats for the sources that hold the kernels. All of it stays inside the including source:
// nothing that was compiled for a wide machine may be picked by the linker for other code.

#include <cstddef>

#define SONIVO_INLINE inline __attribute__((always_inline))

namespace sonivo::classic {
namespace {

template <std::size_t Lanes>
struct VectorOf {
  typedef float Type __attribute__((vector_size(sizeof(float) * Lanes)));
  typedef float InMemory __attribute__((vector_size(sizeof(float) * Lanes), aligned(sizeof(float)), may_alias));
};

template <std::size_t Lanes>
using Vector = typename VectorOf<Lanes>::Type;

template <std::size_t Lanes>
SONIVO_INLINE Vector<Lanes> load(const float* from) {
  return *reinterpret_cast<const typename VectorOf<Lanes>::InMemory*>(from);
}

template <std::size_t Lanes>
SONIVO_INLINE void store(float* to, Vector<Lanes> value) {
  *reinterpret_cast<typename VectorOf<Lanes>::InMemory*>(to) = value;
}

template <std::size_t Lanes>
SONIVO_INLINE Vector<Lanes> broadcast(float value) {
  return value - Vector<Lanes>{};
}

}  // namespace
}  // namespace sonivo::classic
