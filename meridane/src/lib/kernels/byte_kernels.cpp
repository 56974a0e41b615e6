#include "lib/kernels/byte_kernels.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>

#include "lib/kernels/code_kernels.h"

namespace meridane {
namespace {

constexpr std::size_t kWordCodes = 4;
constexpr std::align_val_t kAlignment{64};

PanelShape shape(std::size_t lines, std::size_t line_codes, const CodeKernels& kernels) {
  return {.rows = lines, .columns = line_codes / kWordCodes, .lanes = kernels.lanes, .height = kernels.panel_height};
}

// At least one, for no columns too.
std::size_t blocks_of(std::size_t count, std::size_t most) { return count == 0 ? 1 : (count + most - 1) / most; }

}  // namespace

LineCodes quantize_line(const float* x, std::size_t count, std::size_t padded, std::uint8_t* codes) {
  assert(count > 0 && count <= padded);
  return best_code_kernels().quantize(x, count, padded, codes);
}

void restore_products(const std::int32_t* d, const LineCodes& frame, const WeightLines& lines, const float* bias,
                      float* y) {
  best_code_kernels().restore(d, frame, lines, bias, y);
}

PackedCodes::PackedCodes(const std::uint8_t* codes, std::size_t lines, std::size_t line_codes)
    : PackedCodes(codes, lines, line_codes, best_code_kernels()) {}

PackedCodes::PackedCodes(const std::uint8_t* codes, std::size_t lines, std::size_t line_codes,
                         const CodeKernels& kernels)
    : kernels_(&kernels), lines_(lines), line_codes_(line_codes) {
  assert(runs_here(kernels));
  assert(line_codes % 16 == 0);
  const PanelShape panels = shape(lines, line_codes, kernels);
  const std::size_t sums = lines * panels.columns, size = std::max(sums + lines, panels.readable_size());
  const std::shared_ptr<std::int32_t> packed(new (kAlignment) std::int32_t[size](),
                                             [](std::int32_t* words) { operator delete[](words, kAlignment); });
  // 128 sum of W(i, k) makes up for what the signed bytes of the frames lack.
  std::int32_t* start = packed.get() + sums;
  for (std::size_t i = 0; i < lines; ++i) {
    const std::uint8_t* line = codes + i * line_codes;
    for (std::size_t k = 0; k < panels.columns; ++k) {
      std::memcpy(packed.get() + panels.place(i, k), line + k * kWordCodes, kWordCodes);
    }
    if (kernels.factors == CodeKernels::Factors::kSignedBytes) {
      std::uint32_t sum = 0;
      for (std::size_t k = 0; k < line_codes; ++k) sum += line[k];
      start[i] = static_cast<std::int32_t>(128u * sum);
    }
  }
  packed_ = packed;
}

void PackedCodes::multiply(const std::uint8_t* x, std::size_t frames, std::int32_t* d) const {
  if (lines_ == 0 || frames == 0) return;
  // Frames, then their depth, in blocks of about the same size, as many as the factors on the stack ask for.
  constexpr std::size_t kFactors = 16384, kLeastSteps = 128;
  std::int32_t factors[kFactors];
  const PanelShape panels = shape(lines_, line_codes_, *kernels_);
  const std::size_t per_step = kernels_->factors == CodeKernels::Factors::kHalves ? 2 : 1;
  const std::size_t frame_blocks = blocks_of(frames, kFactors / (kLeastSteps * per_step));
  for (std::size_t f = 0; f < frame_blocks; ++f) {
    const std::size_t first = frames * f / frame_blocks, count = frames * (f + 1) / frame_blocks - first;
    std::int32_t* sums = d + first * lines_;
    const std::size_t depth_blocks = blocks_of(panels.columns, kFactors / (count * per_step));
    for (std::size_t b = 0; b < depth_blocks; ++b) {
      const std::size_t begin = panels.columns * b / depth_blocks, end = panels.columns * (b + 1) / depth_blocks;
      const std::size_t x_stride = (end - begin) * per_step;
      const std::size_t at_once = depth_blocks == 1 ? count : 1;  // whole frames follow one another
      for (std::size_t t = 0; t < count; t += at_once) {
        kernels_->prepare(x + (first + t) * line_codes_ + begin * kWordCodes, at_once * (end - begin),
                          factors + t * x_stride);
      }
      kernels_->multiply({.w = packed_.get(),
                          .rows = lines_,
                          .columns = panels.columns,
                          .begin = begin,
                          .end = end,
                          .x = factors,
                          .x_stride = x_stride,
                          .frames = count,
                          .start = b == 0 ? packed_.get() + lines_ * panels.columns : sums,
                          .start_stride = b == 0 ? 0 : lines_,
                          .y = sums,
                          .y_stride = lines_});
    }
  }
}

}  // namespace meridane
