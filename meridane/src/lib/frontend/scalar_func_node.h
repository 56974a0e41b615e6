#pragma once

#include <optional>

#include "meridane/frontend/flow_node.h"

namespace meridane {

/// y(i) = f(x(i), alpha). The functions are those of the table in the source.
class ScalarFuncNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;

 protected:
  void feed(const Vector& x, std::size_t sender) override;

 private:
  struct Function {
    const char* name;
    float (*value)(float x, float alpha);
  };
  static const Function kFunctions[];

  const Function* func_ = nullptr;
  std::optional<float> alpha_;  // 1 if it isn't set
};

}  // namespace meridane
