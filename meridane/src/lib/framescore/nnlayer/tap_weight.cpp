#include "lib/framescore/nnlayer/tap_weight.h"

#include <cassert>
#include <utility>

#include "lib/kernels/strips.h"

namespace meridane {

void TapWeight::pack_each(Eigen::Index taps) {
  const std::shared_ptr<float> block = release();
  tap_rows_ = rows() / taps;
  form_ = Form::each;
  packed_.clear();
  for (Eigen::Index tap = 0; tap < taps; ++tap) {
    packed_.emplace_back(std::shared_ptr<float>(block, block.get() + tap * tap_rows_ * cols()),
                         static_cast<std::size_t>(tap_rows_), static_cast<std::size_t>(cols()));
  }
}

void TapWeight::pack_side_by_side(Eigen::Index taps) {
  assert(cols() == 1);
  tap_rows_ = rows() / taps;
  form_ = Form::side_by_side;
  packed_ = {PackedWeight::of_columns(release(), static_cast<std::size_t>(tap_rows_), static_cast<std::size_t>(taps))};
}

void TapWeight::pack_transposed(Eigen::Index taps) {
  std::shared_ptr<float> block = release();
  tap_rows_ = rows() / taps;
  form_ = Form::transposed;
  const auto tap_rows = static_cast<std::size_t>(tap_rows_), width = static_cast<std::size_t>(cols());
  for (Eigen::Index tap = 0; tap < taps; ++tap) {
    into_strips(block.get() + tap * tap_rows_ * cols(), tap_rows, width, 1);
  }
  packed_ = {PackedWeight(std::move(block), static_cast<std::size_t>(taps) * width, tap_rows)};
}

void TapWeight::transpose() {
  columns_ = release();
  into_strips(columns_.get(), static_cast<std::size_t>(rows()), static_cast<std::size_t>(cols()), 1);
}

void TapWeight::row(Eigen::Index i, float* out) const {
  if (columns_ != nullptr) {
    for (Eigen::Index k = 0; k < cols(); ++k) out[k] = column(k)[i];
    return;
  }
  if (packed_.empty()) {
    Weight::row(i, out);
    return;
  }
  const auto tap = static_cast<std::size_t>(i / tap_rows_), line = static_cast<std::size_t>(i % tap_rows_),
             width = static_cast<std::size_t>(cols());
  switch (form_) {
    case Form::each:
      packed_[tap].row(line, out);
      break;
    case Form::side_by_side:
      *out = packed_.front().at(line, tap);
      break;
    case Form::transposed:
      for (std::size_t k = 0; k < width; ++k) out[k] = packed_.front().at(tap * width + k, line);
      break;
  }
}

}  // namespace meridane
