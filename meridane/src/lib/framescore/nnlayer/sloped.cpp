#include "lib/framescore/nnlayer/sloped.h"

namespace meridane {

void SlopedLayer::parameters(ParameterVisitor& visitor) {
  visitor.number("slope", slope_, 1);
  visitor.number("bias", bias_, 0);
}

}  // namespace meridane
