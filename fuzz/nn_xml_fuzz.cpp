// Any text is a network as a document or an error. What is a network runs, and each form gives it again. Documents that
// refer to files are left out: they would have any file of this machine read.

#include "run_network.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meridane;
  log_threshold() = kLogError;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find("ref") != std::string::npos) return 0;
  std::shared_ptr<NNParameter> network;
  try {
    network = fuzz::network_of(text, fuzz::kDocument);
  } catch (const BaseRuntimeError&) {
    return 0;
  }
  fuzz::check_forms(*network);
  fuzz::run(*network);
  return 0;
}
