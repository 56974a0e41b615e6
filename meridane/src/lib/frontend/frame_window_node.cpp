#include "lib/frontend/frame_window_node.h"

#include <algorithm>
#include <array>

#include "lib/frontend/settings.h"
#include "meridane/io/number_text.h"
#include "meridane/io/script.h"

namespace meridane {
namespace {

constexpr std::array<const char*, 3> kEdgeTypes = {"drop", "zero", "repeat"};

}  // namespace

std::string FrameWindowNode::info() const {
  return formatted("%d vectors every %d, in %d groups", length_, shift_, partition_.value_or(1));
}

void FrameWindowNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"length", "shift", "partition", "headedge", "tailedge"});
  length_ = positive_setting(element, "length", "length tag is not well formed", "length is illegal");
  shift_ = positive_setting(element, "shift", "shift tag is not well formed", "shift is illegal");
  if (find_child(element, "partition") != nullptr) {
    partition_ = positive_setting(element, "partition", "partition tag is not well formed",
                                  "partition should be a positive integer");
  }
  head_ = load_edge(element, "headedge", "headedge tag is not well formed", "Unknown edge handling type (%s)");
  if (head_ && head_->type == Edge::Type::drop && head_->count < 0) raise("haed drop is illegal");
  if (head_ && head_->count < 0) raise("headedge tag is not well formed");
  tail_ = load_edge(element, "tailedge", "tailedge tag is not well formed", "Unknown edge handling type (%s)");
  if (tail_ && tail_->count < 0) raise("tailedge tag is not well formed");
}

std::optional<FrameWindowNode::Edge> FrameWindowNode::load_edge(const XmlElement& element, const char* name,
                                                                Format malformed, Format unknown) const {
  const auto text = setting_text(element, name);
  if (!text) return std::nullopt;
  const auto type = find_attribute(*find_child(element, name), "type");
  if (!type) raise(malformed);
  const std::string expanded = expand_script(*type);
  const auto* const found = std::find(kEdgeTypes.begin(), kEdgeTypes.end(), expanded);
  if (found == kEdgeTypes.end()) raise(unknown, expanded.c_str());
  const Edge edge = {static_cast<Edge::Type>(found - kEdgeTypes.begin()), whole_number(*text, malformed)};
  // An edge that is added is shorter than a window: else there'd be windows with nothing of the stream.
  if (edge.type != Edge::Type::drop && edge.count >= length_) raise(malformed);
  return edge;
}

void FrameWindowNode::dump(XmlElement& element, XmlDocument& document) const {
  append_element(element, document, "length", number_text(length_));
  append_element(element, document, "shift", number_text(shift_));
  if (partition_) append_element(element, document, "partition", number_text(*partition_));
  dump_edge(element, document, "headedge", head_);
  dump_edge(element, document, "tailedge", tail_);
}

void FrameWindowNode::dump_edge(XmlElement& element, XmlDocument& document, const char* name,
                                const std::optional<Edge>& edge) {
  if (!edge) return;
  XmlElement& child = append_element(element, document, name, number_text(edge->count));
  append_attribute(child, document, "type", kEdgeTypes.at(static_cast<std::size_t>(edge->type)));
}

void FrameWindowNode::feed(const Vector& x, std::size_t /*sender*/) {
  if (last_) expect_size(x, last_->size());
  if (x.size() % partition_.value_or(1) != 0) raise("vector length is not a multiple of number of groups");
  last_ = x;
  const Edge head = head_.value_or(Edge());
  if (head.type == Edge::Type::drop && dropped_ < head.count) {
    ++dropped_;
    return;
  }
  if (!begun_) append_edge(head, x);
  begun_ = true;
  const Edge tail = tail_.value_or(Edge());
  if (tail.type != Edge::Type::drop) return append(x);
  late_.push(x);
  if (late_.size() > static_cast<std::size_t>(tail.count)) append(late_.pop());
}

void FrameWindowNode::flush() {
  if (begun_) append_edge(tail_.value_or(Edge()), *last_);
}

void FrameWindowNode::append_edge(const Edge& edge, const Vector& x) {
  if (edge.type == Edge::Type::drop) return;
  const Vector added = edge.type == Edge::Type::repeat ? x : Vector::Zero(x.size());
  for (int i = 0; i < edge.count; ++i) append(added);
}

void FrameWindowNode::append(const Vector& x) {
  if (skip_ > 0) {
    --skip_;
    return;
  }
  window_.push(x);
  if (window_.size() < static_cast<std::size_t>(length_)) return;
  send(window());
  for (int i = 0; i < std::min(shift_, length_); ++i) window_.pop();
  skip_ = std::max(shift_ - length_, 0);
}

Vector FrameWindowNode::window() const {
  const Eigen::Index groups = partition_.value_or(1);
  const Eigen::Index length = length_;
  const Eigen::Index size = window_[0].size();
  const Eigen::Index d = size / groups;
  Vector y(length * size);
  for (Eigen::Index t = 0; t < length; ++t) {
    const Vector& x = window_[static_cast<std::size_t>(t)];
    for (Eigen::Index g = 0; g < groups; ++g) y.segment((g * length + t) * d, d) = x.segment(g * d, d);
  }
  return y;
}

void FrameWindowNode::clear() {
  window_.clear();
  late_.clear();
  skip_ = 0;
  dropped_ = 0;
  last_.reset();
  begun_ = false;
}

}  // namespace meridane
