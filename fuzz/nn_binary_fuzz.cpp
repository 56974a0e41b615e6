// Any bytes are a network in the binary form or an error. What is a network runs, has a document, and is dumped as what
// loads and dumps as the same again.

#include <cstdlib>

#include "run_network.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meridane;
  constexpr const char* kMime = "application/meridane-bin";
  log_threshold() = kLogError;
  std::shared_ptr<NNParameter> network;
  try {
    network = fuzz::network_of(std::string(reinterpret_cast<const char*>(data), size), kMime);
  } catch (const BaseRuntimeError&) {
    return 0;
  }
  const std::string dump = fuzz::dump_of(*network, kMime);
  if (fuzz::dump_of(*fuzz::network_of(dump, kMime), kMime) != dump) std::abort();
  fuzz::document_of(*network);
  fuzz::run(*network);
  return 0;
}
