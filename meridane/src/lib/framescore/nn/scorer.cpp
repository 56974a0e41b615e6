#include "meridane/framescore/scorer.h"

#include <algorithm>
#include <set>
#include <utility>

#include "lib/framescore/nnlayer/held_bytes.h"
#include "meridane/error.h"

namespace meridane {
namespace {

/// Empties the slot. Gives what was in it if nobody else holds it: its memory can be written over.
MinibatchPtr take_spare(MinibatchPtr& slot) {
  MinibatchPtr spare = std::exchange(slot, nullptr);
  if (spare.use_count() > 1) spare.reset();
  // Whoever held it, on any thread, has done with it. That this thread sees so follows from another copy: it changes
  // the count that the last of the others has left, with the memory order that libstdc++ takes for all its counts.
  const MinibatchPtr acquiring = spare;  // NOLINT(performance-unnecessary-copy-initialization)
  return spare;
}

MinibatchPtr shaped(MinibatchPtr spare, const Minibatch::Shape& shape, Eigen::Index frames) {
  if (spare == nullptr) return Minibatch::uninitialised(shape, frames);
  spare->resize(shape, frames);
  return spare;
}

/// Frame i of the result is frame i / k of the source.
MinibatchPtr stretched(const Minibatch& source, std::uint64_t frames, std::uint64_t k, MinibatchPtr spare) {
  MinibatchPtr result = shaped(std::move(spare), source.shape(), static_cast<Eigen::Index>(frames));
  const Eigen::Index last = source.content().cols() - 1;
  for (std::uint64_t i = 0; i < frames; ++i) {
    // A network that shortens its stream can have fewer frames than i / k asks for: the last one stands for them.
    const Eigen::Index from = std::min(static_cast<Eigen::Index>(i / k), last);
    result->content().col(static_cast<Eigen::Index>(i)) = source.content().col(from);
  }
  return result;
}

bool is_among(const std::vector<MinibatchPtr>& streams, const MinibatchPtr& result) {
  return std::find(streams.begin(), streams.end(), result) != streams.end();
}

}  // namespace

NNScorer::NNScorer(const NNParameter& parameter) : parameter_(&parameter) {
  if (parameter.forward_path().empty()) raise("A network that has not been loaded can't be run");
  place_layers();
  NNScorer::reset();
}

void NNScorer::place_layers() {
  for (const auto& layer : parameter_->forward_path()) {
    Place place{.layer = layer, .inputs = {}, .result = &layer_outputs_[layer->id()]};
    if (!places_.empty()) {
      for (const auto& before : parameter_->graph().get_prec_layers(layer->id())) {
        place.inputs.push_back(&layer_outputs_[before->id()]);
      }
    }
    places_.push_back(std::move(place));
  }
  std::set<MinibatchPtr*> still_read = {places_.front().result, places_.back().result};
  for (auto place = places_.rbegin(); place != places_.rend(); ++place) {
    for (MinibatchPtr* const input : place->inputs) {
      if (still_read.insert(input).second) place->last_read.push_back(input);
    }
  }
}

void NNScorer::set_input(const std::shared_ptr<FrameSequence>& frames) {
  set_input(MinibatchPtr());  // what was there is gone, also where the new one can't be built
  if (frames != nullptr) input_ = std::make_shared<Minibatch>(frames);
}

void NNScorer::set_input(MinibatchPtr input) {
  executed_ = false;
  input_ = std::move(input);
}

void NNScorer::reset() {
  fed_ = 0;
  for (const auto& layer : parameter_->forward_path()) layer_states_[layer->id()] = layer->create_state();
}

NNScorer::States NNScorer::get_states() const {
  States copies;
  for (const auto& [id, state] : layer_states_) copies[id] = state == nullptr ? nullptr : state->clone();
  return copies;
}

float NNScorer::score(std::uint64_t frame, std::uint64_t dimension) {
  const Matrix& result = output_minibatch().content();
  if (frame >= static_cast<std::uint64_t>(result.cols()) || dimension >= static_cast<std::uint64_t>(result.rows())) {
    raise<DimensionMismatchError>("There is no score of frame %llu and dimension %llu",
                                  static_cast<unsigned long long>(frame), static_cast<unsigned long long>(dimension));
  }
  return result(static_cast<Eigen::Index>(dimension), static_cast<Eigen::Index>(frame));
}

Matrix NNScorer::output() { return output_minibatch().content(); }

const Minibatch& NNScorer::output_minibatch() {
  if (!executed_) execute();
  return *output_;
}

MinibatchPtr NNScorer::get_layer_output(const std::string& id) const {
  if (!executed_) raise("not executed (get_layer_output)");
  const auto found = layer_outputs_.find(id);
  if (found == layer_outputs_.end() || found->second == nullptr) raise("couldn't find \"%s\" layer", id.c_str());
  return found->second;
}

std::uint64_t NNScorer::bytes() const {
  std::set<const Minibatch*> results = {output_.get()};
  for (const auto& [id, result] : layer_outputs_) results.insert(result.get());
  for (const auto& result : read_) results.insert(result.get());
  results.erase(nullptr);
  std::uint64_t sum = 0;
  for (const Minibatch* result : results) sum += held_bytes(result->content());
  for (const auto& [id, state] : layer_states_) sum += state == nullptr ? 0 : state->bytes();
  return sum;
}

void NNScorer::execute() {
  executed_ = false;
  for (MinibatchPtr* const slot : handed_on_) slot->reset();
  handed_on_.clear();
  MinibatchPtr spare = take_spare(output_);  // a stretched one: any other is held by its layer's slot, too
  read_before_.swap(read_);
  read_.clear();
  if (!keeps_results_ && places_.size() > 1) forget(*places_.back().result);
  const MinibatchPtr input = step_input();
  const MinibatchPtr fed = skipped(input);
  fed_ += fed->size();
  for (Place& place : places_) run_layer(place, fed, fed->size());
  output_ = *places_.back().result;
  if (frame_skip_ >= 2) {
    const std::uint64_t frames = stretched_size(input->size(), *output_);
    if (frames > 0) output_ = stretched(*output_, frames, frame_skip_, std::move(spare));
  }
  executed_ = true;
}

void NNScorer::run_layer(Place& place, const MinibatchPtr& input, std::uint64_t expected) {
  const NNLayer& layer = *place.layer;
  const bool is_first = &place == &places_.front();
  layer_inputs_.clear();
  if (is_first) layer_inputs_.add(input);
  for (const MinibatchPtr* before : place.inputs) layer_inputs_.add(*before);
  MinibatchPtr& slot = *place.result;
  layer_inputs_.set_spare(keeps_results_ ? take_spare(slot) : take_read(place.made));
  layer_inputs_.set_last(input_ == nullptr);  // a step without input; only some scorers make one
  layer_inputs_.set_fed(fed_);
  slot = layer.forward(layer_inputs_, layer_states_[layer.id()]);
  const bool is_handed_on = is_among(layer_inputs_.streams(), slot);
  layer_inputs_.clear();
  check_result(layer, *slot, expected);
  place.made = is_handed_on ? 0 : slot->content().size();
  if (!keeps_results_) {
    for (MinibatchPtr* const input_slot : place.last_read) forget(*input_slot);
  } else if (is_handed_on && !is_first) {
    handed_on_.push_back(&slot);
  }
}

/// The newest result of that size among those that nobody reads any more: what is left of it in the cache is the most.
MinibatchPtr NNScorer::take_read(Eigen::Index size) {
  for (auto* const results : {&read_, &read_before_}) {
    const auto found = std::find_if(results->rbegin(), results->rend(),
                                    [size](const auto& result) { return result->content().size() == size; });
    if (found == results->rend()) continue;
    MinibatchPtr taken = std::move(*found);
    results->erase(std::next(found).base());
    return taken;
  }
  return nullptr;
}

void NNScorer::forget(MinibatchPtr& slot) {
  if (MinibatchPtr result = take_spare(slot)) read_.push_back(std::move(result));
}

MinibatchPtr NNScorer::step_input() const {
  if (input_ == nullptr || input_->size() == 0) raise("didn't set input data");
  expect_dimension(*input_);
  return input_;
}

void NNScorer::expect_dimension(const Minibatch& input) const {
  if (static_cast<std::uint64_t>(input.content().rows()) != parameter_->ninput()) {
    raise("number of dimensions of input data does not accord to the network");
  }
}

/// Every k-th frame, beginning with the first, in the memory of the step before where the start of the network holds
/// it.
MinibatchPtr NNScorer::skipped(const MinibatchPtr& input) {
  if (frame_skip_ < 2 || input->size() == 0) return input;
  const auto k = static_cast<Eigen::Index>(frame_skip_);
  const Eigen::Index frames = (input->content().cols() - 1) / k + 1;
  MinibatchPtr kept = shaped(take_spare(*places_.front().result), input->shape(), frames);
  for (Eigen::Index j = 0; j < frames; ++j) kept->content().col(j) = input->content().col(j * k);
  return kept;
}

void NNScorer::check_result(const NNLayer& layer, const Minibatch& result, std::uint64_t expected) const {
  if (result.size() != expected) {
    raise("Minibatch size was changed through forward-propagation in %s", layer.id().c_str());
  }
}

std::uint64_t NNScorer::stretched_size(std::uint64_t frames, const Minibatch&) const { return frames; }

std::uint64_t NNScorerVariableLength::stretched_size(std::uint64_t frames, const Minibatch& result) const {
  return result.size() < 2 ? 0 : frames;
}

void NNScorerForLCBLSTM::set_input(const std::shared_ptr<FrameSequence>& frames) {
  if (frames == nullptr || frames->empty()) {
    set_input(MinibatchPtr());
  } else {
    NNScorer::set_input(frames);
  }
}

MinibatchPtr NNScorerForLCBLSTM::step_input() const {
  if (input() == nullptr) return std::make_shared<Minibatch>(Matrix(0, 0));
  return NNScorer::step_input();
}

/// What comes out of a step without input stands for as many frames as it would in any other.
std::uint64_t NNScorerForLCBLSTM::stretched_size(std::uint64_t frames, const Minibatch& result) const {
  return NNScorerVariableLength::stretched_size(frames == 0 ? result.size() * frame_skip() : frames, result);
}

}  // namespace meridane
