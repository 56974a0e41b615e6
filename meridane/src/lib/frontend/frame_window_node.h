#pragma once

#include <optional>

#include "meridane/frontend/flow_node.h"

namespace meridane {

/// Cuts the stream into windows of `length` vectors every `shift`. With G groups (partition), D values a vector, d =
/// D/G:
///   y((g length + t) d + i) = x_t(g d + i)
/// for value i of group g of the t-th vector of the window. Around the stream stands what the edges add or drop.
class FrameWindowNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;

 protected:
  void feed(const Vector& x, std::size_t sender) override;
  void flush() override;
  void clear() override;

 private:
  /// The first or last `count` vectors of a session left out, or as many added: zeros, or the first or last one again.
  struct Edge {
    enum class Type { drop, zero, repeat };
    Type type = Type::drop;
    int count = 0;
  };

  std::optional<Edge> load_edge(const XmlElement& element, const char* name, Format malformed, Format unknown) const;
  static void dump_edge(XmlElement& element, XmlDocument& document, const char* name, const std::optional<Edge>& edge);
  /// The next vector of the stream with its edges.
  void append(const Vector& x);
  void append_edge(const Edge& edge, const Vector& x);
  Vector window() const;

  int length_ = 1;
  int shift_ = 1;
  std::optional<int> partition_;
  std::optional<Edge> head_, tail_;

  FrameQueue window_{budget()};  // what the next window has so far
  FrameQueue late_{budget()};    // may be the dropped end of the session
  int skip_ = 0;                 // vectors between two windows, still to come
  int dropped_ = 0;              // at the head
  std::optional<Vector> last_;   // of the session, dropped ones too
  bool begun_ = false;           // the stream has a vector
};

}  // namespace meridane
