// Any text is a flow or an error. What is a flow is written as a document that loads as the same again, and runs, in
// one piece and frame by frame alike. Documents that refer to files are left out: they would have any file of this
// machine read.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>

#include "meridane/error.h"
#include "meridane/frontend/flow.h"
#include "meridane/io/logging.h"

namespace {

using namespace meridane;

constexpr std::size_t kFrames = 5;

Flow flow_of(const std::string& text) {
  std::istringstream document(text);
  return Flow(document);
}

/// Nothing for a flow with a name that no document can hold.
std::string document_of(const Flow& flow) {
  std::ostringstream document;
  try {
    flow.dump(document);
  } catch (const BaseRuntimeError& error) {
    if (!std::string(error.what()).starts_with("A document can't hold")) throw;
    return {};
  }
  return document.str();
}

FlowData frame_of(PortType type, Eigen::Index size, std::size_t t) {
  if (type == PortType::word) return std::string(t % 2 == 0 ? "a" : "b");
  Vector frame(size);
  for (Eigen::Index i = 0; i < size; ++i) frame(i) = static_cast<float>((i + static_cast<Eigen::Index>(t)) % 7) - 1.5f;
  return frame;
}

void append(Matrix& all, const Matrix& more) {
  if (more.cols() == 0) return;
  const Eigen::Index before = all.cols();
  all.conservativeResize(more.rows(), before + more.cols());
  all.rightCols(more.cols()) = more;
}

/// What comes out, or nothing for frames that the flow refuses.
std::optional<Matrix> run(Flow& flow, Eigen::Index size, bool take_often) {
  Matrix all;
  try {
    flow.start();
    for (std::size_t t = 0; t < kFrames; ++t) {
      flow.feed(frame_of(flow.input_type(), size, t));
      if (take_often) append(all, flow.take());
    }
    flow.end();
    append(all, flow.take());
    return all;
  } catch (const BaseRuntimeError&) {
    flow.reset();
    return std::nullopt;
  }
}

bool same(const Matrix& a, const Matrix& b) {
  return a.rows() == b.rows() && a.cols() == b.cols() &&
         std::equal(a.data(), a.data() + a.size(), b.data(), [](float x, float y) {
           return std::bit_cast<std::uint32_t>(x) == std::bit_cast<std::uint32_t>(y);
         });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  log_threshold() = kLogError;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find("ref") != std::string::npos) return 0;
  std::optional<Flow> flow;
  try {
    flow = flow_of(text);
  } catch (const BaseRuntimeError&) {
    return 0;
  }
  const std::string document = document_of(*flow);
  if (!document.empty() && document_of(flow_of(document)) != document) std::abort();
  flow->info();
  for (const Eigen::Index frame_size : {1, 2, 3, 4}) {
    const auto whole = run(*flow, frame_size, false);
    const auto pieces = run(*flow, frame_size, true);
    if (whole && pieces && !same(*whole, *pieces)) std::abort();
  }
  return 0;
}
