#pragma once

#include <optional>
#include <random>

#include "meridane/framescore/rbm.h"
#include "meridane/frontend/flow_node.h"

namespace meridane {

/// The hidden units of a Boltzmann machine whose visible units are x: with use_expectation y = P(h = 1 | x), else y(i)
/// = 1 with that probability and 0 otherwise. Every session draws the same random numbers.
class RBMSampleNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;

 protected:
  void feed(const Vector& x, std::size_t sender) override;
  void clear() override { generator_ = std::mt19937(); }

 private:
  RBMParameter parameter_;
  std::optional<bool> use_expectation_;  // false if it isn't set
  std::mt19937 generator_;
};

}  // namespace meridane
