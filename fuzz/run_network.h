#pragma once

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include "meridane/framescore/nn.h"
#include "meridane/framescore/scorer.h"
#include "meridane/io/logging.h"

// What the fuzz targets of networks do with one that could be loaded.

namespace meridane::fuzz {

inline std::string dump_of(const NNParameter& network, const std::string& mime) {
  std::ostringstream stream;
  network.dump(stream, mime);
  return stream.str();
}

/// The document, or nothing for a network with a character 0 in a name, which no document can hold.
inline std::string document_of(const NNParameter& network) {
  try {
    return dump_of(network, "text/xml");
  } catch (const BaseRuntimeError& error) {
    if (std::string(error.what()) != "A document can't hold a character 0") throw;
    return {};
  }
}

inline std::shared_ptr<NNParameter> network_of(const std::string& text, const std::string& mime) {
  std::istringstream stream(text);
  auto network = std::make_shared<NNParameter>();
  network->load(stream, mime);
  return network;
}

/// A few steps: the same shape again, another one, a frame skip, a flush. Layers may refuse their input.
inline void run(const NNParameter& network) {
  constexpr std::uint64_t kMostInputs = 4096;
  if (network.ninput() > kMostInputs) return;
  const auto rows = static_cast<Eigen::Index>(network.ninput());
  const std::shared_ptr<FrameScorer> made = network.create_scorer();
  auto& scorer = dynamic_cast<NNScorer&>(*made);
  for (const Eigen::Index frames : {3, 3, 1, 5, 0}) {
    try {
      Matrix input(rows, frames);
      for (Eigen::Index i = 0; i < input.size(); ++i) input.data()[i] = static_cast<float>(i % 7) - 1.5f;
      scorer.set_input(frames == 0 ? MinibatchPtr() : std::make_shared<Minibatch>(std::move(input)));
      scorer.execute();
      if (frames == 5) scorer.set_frame_skip(2);
    } catch (const BaseRuntimeError&) {
    }
  }
}

}  // namespace meridane::fuzz
