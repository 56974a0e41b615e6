#pragma once

#include <iosfwd>

#include "meridane/framescore/nn.h"

namespace sonivo::tool {

/// Layers, links, sizes, parameters and multiply-adds per frame, for readers.
void list_network(const meridane::NNParameter& network, std::ostream& output);

}  // namespace sonivo::tool
