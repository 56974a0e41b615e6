// Any text is a network as a document or an error. What is a network runs, and is dumped as what loads and dumps as the
// same again. Documents that refer to files are left out: they would have any file of this machine read.

#include <cstdlib>

#include "run_network.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meridane;
  constexpr const char* kMime = "text/xml";
  log_threshold() = kLogError;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find("ref") != std::string::npos) return 0;
  std::shared_ptr<NNParameter> network;
  try {
    network = fuzz::network_of(text, kMime);
  } catch (const BaseRuntimeError&) {
    return 0;
  }
  const std::string dump = fuzz::document_of(*network);
  if (!dump.empty() && fuzz::dump_of(*fuzz::network_of(dump, kMime), kMime) != dump) std::abort();
  if (fuzz::dump_of(*network, "application/meridane-bin").empty()) std::abort();
  fuzz::run(*network);
  return 0;
}
