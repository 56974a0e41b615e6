#pragma once

#include <functional>
#include <memory>
#include <string>

#include "meridane/builder.h"
#include "meridane/frontend/output_buffer.h"
#include "meridane/io/xml.h"

namespace meridane {

/// A node of a flow: takes frames through its input port "_input" and sends others through its output port "_output".
/// Its session is open from the first start pack of a sender to the end pack of the last one.
class FlowNode {
 public:
  FlowNode(std::string name, std::string type, std::shared_ptr<FlowBudget> budget);
  virtual ~FlowNode() = default;
  FlowNode(const FlowNode&) = delete;
  FlowNode& operator=(const FlowNode&) = delete;

  const std::string& name() const { return name_; }
  const std::string& type() const { return type_; }
  OutputBuffer& output() { return output_; }
  /// What the input port takes.
  virtual PortType input_type() const { return PortType::vector; }
  /// One more sends to the input port; answers which. Throws where that is one too many.
  virtual std::size_t add_sender();

  /// What the node does, in a line.
  virtual std::string info() const = 0;
  /// Takes the settings, the children of the node's element.
  virtual void load_settings(const XmlElement& element) = 0;
  /// Appends the settings to the node's element.
  virtual void dump(XmlElement& element, XmlDocument& document) const = 0;

  void receive(std::size_t sender, const PackInfo& pack);
  void receive(std::size_t sender, const FlowData& data);
  /// Ends a session, if one is open, and forgets all of it.
  void reset();

 protected:
  /// Of these two the one that the input port takes is called.
  virtual void feed(const Vector& /*x*/, std::size_t /*sender*/) {}
  virtual void feed_word(const std::string& /*word*/) {}
  /// The session ends: what is held back can still be sent.
  virtual void flush() {}
  /// Forgets what a session has left.
  virtual void clear() {}

  void send(FlowData&& data);
  const std::shared_ptr<FlowBudget>& budget() const { return budget_; }

 private:
  std::string name_;
  std::string type_;
  std::shared_ptr<FlowBudget> budget_;
  OutputBuffer output_;
  std::size_t senders_ = 0;
  std::size_t open_senders_ = 0;  // whose session is open
};

/// Makes a node of that name from its element.
using FlowNodeFactory = std::function<std::shared_ptr<FlowNode>(
    const std::string& name, const std::shared_ptr<FlowBudget>& budget, const XmlElement& element)>;
using NodeBuilder = Builder<struct NodeTag, FlowNode, FlowNodeFactory>;

/// Does nothing but make sure that the program holds the table's contents: call it before the first look-up.
void ensure_node_table();

}  // namespace meridane
