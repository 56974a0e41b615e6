#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "meridane/error.h"
#include "meridane/framescore/nn.h"

// Layers of the tests' own, and networks built by hand.

namespace meridane::test {

/// A layer without a stored form.
class UnstoredLayer : public NNLayer {
 public:
  using NNLayer::NNLayer;
  void load_binary(std::istream&) override { raise("no stored form"); }
  void dump_binary(std::ostream&) const override { raise("no stored form"); }
  void load_xml(const XmlElement&) override { raise("no stored form"); }
  void dump_xml(XmlElement&, XmlDocument&) const override { raise("no stored form"); }
};

using Order = std::vector<std::string>;

/// y = 10 x + digit of the sum of its inputs: what comes out of a network is the way it went. Notes when it runs.
class DigitLayer : public UnstoredLayer {
 public:
  DigitLayer(const std::string& id, float digit, std::shared_ptr<Order> order = nullptr)
      : UnstoredLayer(id, "Digit"), digit_(digit), order_(std::move(order)) {}

  using NNLayer::forward;
  MinibatchPtr forward(const LayerInputs& inputs) const override {
    if (order_ != nullptr) order_->push_back(id());
    for (const auto& input : inputs.streams()) {
      if (input == nullptr) raise("No data is being provided to layer %s", id().c_str());
    }
    MinibatchPtr y = inputs.result(inputs[0]->shape(), inputs[0]->content().cols());
    y->content() = inputs[0]->content();
    for (std::size_t i = 1; i < inputs.size(); ++i) y->content() += inputs[i]->content();
    y->content().array() = 10.0f * y->content().array() + digit_;
    return y;
  }

 private:
  float digit_;
  std::shared_ptr<Order> order_;
};

/// A value that a layer carries from frame to frame.
struct SumState : NNLayerState {
  explicit SumState(Vector start) : sum(std::move(start)) {}
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<SumState>(*this); }
  Vector sum;
};

/// y = sum of all frames of the stream up to this one.
class RunningSumLayer : public UnstoredLayer {
 public:
  RunningSumLayer(const std::string& id, Eigen::Index rows) : UnstoredLayer(id, "RunningSum"), rows_(rows) {}

  std::shared_ptr<NNLayerState> create_state() const override {
    return std::make_shared<SumState>(Vector(Vector::Zero(rows_)));
  }
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override {
    auto* const mine = dynamic_cast<SumState*>(state.get());
    if (mine == nullptr) raise("No state for layer %s", id().c_str());
    const Minibatch& x = *only_input(inputs);
    MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
    for (Eigen::Index t = 0; t < x.content().cols(); ++t) y->content().col(t) = mine->sum += x.content().col(t);
    return y;
  }
  MinibatchPtr forward(const LayerInputs& inputs) const override { return forward(inputs, create_state()); }

 private:
  Eigen::Index rows_;
};

/// Every k-th frame of its input, beginning with the first.
class StrideLayer : public UnstoredLayer {
 public:
  StrideLayer(const std::string& id, Eigen::Index k, bool admits_it)
      : UnstoredLayer(id, "Stride"), k_(k), admits_it_(admits_it) {}

  bool is_variable_length() const override { return admits_it_; }
  using NNLayer::forward;
  MinibatchPtr forward(const LayerInputs& inputs) const override {
    const Minibatch& x = *only_input(inputs);
    const Eigen::Index frames = (x.content().cols() + k_ - 1) / k_;
    MinibatchPtr y = inputs.result(x.shape(), frames);
    for (Eigen::Index t = 0; t < frames; ++t) y->content().col(t) = x.content().col(t * k_);
    return y;
  }

 private:
  Eigen::Index k_;
  bool admits_it_;
};

/// The frame that a layer still has.
struct HeldState : NNLayerState {
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<HeldState>(*this); }
  Matrix held;
};

/// Holds the newest frame back until the next step; a step without frames gets it out.
class HoldBackLayer : public UnstoredLayer {
 public:
  explicit HoldBackLayer(const std::string& id, const std::string& type = "CompressedLCBLSTM")
      : UnstoredLayer(id, type) {}

  std::shared_ptr<NNLayerState> create_state() const override { return std::make_shared<HeldState>(); }
  bool is_variable_length() const override { return true; }
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override {
    Matrix& held = dynamic_cast<HeldState&>(*state).held;
    const Matrix& x = only_input(inputs)->content();
    if (x.cols() == 0) return std::make_shared<Minibatch>(std::exchange(held, Matrix()));
    Matrix y(x.rows(), held.cols() + x.cols() - 1);
    if (held.cols() > 0) y.col(0) = held.col(0);
    y.rightCols(x.cols() - 1) = x.leftCols(x.cols() - 1);
    held = x.rightCols(1);
    return std::make_shared<Minibatch>(std::move(y));
  }
  MinibatchPtr forward(const LayerInputs& inputs) const override { return forward(inputs, create_state()); }
};

/// A network of layers that no file holds.
class HandmadeNetwork : public NNParameter {
 public:
  HandmadeNetwork(std::uint64_t ninput, std::uint64_t noutput, const std::vector<std::shared_ptr<NNLayer>>& layers,
                  const std::vector<Link>& links) {
    set_sizes(ninput, noutput);
    for (const auto& layer : layers) add_layer(layer);
    for (const auto& [from, to] : links) add_link(from, to);
    fix();
  }
};

}  // namespace meridane::test
