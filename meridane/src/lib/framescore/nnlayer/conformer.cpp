#include "lib/framescore/nnlayer/conformer.h"

#include <algorithm>
#include <cstring>
#include <rapidxml/rapidxml.hpp>
#include <sstream>

#include "lib/framescore/nnlayer/frame_history.h"
#include "lib/framescore/nnlayer/position_table.h"
#include "lib/framescore/nnlayer/positioned_frames.h"
#include "lib/framescore/nnlayer/rel_mha.h"
#include "meridane/error.h"
#include "meridane/framescore/nn.h"
#include "meridane/io/binary.h"

namespace meridane {
namespace {

constexpr const char* kNames[] = {"norm1", "fc1",   "act1", "fc2",   "norm2", "mha1", "norm3", "conv1", "act2",
                                  "conv2", "norm4", "act3", "conv3", "norm5", "fc3",  "act4",  "fc4",   "norm6"};
constexpr float kHalf = 0.5f;
// The table of encodings for frames that come without them grows in this step.
constexpr Eigen::Index kTableStep = 64;

constexpr Words kLastLayer = {.value = [](const std::optional<std::string>& word) -> std::int32_t {
                                return !word || word == "false" || word == "0" ? 0 : 1;
                              },
                              .word = [](std::int32_t value) { return value != 0 ? "true" : "false"; }};

/// Sublayers are stored as the layers of a network are.
struct SublayerBuilder : NNParameter {
  using NNParameter::build_layer;
};

}  // namespace

struct ConformerLayer::State : NNLayerState {
  explicit State(Eigen::Index rows) : keys(rows), values(rows) {}

  std::shared_ptr<NNLayerState> clone() const override {
    auto copy = std::make_shared<State>(*this);
    for (auto& state : copy->states) {
      if (state != nullptr) state = state->clone();
    }
    copy->results.fill(nullptr);
    copy->x = nullptr;
    copy->inputs.clear();
    return copy;
  }

  std::uint64_t bytes() const override {
    std::uint64_t sum =
        keys.bytes() + values.bytes() + table.bytes() + held_bytes(positions, projected_positions, projected);
    for (const auto& state : states) sum += state == nullptr ? 0 : state->bytes();
    for (const auto& result : results) sum += result == nullptr ? 0 : held_bytes(result->content());
    return x == nullptr ? sum : sum + held_bytes(x->content());
  }

  /// Of the cached frames, as mha1 projects them: what they were in their own call.
  FrameHistory keys, values;
  std::array<std::shared_ptr<NNLayerState>, kParts> states;

  // What can be made again: encodings of distances and their projections, and memory of the last call.
  PositionTable table;
  Matrix positions, projected_positions;
  Matrix projected;
  std::array<MinibatchPtr, kParts> results;
  MinibatchPtr x;
  LayerInputs inputs;
  std::uint64_t fed = 0;
};

void ConformerLayer::parameters(ParameterVisitor& visitor) {
  visitor.mandatory("cache_frame", cache_frame_);
  visitor.word("last_layer", last_layer_, kLastLayer);
}

void ConformerLayer::loaded() {
  if (cache_frame_ < 0) raise_incorrect("cache_frame");
  last_layer_ = last_layer_ != 0 ? 1 : 0;  // whatever stands in a record, as in a document
}

void ConformerLayer::expect_simple(const std::string& type) const {
  if (type.ends_with("Conformer")) raise("Layer %s can't have a sublayer of type \"%s\"", id().c_str(), type.c_str());
}

void ConformerLayer::load_binary(std::istream& stream) {
  ParameterLayer::load_binary(stream);
  const SublayerBuilder builder;
  sublayers_.clear();
  const auto count = read_number<std::uint64_t>(stream);
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::string id = read_string(stream);
    const std::string type = read_string(stream);
    expect_simple(type);
    sublayers_.push_back(builder.build_layer(type, id, nullptr, stream));
  }
  set_component();
}

void ConformerLayer::dump_binary(std::ostream& stream) const {
  ParameterLayer::dump_binary(stream);
  write_number<std::uint64_t>(stream, sublayers_.size());
  for (const auto& layer : sublayers_) {
    write_string(stream, layer->id());
    write_string(stream, layer->type());
    layer->dump_binary(stream);
  }
}

void ConformerLayer::load_xml(const XmlElement& element) {
  ParameterLayer::load_xml(element);
  const SublayerBuilder builder;
  sublayers_.clear();
  const XmlElement* const layers = find_child(element, "sublayers");
  if (layers == nullptr) raise<MissingTagError>("couldn't find \"layers\" tag");
  const XmlElement* layer = find_child(*layers, "layer");
  if (layer == nullptr) raise<MissingTagError>("couldn't find \"layer\" tag");
  for (; layer != nullptr; layer = next_of_name(*layer)) {
    expect_simple(fetch_attribute(*layer, "type"));
    sublayers_.push_back(builder.build_layer(*layer));
  }
  set_component();
}

void ConformerLayer::dump_xml(XmlElement& parent, XmlDocument& document) const {
  ParameterLayer::dump_xml(parent, document);
  XmlElement& layers = append_element(*parent.last_node(), document, "sublayers");
  for (const auto& layer : sublayers_) layer->dump_xml(layers, document);
}

LayerSize ConformerLayer::size() const {
  LayerSize sum;
  for (const NNLayer* layer : parts_) {
    const LayerSize size = layer->size();
    sum.parameters += size.parameters;
    sum.multiply_adds += size.multiply_adds;
  }
  return sum;
}

void ConformerLayer::set_component() {
  parts_.fill(nullptr);
  for (const auto& layer : sublayers_) {
    const auto* const name = std::find(std::begin(kNames), std::end(kNames), layer->id());
    if (name == std::end(kNames)) continue;
    const NNLayer*& part = parts_[static_cast<std::size_t>(name - kNames)];
    if (part != nullptr) raise("Id [%s] is duplicated", layer->id().c_str());
    part = layer.get();
  }
  for (std::size_t i = 0; i < kParts; ++i) {
    if (parts_[i] == nullptr) raise("\"%s\" sublayer not found in ConformerLayer", kNames[i]);
  }
  attention_ = dynamic_cast<const RelMHALayer*>(parts_[mha1]);
  if (attention_ == nullptr) raise("\"mha1\" sublayer of layer %s is no RelMHA", id().c_str());
}

std::shared_ptr<NNLayerState> ConformerLayer::create_state() const {
  auto state = std::make_shared<State>(attention_->rows());
  for (std::size_t i = 0; i < kParts; ++i) state->states[i] = parts_[i]->create_state();
  return state;
}

MinibatchPtr ConformerLayer::forward(const LayerInputs&) const { raise("NOT IMPLEMENTED"); }

MinibatchPtr ConformerLayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const {
  const Minibatch& input = *only_input(inputs);
  const Eigen::Index d = attention_->rows(), T = input.content().cols();
  if (T == 0) return inputs.result(d, 0);
  if (!PositionedFrames::is_packed(input, d)) expect_rows(input, d);
  auto* const own = dynamic_cast<State*>(state.get());
  if (own == nullptr || own->keys.rows() != d) raise("No state for layer %s", id().c_str());

  if (own->x.use_count() != 1) own->x = std::make_shared<Minibatch>(Matrix());
  own->x->resize(d, T);
  own->x->content() = input.content().topRows(d);
  own->fed = inputs.fed();
  add(norm1, fc2, kHalf, *own);
  add_attention(input, *own);
  add(norm3, conv3, 1, *own);
  add(norm5, fc4, kHalf, *own);
  own->inputs.clear();
  own->inputs.add(own->x);
  own->inputs.set_fed(own->fed);
  own->inputs.set_spare(inputs.result(d, T));
  MinibatchPtr y = parts_[norm6]->forward(own->inputs, own->states[norm6]);
  own->inputs.clear();
  return y;
}

/// The part's result, in the memory of the one before where nobody else holds it.
const MinibatchPtr& ConformerLayer::run(Part part, const MinibatchPtr& x, State& state) const {
  MinibatchPtr& result = state.results[part];
  state.inputs.clear();
  state.inputs.add(x);
  state.inputs.set_fed(state.fed);
  if (result.use_count() == 1) state.inputs.set_spare(std::move(result));
  result = parts_[part]->forward(state.inputs, state.states[part]);
  state.inputs.clear();
  return result;
}

void ConformerLayer::add(Part first, Part last, float factor, State& state) const {
  Matrix& x = state.x->content();
  const MinibatchPtr* y = &state.x;
  for (std::size_t part = first; part <= last; ++part) y = &run(static_cast<Part>(part), *y, state);
  const Matrix& added = (*y)->content();
  if (added.rows() != x.rows() || added.cols() != x.cols()) raise_dimension_mismatch();
  x += factor * added;
}

void ConformerLayer::add_attention(const Minibatch& input, State& state) const {
  Matrix& x = state.x->content();
  const Eigen::Index d = x.rows(), T = x.cols();
  const Matrix& n = run(norm2, state.x, state)->content();
  if (n.rows() != d || n.cols() != T) raise_dimension_mismatch();
  const Eigen::Index C = state.keys.frames() + T;
  project_positions(input, T, C, state);

  state.projected.resize(d, T);
  attention_->project_keys(n.data(), d, T, state.projected.data());
  const float* const k = state.keys.append(state.projected, 0, 0);
  attention_->project_values(n.data(), d, T, state.projected.data());
  const float* const v = state.values.append(state.projected, 0, 0);
  attention_->attend(n.data(), d, T, k, v, C, state.projected_positions.data(), state.projected.data());
  x += state.projected;

  const Eigen::Index kept = last_layer_ != 0 ? 0 : cache_frame_;
  state.keys.keep(kept);
  state.values.keep(kept);
}

void ConformerLayer::project_positions(const Minibatch& input, Eigen::Index queries, Eigen::Index keys,
                                       State& state) const {
  const Eigen::Index d = attention_->rows(), distances = keys + queries - 1;
  // From call to call they are mostly the same, and so are their projections.
  const auto project = [&](auto encoding) {
    Matrix& positions = state.positions;
    bool are_known = positions.cols() == distances;
    for (Eigen::Index m = 0; m < distances && are_known; ++m) {
      are_known = std::memcmp(positions.col(m).data(), encoding(m - (keys - 1)),
                              static_cast<std::size_t>(d) * sizeof(float)) == 0;
    }
    if (are_known) return;
    positions.resize(d, distances);
    for (Eigen::Index m = 0; m < distances; ++m) std::copy_n(encoding(m - (keys - 1)), d, positions.col(m).data());
    state.projected_positions.resize(d, distances);
    attention_->project_positions(positions.data(), d, distances, state.projected_positions.data());
  };
  if (PositionedFrames::is_packed(input, d)) {
    const PositionedFrames form(input);
    if (form.distances() < keys) {
      raise<DimensionMismatchError>("Layer %s attends to %lld frames, but has been given positions for %lld",
                                    id().c_str(), static_cast<long long>(keys),
                                    static_cast<long long>(form.distances()));
    }
    const float* const from = input.content().data();
    project([&](Eigen::Index n) { return from + (n < 0 ? form.behind(-n) : form.ahead(n)); });
  } else {
    state.table.cover(d, keys, kTableStep);
    project([&](Eigen::Index n) { return state.table.at(n); });
  }
}

}  // namespace meridane
