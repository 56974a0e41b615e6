#include "lib/framescore/nnlayer/tap_weight.h"

#include "lib/kernels/strips.h"

namespace meridane {

template <class Pack>
void TapWeight::pack_with(Eigen::Index taps, Pack pack) {
  const std::shared_ptr<float> block = release();
  tap_rows_ = rows() / taps;
  packed_.clear();
  for (Eigen::Index tap = 0; tap < taps; ++tap) {
    packed_.push_back(pack(std::shared_ptr<float>(block, block.get() + tap * tap_rows_ * cols())));
  }
}

void TapWeight::pack_each(Eigen::Index taps) {
  pack_with(taps, [this](std::shared_ptr<float> tap) {
    return PackedWeight(std::move(tap), static_cast<std::size_t>(tap_rows_), static_cast<std::size_t>(cols()));
  });
}

void TapWeight::pack_transposed(Eigen::Index taps) {
  transposed_ = true;
  pack_with(taps, [this](std::shared_ptr<float> tap) {
    return PackedWeight::of_columns(std::move(tap), static_cast<std::size_t>(cols()),
                                    static_cast<std::size_t>(tap_rows_));
  });
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
  const PackedWeight& tap = packed_[static_cast<std::size_t>(i / tap_rows_)];
  const auto line = static_cast<std::size_t>(i % tap_rows_), width = static_cast<std::size_t>(cols());
  if (!transposed_) {
    tap.row(line, out);
    return;
  }
  for (std::size_t k = 0; k < width; ++k) out[k] = tap.at(k, line);
}

}  // namespace meridane
