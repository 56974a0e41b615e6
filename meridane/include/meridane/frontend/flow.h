#pragma once

#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "meridane/frontend/flow_node.h"

namespace meridane {

/// A small graph of nodes that frames run through, for example in front of a network. It is loaded from a document,
/// written back as the same, and told in docs/flow-files.md.
///
///   Flow flow(document);
///   flow.start();
///   for (const Vector& frame : frames) {
///     flow.feed(frame);
///     use(flow.take());                  // dimensions x frames that have come out; often none
///   }
///   flow.end();
///   use(flow.take());                    // what was held back
///
/// A failure while frames run leaves it as reset() does. Not for several threads at once.
class Flow {
 public:
  /// Of a whole document.
  explicit Flow(std::istream& document);
  /// Of the element `flow` of one. "Parent xml node is not found" for null.
  explicit Flow(const XmlElement* element);

  void dump(std::ostream& document) const;
  /// Appends the element `flow`.
  void dump(XmlElement& parent, XmlDocument& document) const;

  using Meta = std::vector<std::pair<std::string, std::string>>;  // name, value
  const Meta& meta() const { return meta_; }
  /// A line per node, in the order in which frames meet them: id, type, what it does.
  std::string info() const;

  PortType input_type() const { return input_->type(); }
  /// Opens a session. "is in session already" while one is open.
  void start();
  /// A frame, several in columns, or a word. "is not in session" outside of a session.
  void feed(const FlowData& data);
  /// Closes the session: nodes send what they have held back.
  void end();
  /// Out of session, with nothing held and nothing to take.
  void reset();
  bool in_session() const { return input_->in_session(); }

  /// "output buffer NAME is not found" (InvalidOutportError) for a name that no link ends in.
  OutputBuffer& output(const std::string& name = kOutputPort);
  /// The vectors that have come out there since the last call, one per column; 0 x 0 if none has.
  Matrix take(const std::string& name = kOutputPort) { return output(name).take(); }
  /// Drops from now on what comes out elsewhere: nobody takes it, and it would wait there for as long as frames run.
  void keep_only(const std::string& name = kOutputPort);

 private:
  struct Link {
    std::string from_node, from_port, to_node, to_port;
  };

  void load(const XmlElement& element);
  void add_node(const XmlElement& element);
  void add_link(Link link);
  OutputBuffer& sender(const Link& link);
  void connect(OutputBuffer& from, const Link& link);
  void open_output(OutputBuffer& from, const std::string& name);
  /// Senders before receivers. "Loop exists in the graph" where there is no such order.
  void order_nodes();
  /// Gives something to the input, and hands on what follows from it. A failure resets the flow.
  template <class Step>
  void run(const Step& step);

  std::shared_ptr<FlowBudget> budget_ = std::make_shared<FlowBudget>();
  Meta meta_;
  std::vector<std::shared_ptr<FlowNode>> nodes_;  // in the order of the document
  std::map<std::string, FlowNode*> by_name_;
  std::vector<Link> links_;  // in the order of the document
  std::unique_ptr<OutputBuffer> input_ = std::make_unique<OutputBuffer>(kInputPort, PortType::vector, budget_);
  std::map<std::string, std::unique_ptr<OutputBuffer>> outputs_;
  std::vector<FlowNode*> order_;
};

}  // namespace meridane
