#include "lib/framescore/nnlayer/aligned_floats.h"

#include <cstdlib>
#include <new>

namespace meridane {
namespace {

constexpr std::size_t kAlignment = 64;  // of the widest vector

}  // namespace

std::shared_ptr<float> aligned_floats(std::size_t count) {
  const std::size_t bytes = (count * sizeof(float) + kAlignment - 1) / kAlignment * kAlignment;
  auto* const block = count == 0 ? nullptr : static_cast<float*>(std::aligned_alloc(kAlignment, bytes));
  if (block == nullptr) throw std::bad_alloc();
  return {block, [](float* floats) { std::free(floats); }};
}

}  // namespace meridane
