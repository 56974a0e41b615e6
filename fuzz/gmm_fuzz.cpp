// Any bytes are a file of mixtures, of statistics or of a Boltzmann machine, told apart by their magic, or an error of
// the engine; with a `<` at the start, a document of one of them. What loads is the same again after it was written in
// both forms, and mixtures score and are updated.

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "meridane/framescore/rbm.h"
#include "meridane/io/logging.h"
#include "meridane/stat/multigmmstat.h"

namespace {

using namespace meridane;

constexpr Eigen::Index kMostInputs = 256;

template <class Object>
std::string dumped(const Object& object, bool as_document) {
  std::ostringstream stream;
  if (as_document) {
    object.dump_xml_stream(stream);
  } else {
    object.dump_binary_stream(stream);
  }
  return stream.str();
}

template <class Object>
Object loaded(const std::string& text, bool is_document) {
  std::istringstream stream(text);
  Object object;
  if (is_document) {
    object.load_xml_stream(stream);
  } else {
    object.load_binary_stream(stream);
  }
  return object;
}

template <class Object>
Object checked(const std::string& text, bool is_document) {
  const auto object = loaded<Object>(text, is_document);
  const std::string binary = dumped(object, false);
  if (dumped(loaded<Object>(binary, false), false) != binary) std::abort();
  if (dumped(loaded<Object>(dumped(object, true), true), false) != binary) std::abort();
  return object;
}

void run(MultiGMMParameter parameter) {
  if (parameter.dimension() > kMostInputs || parameter.means().empty()) return;
  const auto frames = std::make_shared<FrameSequence>();
  MultiGMMStat statistics;
  for (int t = 0; t < 3; ++t) {
    const Vector x = Vector::NullaryExpr(
        parameter.dimension(), [t](Eigen::Index i) { return static_cast<float>((i * i + 3 * t) % 7) - 1.5f; });
    frames->push_back(x);
    if (!parameter.mixtures().empty()) statistics.accumulate(parameter, x, 0);
  }
  const auto scorer = parameter.create_scorer();
  scorer->set_input(frames);
  if (scorer->output().hasNaN()) std::abort();
  try {
    parameter.update(statistics);
  } catch (const BaseRuntimeError&) {
  }
}

void read(const std::string& text) {
  const bool is_document = text.starts_with('<');
  const auto is_of = [&](const char* magic) {
    return is_document ? text.find(magic) != text.npos : text.starts_with(magic);
  };
  if (is_of(kRBMMagic)) {
    checked<RBMParameter>(text, is_document);
  } else if (is_of(kGMMStatMagic)) {
    const auto statistics = checked<MultiGMMStat>(text, is_document);
    MultiGMMParameter none;
    try {
      none.update(statistics);
    } catch (const BaseRuntimeError&) {
    }
  } else {
    run(checked<MultiGMMParameter>(text, is_document));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  log_threshold() = kLogError;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find("ref") != text.npos) return 0;  // would have any file of this machine read
  try {
    read(text);
  } catch (const BaseRuntimeError&) {
  }
  return 0;
}
