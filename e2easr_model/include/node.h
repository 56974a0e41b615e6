#pragma once

#include <istream>
#include <memory>
#include <ostream>
#include <string>

#include "meridane/framescore/nn.h"
#include "meridane/framescore/scorer.h"

namespace sonivo::e2e {

/// A network and what it remembers of the one stream that it runs on.
class MeridaneNNNode {
 public:
  /// use_shared_memory: the network is made in the mode of quantized layers; it is private to the process all the same.
  explicit MeridaneNNNode(bool use_shared_memory);

  void load(std::istream& stream);                 ///< the binary form
  void load(const meridane::XmlElement& network);  ///< the element `NN` of a document

  /// The result of a step, which stands until the next one.
  const meridane::Matrix& process(meridane::Matrix input);
  /// Forgets the stream.
  void reset() { scorer_->reset(); }

  /// Replaces the vector that a layer has stored, its bias or its scale, by another of its size, and forgets the
  /// stream. Throws for a layer that has none.
  void set_vector(const std::string& layer, const meridane::Vector& vector);

  const meridane::NNParameter& network() const { return *network_; }

 private:
  void run(std::shared_ptr<const meridane::NNParameter> network);

  std::shared_ptr<const meridane::NNParameter> network_;
  std::shared_ptr<meridane::NNScorer> scorer_;
  bool use_shared_memory_;
};

}  // namespace sonivo::e2e
