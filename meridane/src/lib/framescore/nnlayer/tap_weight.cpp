#include "lib/framescore/nnlayer/tap_weight.h"

#include "lib/framescore/nnlayer/aligned_floats.h"

namespace meridane {

template <class Element>
void TapWeight::add_packed(Eigen::Index rows, Eigen::Index cols, Element element) {
  const auto height = static_cast<std::size_t>(rows), width = static_cast<std::size_t>(cols);
  auto block = aligned_floats(PackedWeight::block_size(height, width));
  float* to = block.get();
  for (Eigen::Index i = 0; i < rows; ++i) {
    for (Eigen::Index k = 0; k < cols; ++k) *to++ = element(i, k);
  }
  packed_.emplace_back(std::move(block), height, width);
}

void TapWeight::set_form(Form form, Eigen::Index taps) {
  form_ = form;
  tap_rows_ = rows() / taps;
  packed_.clear();
}

void TapWeight::pack_side_by_side(Eigen::Index taps) {
  set_form(Form::side_by_side, taps);
  const RowMap stored = map();
  add_packed(tap_rows_, taps * cols(),
             [&](Eigen::Index i, Eigen::Index k) { return stored(k / cols() * tap_rows_ + i, k % cols()); });
  release();
}

void TapWeight::pack_each(Eigen::Index taps) {
  set_form(Form::each, taps);
  const RowMap stored = map();
  for (Eigen::Index tap = 0; tap < taps; ++tap) {
    add_packed(tap_rows_, cols(), [&](Eigen::Index i, Eigen::Index k) { return stored(tap * tap_rows_ + i, k); });
  }
  release();
}

void TapWeight::pack_transposed(Eigen::Index taps) {
  set_form(Form::transposed, taps);
  const RowMap stored = map();
  add_packed(taps * cols(), tap_rows_,
             [&](Eigen::Index i, Eigen::Index k) { return stored(i / cols() * tap_rows_ + k, i % cols()); });
  release();
}

void TapWeight::row(Eigen::Index i, float* out) const {
  if (form_ == Form::stored) {
    Weight::row(i, out);
    return;
  }
  const auto tap = static_cast<std::size_t>(i / tap_rows_), line = static_cast<std::size_t>(i % tap_rows_);
  const auto width = static_cast<std::size_t>(cols());
  for (std::size_t k = 0; k < width; ++k) {
    if (form_ == Form::side_by_side) {
      out[k] = packed_.front().at(line, tap * width + k);
    } else if (form_ == Form::each) {
      out[k] = packed_[tap].at(line, k);
    } else {
      out[k] = packed_.front().at(tap * width + k, line);
    }
  }
}

}  // namespace meridane
