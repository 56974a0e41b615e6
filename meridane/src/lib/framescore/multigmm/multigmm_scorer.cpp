#include "meridane/error.h"
#include "meridane/framescore/multigmm.h"

namespace meridane {

void MultiGMMScorer::set_data(const std::shared_ptr<FrameSequence>& frames) {
  auto input = std::make_unique<Minibatch>(frames);
  if (input->content().rows() != parameter_->dimension()) {
    raise("number of dimentions of input data does not accord");
  }
  input_ = std::move(input);
  output_.reset();
}

void MultiGMMScorer::execute() {
  if (input_ == nullptr) raise("didn't set input data");
  const Matrix& x = input_->content();
  auto output = std::make_unique<Matrix>(static_cast<Eigen::Index>(output_dimension()), x.cols());
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    const Vector frame = x.col(t);
    for (Eigen::Index j = 0; j < output->rows(); ++j) {
      (*output)(j, t) = static_cast<float>(parameter_->log_density(frame, static_cast<std::size_t>(j)));
    }
  }
  output_ = std::move(output);
}

Matrix MultiGMMScorer::output() {
  if (output_ == nullptr) execute();
  return *output_;
}

float MultiGMMScorer::score(std::uint64_t frame, std::uint64_t mixture) {
  if (output_ == nullptr) execute();
  if (frame >= static_cast<std::uint64_t>(output_->cols()) || mixture >= output_dimension()) {
    raise<DimensionMismatchError>("There is no score of frame %llu and dimension %llu",
                                  static_cast<unsigned long long>(frame), static_cast<unsigned long long>(mixture));
  }
  return (*output_)(static_cast<Eigen::Index>(mixture), static_cast<Eigen::Index>(frame));
}

}  // namespace meridane
