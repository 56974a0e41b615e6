#include "meridane/framescore/nngraph.h"

#include <algorithm>
#include <set>

#include "lib/framescore/nnlayer/input.h"
#include "meridane/error.h"

namespace meridane {

NNGraph::NNGraph() {
  auto input = std::make_shared<InputLayer>();
  add_node(input->id(), input);
  set_start_node(input->id());
}

void NNGraph::add_node(const std::string& id, std::shared_ptr<NNLayer> layer) {
  auto added = std::make_shared<NNGraphNode>();
  added->id = id;
  added->layer = std::move(layer);
  if (!nodes_.emplace(id, std::move(added)).second) raise("Id [%s] is duplicated", id.c_str());
  fixed_ = false;
}

const NNGraph::NodePtr& NNGraph::node(const std::string& id) const {
  const auto found = nodes_.find(id);
  if (found == nodes_.end()) raise("Invalid node id [%s]", id.c_str());
  return found->second;
}

void NNGraph::add_link(const std::string& from, const std::string& to) {
  const NodePtr& source = node(from);
  const NodePtr& target = node(to);
  source->successors.push_back(target);
  target->predecessors.push_back(source);
  fixed_ = false;
}

void NNGraph::set_start_node(const std::string& id) {
  start_ = node(id);
  fixed_ = false;
}

void NNGraph::set_terminal_node(const std::string& id) {
  terminal_ = node(id);
  fixed_ = false;
}

NNGraph::Layers NNGraph::get_forward_path() {
  if (start_ == nullptr || terminal_ == nullptr) raise("Starting or terminal node has not been set");
  for (const auto& [id, each] : nodes_) each->visit = NNGraphNode::Visit::none;
  Layers path;
  if (!_visit(start_, path)) raise("Path to the terminal node does not exist");
  std::reverse(path.begin(), path.end());

  predecessors_.clear();
  successors_.clear();
  for (const auto& [id, each] : nodes_) {
    for (const auto& linked : each->predecessors) predecessors_[id].push_back(linked.lock()->layer);
    for (const auto& linked : each->successors) successors_[id].push_back(linked.lock()->layer);
  }
  fixed_ = true;
  return path;
}

/// Depth first, in the order of the links; appends each node that the end can be reached from behind all that follow
/// it. What lies behind the end isn't visited. Written without recursion: how long a chain of layers is, a file says.
bool NNGraph::_visit(const NodePtr& first, Layers& path) {
  using Visit = NNGraphNode::Visit;
  struct Step {
    NodePtr node;
    std::size_t next = 0;  // successor to visit
    bool reaches_end = false;
  };
  std::vector<Step> steps;
  const auto enter = [&](const NodePtr& node) {
    if (node == terminal_ && is_in_loop(node)) raise("Loop exists in the graph");
    node->visit = Visit::on_path;
    steps.push_back({.node = node});
    if (node == terminal_) steps.back() = {.node = node, .next = node->successors.size(), .reaches_end = true};
  };

  enter(first);
  while (true) {
    Step& step = steps.back();
    if (step.next == step.node->successors.size()) {
      const bool reaches_end = step.reaches_end;
      step.node->visit = reaches_end ? Visit::reaches_end : Visit::misses_end;
      if (reaches_end) path.push_back(step.node->layer);
      steps.pop_back();
      if (steps.empty()) return reaches_end;
      continue;  // the node before meets this one again, as visited
    }
    const NodePtr next = step.node->successors[step.next].lock();
    if (next->visit == Visit::none) {
      enter(next);
      continue;
    }
    if (next->visit == Visit::on_path) raise("Loop exists in the graph");
    step.reaches_end |= next->visit == Visit::reaches_end;
    ++step.next;
  }
}

/// Whether a way leads from the node back to it.
bool NNGraph::is_in_loop(const NodePtr& node) {
  std::set<const NNGraphNode*> seen;
  std::vector<NodePtr> open = {node};
  while (!open.empty()) {
    const NodePtr each = open.back();
    open.pop_back();
    for (const auto& linked : each->successors) {
      const NodePtr next = linked.lock();
      if (next == node) return true;
      if (seen.insert(next.get()).second) open.push_back(next);
    }
  }
  return false;
}

const NNGraph::Layers& NNGraph::get_prec_layers(const std::string& id) const { return neighbours(predecessors_, id); }
const NNGraph::Layers& NNGraph::get_succ_layers(const std::string& id) const { return neighbours(successors_, id); }

const NNGraph::Layers& NNGraph::neighbours(const std::map<std::string, Layers>& lists, const std::string& id) const {
  static const Layers none;
  if (!fixed_) raise("The graph has not been fixed");
  node(id);
  const auto found = lists.find(id);
  return found == lists.end() ? none : found->second;
}

}  // namespace meridane
