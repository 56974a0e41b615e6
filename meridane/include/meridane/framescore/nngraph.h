#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "meridane/framescore/nnlayer/nnlayer.h"

namespace meridane {

/// A layer and its links. Links are weak: the graph owns the nodes.
struct NNGraphNode {
  enum class Visit {
    none = 0,         ///< not visited
    on_path = 1,      ///< on the current path
    reaches_end = 2,  ///< the terminal node can be reached from here
    misses_end = 3,   ///< it can't
  };

  std::string id;
  std::shared_ptr<NNLayer> layer;
  std::vector<std::weak_ptr<NNGraphNode>> successors;    // in the order of the links
  std::vector<std::weak_ptr<NNGraphNode>> predecessors;  // in the order of the links
  Visit visit = Visit::none;
};

/// The layers of a network as a directed graph, and the order in which they are evaluated. Node "_input" is there from
/// the beginning and is the start.
class NNGraph {
 public:
  using Layers = std::vector<std::shared_ptr<NNLayer>>;

  NNGraph();

  /// "Id [ID] is duplicated" for an id that is taken.
  void add_node(const std::string& id, std::shared_ptr<NNLayer> layer);
  /// "Invalid node id [ID]" for an id that isn't there.
  void add_link(const std::string& from, const std::string& to);
  void set_start_node(const std::string& id);
  void set_terminal_node(const std::string& id);

  /// The layers that lead to the terminal node, each behind all that it needs, and fixes the graph. Throws for a graph
  /// without start or end, without a path between them, and for a loop that the search meets.
  Layers get_forward_path();

  /// Of the fixed graph, in the order of the links.
  const Layers& get_prec_layers(const std::string& id) const;
  const Layers& get_succ_layers(const std::string& id) const;

 private:
  using NodePtr = std::shared_ptr<NNGraphNode>;

  const NodePtr& node(const std::string& id) const;
  const Layers& neighbours(const std::map<std::string, Layers>& lists, const std::string& id) const;
  bool _visit(const NodePtr& first, Layers& path);
  static bool is_in_loop(const NodePtr& node);

  std::map<std::string, NodePtr> nodes_;
  NodePtr start_;
  NodePtr terminal_;
  std::map<std::string, Layers> predecessors_;
  std::map<std::string, Layers> successors_;
  bool fixed_ = false;
};

}  // namespace meridane
