#include "lib/frontend/buffering_node.h"

#include "lib/frontend/settings.h"
#include "meridane/io/number_text.h"

namespace meridane {

std::string BufferingNode::info() const { return formatted("%d vectors at once", frame_); }

void BufferingNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"frame"});
  frame_ = positive_setting(element, "frame", "frame tag is not well formed", "frame is illegal");
}

void BufferingNode::dump(XmlElement& element, XmlDocument& document) const {
  append_element(element, document, "frame", number_text(frame_));
}

void BufferingNode::feed(const Vector& x, std::size_t /*sender*/) {
  if (held_.size() > 0) expect_size(x, held_[0].size());
  held_.push(x);
  if (held_.size() == static_cast<std::size_t>(frame_)) flush();
}

void BufferingNode::flush() {
  if (held_.size() == 0) return;
  Matrix frames(held_[0].size(), static_cast<Eigen::Index>(held_.size()));
  for (Eigen::Index t = 0; t < frames.cols(); ++t) frames.col(t) = held_.pop();
  send(std::move(frames));
}

}  // namespace meridane
