#include "lib/framescore/nnlayer/keep_pace.h"

#include <algorithm>

namespace meridane {

std::shared_ptr<NNLayerState> KeepPaceState::clone() const {
  auto copy = std::make_shared<KeepPaceState>();
  copy->streams_ = streams_;
  return copy;
}

std::uint64_t KeepPaceState::bytes() const {
  std::uint64_t sum = 0;
  for (const Stream& stream : streams_) sum += stream.waiting.bytes();
  for (const MinibatchPtr& frames : assembled_) {
    if (frames != nullptr) sum += held_bytes(frames->content());
  }
  return sum;
}

bool KeepPaceState::fits(const LayerInputs& inputs) const {
  if (streams_.empty()) return true;
  if (streams_.size() != inputs.size()) return false;
  for (std::size_t i = 0; i < streams_.size(); ++i) {
    const bool known = inputs[i]->size() > 0 && streams_[i].shape.has_value();
    if (known && inputs[i]->shape() != streams_[i].shape) return false;
  }
  return true;
}

const LayerInputs& KeepPaceState::meet(const LayerInputs& inputs) {
  streams_.resize(inputs.size());
  assembled_.resize(inputs.size());
  for (std::size_t i = 0; i < streams_.size(); ++i) {
    const Eigen::Index frames = streams_[i].waiting.frames() + inputs[i]->content().cols();
    met_ = i == 0 ? frames : std::min(met_, frames);
  }
  heads_.clear();
  for (std::size_t i = 0; i < streams_.size(); ++i) heads_.add(head(i, inputs[i]));
  heads_.set_spare(inputs.result());
  return heads_;
}

MinibatchPtr KeepPaceState::head(std::size_t i, const MinibatchPtr& input) {
  const Stream& stream = streams_[i];
  const bool has_its_rows = met_ > 0 || !stream.shape;  // the empty minibatch of a stream's end may have none
  if (stream.waiting.frames() == 0 && input->content().cols() == met_ && has_its_rows) return input;
  if (assembled_[i] == nullptr) assembled_[i] = std::make_shared<Minibatch>(Matrix());
  const MinibatchPtr& frames = assembled_[i];
  frames->resize(stream.shape ? *stream.shape : input->shape(), met_);
  const Eigen::Index rows = frames->content().rows(), old = std::min(stream.waiting.frames(), met_);
  if (old > 0) frames->content().leftCols(old) = Eigen::Map<const Matrix>(stream.waiting.data(), rows, old);
  if (old < met_) frames->content().rightCols(met_ - old) = input->content().leftCols(met_ - old);
  return frames;
}

void KeepPaceState::advance(const LayerInputs& inputs) {
  heads_.clear();
  for (std::size_t i = 0; i < streams_.size(); ++i) {
    Stream& stream = streams_[i];
    const Minibatch& input = *inputs[i];
    if (stream.waiting.frames() == 0 && input.content().cols() == met_ && stream.shape) continue;
    if (input.size() > 0) {
      if (!stream.shape) {
        stream.shape = input.shape();
        stream.waiting = FrameHistory(input.content().rows());
      }
      stream.waiting.append(input.content(), 0, 0);
    }
    stream.waiting.keep(stream.waiting.frames() - met_);
  }
}

}  // namespace meridane
