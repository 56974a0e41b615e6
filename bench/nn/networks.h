#pragma once

#include <memory>
#include <string>

#include "meridane/framescore/scorer.h"

namespace meridane::bench {

// The networks of network_shapes.h as files.
std::string enhancement_network();
std::string conformer_network(long blocks);
std::string mask_network();

/// A network and a stream of calls with the same frames.
class NetworkStream {
 public:
  NetworkStream(const std::string& file, long rows, long frames);
  void run();

 private:
  NNParameter network_;
  std::shared_ptr<NNScorer> scorer_;
  MinibatchPtr x_;
};

}  // namespace meridane::bench
