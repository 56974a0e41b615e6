#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "meridane/framescore/nn.h"
#include "meridane/framescore/scorer.h"
#include "meridane/io/logging.h"

// What the fuzz targets of networks do with one that could be loaded.

namespace meridane::fuzz {

inline constexpr const char* kBinary = "application/meridane-bin";
inline constexpr const char* kDocument = "text/xml";

inline std::string dump_of(const NNParameter& network, const std::string& mime) {
  std::ostringstream stream;
  network.dump(stream, mime);
  return stream.str();
}

inline std::shared_ptr<NNParameter> network_of(const std::string& text, const std::string& mime) {
  std::istringstream stream(text);
  auto network = std::make_shared<NNParameter>();
  network->load(stream, mime);
  return network;
}

/// The document, or nothing for a network that only the binary form can hold.
inline std::string document_of(const NNParameter& network) {
  try {
    return dump_of(network, kDocument);
  } catch (const BaseRuntimeError& error) {
    const std::string text = error.what();
    for (const char* reason : {"A document can't hold", "attribute \"", "couldn't set \""}) {
      if (text.starts_with(reason)) return {};
    }
    throw;
  }
}

/// Whether bytes are equal; where the document between them has a NaN, which lost all but its sign, as many.
inline bool same_but_nans(const std::string& a, const std::string& b, const std::string& document) {
  return document.find("nan") == std::string::npos ? a == b : a.size() == b.size();
}

/// Both forms give the network again, and so does each by way of the other.
inline void check_forms(const NNParameter& network) {
  const std::string binary = dump_of(network, kBinary);
  if (dump_of(*network_of(binary, kBinary), kBinary) != binary) std::abort();
  const std::string document = document_of(network);
  if (document.empty()) return;
  const auto again = network_of(document, kDocument);
  if (dump_of(*again, kDocument) != document) std::abort();
  if (!same_but_nans(dump_of(*again, kBinary), binary, document)) std::abort();
}

/// A few steps: the same shape again, another one, results that aren't kept any more, a frame skip, a flush. Layers may
/// refuse their input.
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
      if (frames == 1) scorer.set_keeps_results(false);
      if (frames == 5) scorer.set_frame_skip(2);
    } catch (const BaseRuntimeError&) {
    }
  }
}

}  // namespace meridane::fuzz
