#include "lib/framescore/nnlayer/print.h"

#include <sstream>

#include "meridane/io/logging.h"

namespace meridane {

MinibatchPtr PrintLayer::forward(const LayerInputs& inputs) const {
  const MinibatchPtr& x = only_input(inputs);
  log(kLogInfo, [&] {
    std::ostringstream text;
    text << "Layer:" << layer_name_ << '\n' << x->content();
    return text.str();
  });
  return x;
}

}  // namespace meridane
