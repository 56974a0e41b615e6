#pragma once

#include <limits>

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// y = frames start up to, not including, min(end, T) of each call's T frames. Fails where that is none, so a call
/// without frames fails too. It knows nothing of a stream: every call is cut at its own beginning. It doesn't say that
/// it changes the number of frames: a network in which it does needs another layer that says so.
/// Record: 4-byte start, end, neither negative. Attributes: start (default 0), end (default: all frames).
class SliceAlongTime : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "SliceAlongTime"; }
  std::string class_name() const override { return tag(); }
  std::string description() const override { return "Truncate Merge Layer"; }
  void parameters(ParameterVisitor& visitor) override;

 private:
  static constexpr std::int32_t kAll = std::numeric_limits<std::int32_t>::max();

  std::int32_t start_ = 0;
  std::int32_t end_ = kAll;
};

}  // namespace meridane
