// Any bytes are a network in the binary form or an error. What is a network runs, and each form gives it again, the
// document also the same bytes.

#include "run_network.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meridane;
  log_threshold() = kLogError;
  std::shared_ptr<NNParameter> network;
  try {
    network = fuzz::network_of(std::string(reinterpret_cast<const char*>(data), size), fuzz::kBinary);
  } catch (const BaseRuntimeError&) {
    return 0;
  }
  fuzz::check_forms(*network);
  fuzz::run(*network);
  return 0;
}
