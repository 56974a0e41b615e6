#include "lib/frontend/merge_node.h"

#include "lib/frontend/settings.h"
#include "meridane/io/number_text.h"

namespace meridane {

std::string MergeNode::info() const { return formatted("joins %d", num_); }

void MergeNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"num"});
  num_ = positive_setting(element, "num", "num tag is not well formed", "num is illegal");
}

void MergeNode::dump(XmlElement& element, XmlDocument& document) const {
  append_element(element, document, "num", number_text(num_));
}

std::size_t MergeNode::add_sender() {
  if (buffers_.size() == static_cast<std::size_t>(num_)) {
    raise("number of from nodes exceeds the setting [%d]", num_);
  }
  buffers_.push_back({FrameQueue(budget())});
  return buffers_.size() - 1;
}

void MergeNode::feed(const Vector& x, std::size_t sender) {
  Buffer& buffer = buffers_[sender];
  if (buffer.size < 0) buffer.size = x.size();
  if (buffer.size != x.size()) {
    raise<DimensionMismatchError>(
        "The expected number of input dimensions(%u) in the MergeNode does not match the actual number of input "
        "dimensions(%d).",
        static_cast<unsigned>(buffer.size), static_cast<int>(x.size()));
  }
  buffer.waiting.push(x);
  if (buffer.waiting.size() == 1) ++ready_;
  if (ready_ < static_cast<std::size_t>(num_)) return;
  Eigen::Index size = 0;
  for (const Buffer& each : buffers_) size += each.size;
  Vector y(size);
  Eigen::Index done = 0;
  for (Buffer& each : buffers_) {
    y.segment(done, each.size) = each.waiting.pop();
    done += each.size;
    if (each.waiting.size() == 0) --ready_;
  }
  send(std::move(y));
}

void MergeNode::flush() {
  for (std::size_t i = 0; i < buffers_.size(); ++i) {
    const std::size_t left = buffers_[i].waiting.size();
    if (left == 0) continue;
    raise("%d vectors remain in buffer[%d] after the end of session", static_cast<int>(left), static_cast<int>(i));
  }
}

void MergeNode::clear() {
  ready_ = 0;
  for (Buffer& buffer : buffers_) {
    buffer.waiting.clear();
    buffer.size = -1;
  }
}

}  // namespace meridane
