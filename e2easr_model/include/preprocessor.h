#pragma once

#include <istream>
#include <memory>
#include <ostream>

#include "meridane/io/xml.h"
#include "meridane/matrix.h"

namespace meridane {
class Flow;
}

namespace sonivo::e2e {

/// The flow that stands in front of a network, fed frame by frame.
class Preprocessor {
 public:
  /// Of a whole document, and of the element `flow` of one.
  explicit Preprocessor(std::istream& document);
  explicit Preprocessor(const meridane::XmlElement& flow);
  ~Preprocessor();

  void dump(std::ostream& document) const;

  /// Begins anew: what the frames before have left is forgotten.
  void start();
  /// The frames that come out when one goes in, in columns; maybe none.
  meridane::Matrix process(const meridane::Vector& frame);
  /// The frames that come out at the end; none a second time.
  meridane::Matrix finish();

 private:
  std::unique_ptr<meridane::Flow> flow_;
};

}  // namespace sonivo::e2e
