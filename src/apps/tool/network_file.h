#pragma once

#include <memory>
#include <string>

#include "meridane/framescore/nn.h"

namespace sonivo::tool {

enum class NetworkForm { binary, xml };

struct NetworkFile {
  NetworkForm form;
  std::unique_ptr<meridane::NNParameter> network;
};

/// Reads a network; its first bytes say in which form it is. Throws Failure.
NetworkFile read_network(const std::string& name);

/// The whole network in that form.
std::string network_bytes(const meridane::NNParameter& network, NetworkForm form);

}  // namespace sonivo::tool
