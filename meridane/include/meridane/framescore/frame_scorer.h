#pragma once

#include <memory>
#include <string>

#include "meridane/minibatch.h"

namespace meridane {

/// Gives scores for the frames of a stream.
class FrameScorer {
 public:
  virtual ~FrameScorer() = default;
  virtual void set_input(const std::shared_ptr<Matrix>& frames) { (void)frames; }
  virtual void set_input(const std::shared_ptr<FrameSequence>& frames) = 0;
  virtual void set_input(const std::shared_ptr<IntVector>& labels) { (void)labels; }
  virtual void set_frame_skip(unsigned int skip) { (void)skip; }
  virtual void reset() {}
  virtual int frame_count_hint() const { return -1; }
  virtual float score(std::uint64_t frame, std::uint64_t dimension) = 0;
  virtual std::uint64_t output_dimension() const = 0;
  virtual Matrix output() = 0;  ///< dimensions x frames
  virtual void execute() = 0;
};

/// Parameters that scorers are made of. Immutable once loaded; outlives its scorers.
class FrameScoreParameter {
 public:
  virtual std::string type() const = 0;
  virtual std::shared_ptr<FrameScorer> create_scorer() const = 0;
  virtual ~FrameScoreParameter() = default;
  /// mime: "text/xml" for a document, anything else for the binary form; what follows a semicolon doesn't count.
  virtual void load(std::istream& stream, const std::string& mime) = 0;
  virtual void dump(std::ostream& stream, const std::string& mime) const = 0;
};

}  // namespace meridane
