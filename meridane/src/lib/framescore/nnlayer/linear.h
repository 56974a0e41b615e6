#pragma once

#include "lib/framescore/nnlayer/weight.h"
#include "meridane/minibatch.h"

namespace meridane {

/// y = weight x + bias in each frame: what attentions and joints project with.
struct Linear {
  Weight weight;
  StoredVector bias;  ///< none: 0

  /// Throws unless the frames fit the weight; an input without frames always does.
  void expect(const Minibatch& x) const;
  /// y becomes rows of the weight x frames of x, keeping its memory where the size stays.
  void forward(const Matrix& x, Matrix& y) const;
};

}  // namespace meridane
