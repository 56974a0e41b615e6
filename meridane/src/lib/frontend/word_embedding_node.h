#pragma once

#include <map>
#include <vector>

#include "meridane/frontend/flow_node.h"
#include "meridane/io/matrix.h"

namespace meridane {

/// y = the vector of the word, which is fed in UTF-8 whatever the document's mapping is written in; zeros for a word
/// without one.
class WordEmbeddingNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  PortType input_type() const override { return PortType::word; }
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;

 protected:
  void feed_word(const std::string& word) override;

 private:
  struct Entry {
    std::string word;  // in the charset
    RowMatrix vec;     // a row or a column
  };

  void add_entry(const XmlElement& element);

  std::string charset_;
  int dim_ = 0;
  std::vector<Entry> entries_;
  std::map<std::string, std::size_t> numbers_;  // by word in UTF-8
};

}  // namespace meridane
