#include "lib/frontend/reorder_node.h"

#include <cmath>

#include "lib/framescore/parameter_file.h"
#include "lib/frontend/settings.h"
#include "meridane/io/number_text.h"

namespace meridane {
namespace {

constexpr float kLargestIndex = 16777215;  // 2^24 - 1: those beyond aren't all floats

bool is_mask_index(float value) { return value >= 0 && value <= kLargestIndex && value == std::floor(value); }

}  // namespace

std::string ReorderNode::info() const { return formatted("%d elements", static_cast<int>(mask_.size())); }

void ReorderNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"mask"});
  mask_ =
      vector_setting(element, "mask", "Error loading <mask> element", "Only 1xN or Nx1 matrix can be stored as mask");
  for (const float index : values_of(mask_)) {
    if (!is_mask_index(index)) raise("%s in mask is not an index", number_text(index).c_str());
  }
}

void ReorderNode::dump(XmlElement& element, XmlDocument& document) const {
  append_matrix(element, document, "mask", mask_);
}

void ReorderNode::feed(const Vector& x, std::size_t /*sender*/) {
  const auto mask = values_of(mask_).cast<Eigen::Index>();
  if (mask.maxCoeff() >= x.size()) expect_size(x, mask.maxCoeff() + 1);
  send(Vector(mask.unaryExpr([&x](Eigen::Index i) { return x(i); })));
}

}  // namespace meridane
