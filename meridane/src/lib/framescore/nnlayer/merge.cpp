#include "lib/framescore/nnlayer/merge.h"

#include "meridane/error.h"

namespace meridane {

void MergeLayer::loaded() {
  if (mode_ != "add" && mode_ != "product") {
    raise("Mode %s is not implemented. Choose from add/product", mode_.c_str());
  }
}

MinibatchPtr MergeLayer::forward(const LayerInputs& inputs) const {
  expect_inputs(inputs);
  const Matrix& first = inputs[0]->content();
  for (std::size_t i = 1; i < inputs.size(); ++i) {
    const Matrix& other = inputs[i]->content();
    if (other.rows() != first.rows() && (other.cols() > 0 || first.cols() > 0)) {
      raise("Row size unmatch between 0-th and %d-th tensor. %d vs %d", static_cast<int>(i),
            static_cast<int>(other.rows()), static_cast<int>(first.rows()));
    }
    if (other.cols() != first.cols()) {
      raise("Column size unmatch between 0-th and %d-th tensor. %d vs %d", static_cast<int>(i),
            static_cast<int>(other.cols()), static_cast<int>(first.cols()));
    }
  }
  MinibatchPtr y = inputs.result(inputs[0]->shape(), first.cols());
  Matrix& joined = y->content();
  if (inputs.size() == 1 || first.cols() == 0) joined = first;
  for (std::size_t i = 1; i < inputs.size() && first.cols() > 0; ++i) {
    const Matrix& before = i == 1 ? first : joined;
    if (mode_ == "add") {
      joined = before + inputs[i]->content();
    } else {
      joined = before.cwiseProduct(inputs[i]->content());
    }
  }
  return y;
}

}  // namespace meridane
