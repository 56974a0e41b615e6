#include "lib/framescore/nnlayer/input.h"

#include "meridane/error.h"

namespace meridane {

void InputLayer::load_binary(std::istream&) { raise("InputLayer cannot load anything"); }
void InputLayer::dump_binary(std::ostream&) const { raise("InputLayer cannot be dumped"); }
void InputLayer::load_xml(const XmlElement&) { raise("InputLayer cannot load anything"); }
void InputLayer::dump_xml(XmlElement&, XmlDocument&) const { raise("InputLayer cannot be dumped"); }

MinibatchPtr InputLayer::forward(const LayerInputs& inputs) const {
  if (inputs.size() > 1) raise("InputLayer does not accept multiple input streams");
  if (inputs.size() == 0 || inputs[0] == nullptr) raise("No data is being provided to InputLayer");
  return inputs[0];
}

}  // namespace meridane
