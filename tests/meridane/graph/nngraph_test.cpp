#include "meridane/framescore/nngraph.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "../support/graph_layers.h"
#include "../support/network_bytes.h"

namespace meridane::test {
namespace {

using Edges = std::vector<std::pair<std::string, std::string>>;

/// The nodes, then the links in their order.
NNGraph graph_of(const Order& ids, const Edges& links, const std::string& terminal) {
  NNGraph graph;
  for (const auto& id : ids) graph.add_node(id, std::make_shared<DigitLayer>(id, 0.0f));
  for (const auto& [from, to] : links) graph.add_link(from, to);
  if (!terminal.empty()) graph.set_terminal_node(terminal);
  return graph;
}

Order ids_of(const NNGraph::Layers& layers) {
  Order ids;
  for (const auto& layer : layers) ids.push_back(layer->id());
  return ids;
}

Order path_of(const Order& ids, const Edges& links, const std::string& terminal) {
  NNGraph graph = graph_of(ids, links, terminal);
  return ids_of(graph.get_forward_path());
}

std::string path_failure(const Order& ids, const Edges& links, const std::string& terminal) {
  return failure_of([&] { path_of(ids, links, terminal); });
}

TEST(InputLayer, IsThereFromTheBeginningAndHandsItsInputOn) {
  NNGraph graph;
  graph.set_terminal_node("_input");
  const NNGraph::Layers path = graph.get_forward_path();
  ASSERT_EQ(path.size(), 1u);
  EXPECT_EQ(path[0]->id(), "_input");
  EXPECT_EQ(path[0]->type(), "Input");
  const auto frames = std::make_shared<Minibatch>(Matrix(Matrix::Random(3, 2)));
  EXPECT_EQ(path[0]->forward({frames}), frames);
  EXPECT_EQ(path[0]->forward({frames}, nullptr), frames);
  EXPECT_EQ(path[0]->create_state(), nullptr);
  EXPECT_FALSE(path[0]->is_variable_length());
}

TEST(InputLayer, TakesExactlyOneInput) {
  NNGraph graph;
  graph.set_terminal_node("_input");
  const auto layer = graph.get_forward_path().front();
  const auto frames = std::make_shared<Minibatch>();
  EXPECT_EQ(failure_of([&] { layer->forward({frames, frames}); }), "InputLayer does not accept multiple input streams");
  EXPECT_EQ(failure_of([&] { layer->forward(LayerInputs()); }), "No data is being provided to InputLayer");
  EXPECT_EQ(failure_of([&] { layer->forward({MinibatchPtr()}); }), "No data is being provided to InputLayer");
}

TEST(InputLayer, HasNoStoredForm) {
  NNGraph graph;
  graph.set_terminal_node("_input");
  const auto layer = graph.get_forward_path().front();
  std::stringstream stream;
  XmlFile file;
  EXPECT_EQ(failure_of([&] { layer->load_binary(stream); }), "InputLayer cannot load anything");
  EXPECT_EQ(failure_of([&] { layer->dump_binary(stream); }), "InputLayer cannot be dumped");
  EXPECT_EQ(failure_of([&] { layer->dump_xml_stream(stream); }), "InputLayer cannot be dumped");
  std::istringstream document("<layer/>");
  EXPECT_EQ(failure_of([&] { layer->load_xml_stream(document); }), "InputLayer cannot load anything");
}

TEST(AGraph, TakesEachIdOnce) {
  NNGraph graph = graph_of({"a"}, {}, "");
  EXPECT_EQ(failure_of([&] { graph.add_node("a", std::make_shared<DigitLayer>("a", 0.0f)); }), "Id [a] is duplicated");
  EXPECT_EQ(failure_of([&] { graph.add_node("_input", std::make_shared<DigitLayer>("_input", 0.0f)); }),
            "Id [_input] is duplicated");
}

TEST(AGraph, LinksOnlyWhatIsThere) {
  NNGraph graph = graph_of({"a"}, {}, "");
  EXPECT_EQ(failure_of([&] { graph.add_link("nobody", "a"); }), "Invalid node id [nobody]");
  EXPECT_EQ(failure_of([&] { graph.add_link("a", "nobody"); }), "Invalid node id [nobody]");
  EXPECT_EQ(failure_of([&] { graph.add_link("first", "second"); }), "Invalid node id [first]");
  EXPECT_EQ(failure_of([&] { graph.set_start_node("nobody"); }), "Invalid node id [nobody]");
  EXPECT_EQ(failure_of([&] { graph.set_terminal_node("nobody"); }), "Invalid node id [nobody]");
  graph.add_link("_input", "a");
  graph.set_terminal_node("a");
  EXPECT_EQ(ids_of(graph.get_forward_path()), (Order{"_input", "a"})) << "what failed left nothing";
}

TEST(AGraph, TellsNeighboursOnlyWhenItIsFixed) {
  NNGraph graph = graph_of({"a", "b"}, {{"_input", "a"}, {"a", "b"}}, "b");
  const auto expect_open = [&](const char* after) {
    EXPECT_EQ(failure_of([&] { graph.get_prec_layers("a"); }), "The graph has not been fixed") << after;
    EXPECT_EQ(failure_of([&] { graph.get_succ_layers("nobody"); }), "The graph has not been fixed") << after;
    graph.get_forward_path();
    EXPECT_EQ(ids_of(graph.get_prec_layers("a")), Order{"_input"}) << after;
  };
  expect_open("construction");
  graph.add_node("c", std::make_shared<DigitLayer>("c", 0.0f));
  expect_open("a new node");
  graph.add_link("a", "c");
  expect_open("a new link");
  EXPECT_EQ(ids_of(graph.get_succ_layers("a")), (Order{"b", "c"}));
  graph.set_start_node("_input");
  expect_open("a start");
  graph.set_terminal_node("c");
  expect_open("an end");
  EXPECT_EQ(failure_of([&] { graph.get_prec_layers("nobody"); }), "Invalid node id [nobody]");
  EXPECT_EQ(failure_of([&] { graph.get_succ_layers("nobody"); }), "Invalid node id [nobody]");
}

TEST(AGraph, KeepsTheOrderOfItsLinks) {
  NNGraph graph = graph_of(
      {"z", "a", "m", "sum"},
      {{"_input", "m"}, {"_input", "z"}, {"_input", "a"}, {"z", "sum"}, {"a", "sum"}, {"m", "sum"}, {"a", "sum"}},
      "sum");
  graph.get_forward_path();
  EXPECT_EQ(ids_of(graph.get_prec_layers("sum")), (Order{"z", "a", "m", "a"}));
  EXPECT_EQ(ids_of(graph.get_succ_layers("_input")), (Order{"m", "z", "a"}));
  EXPECT_EQ(ids_of(graph.get_succ_layers("a")), (Order{"sum", "sum"}));
  EXPECT_TRUE(graph.get_prec_layers("_input").empty());
  EXPECT_TRUE(graph.get_succ_layers("sum").empty());
}

TEST(ThePath, NeedsBothEnds) {
  EXPECT_EQ(path_failure({"a"}, {{"_input", "a"}}, ""), "Starting or terminal node has not been set");
  EXPECT_EQ(path_failure({}, {}, ""), "Starting or terminal node has not been set");
  EXPECT_EQ(path_failure({"a", "b"}, {{"_input", "a"}}, "b"), "Path to the terminal node does not exist");
  EXPECT_EQ(path_failure({"a"}, {{"a", "_input"}}, "a"), "Path to the terminal node does not exist");
}

TEST(ThePath, MayStartElsewhere) {
  NNGraph graph = graph_of({"a", "b", "c"}, {{"_input", "a"}, {"a", "b"}, {"b", "c"}}, "c");
  graph.set_start_node("b");
  EXPECT_EQ(ids_of(graph.get_forward_path()), (Order{"b", "c"}));
}

/// Reverse post-order of a depth-first search in the order of the links.
TEST(ThePath, RunsTheSiblingThatIsLinkedLaterFirst) {
  EXPECT_EQ(path_of({"a", "b", "c"}, {{"_input", "a"}, {"_input", "b"}, {"a", "c"}, {"b", "c"}}, "c"),
            (Order{"_input", "b", "a", "c"}));
  EXPECT_EQ(path_of({"a", "b", "c"}, {{"_input", "b"}, {"_input", "a"}, {"a", "c"}, {"b", "c"}}, "c"),
            (Order{"_input", "a", "b", "c"}));
  EXPECT_EQ(path_of({"a", "b", "c"}, {{"_input", "a"}, {"_input", "b"}, {"a", "b"}, {"b", "c"}}, "c"),
            (Order{"_input", "a", "b", "c"}))
      << "what a layer needs comes before it";
}

TEST(ThePath, LeavesOutWhatDoesNotLeadToTheEnd) {
  EXPECT_EQ(
      path_of({"a", "b", "dead", "deader", "beyond"},
              {{"_input", "dead"}, {"dead", "deader"}, {"_input", "a"}, {"a", "deader"}, {"a", "b"}, {"b", "beyond"}},
              "b"),
      (Order{"_input", "a", "b"}));
}

TEST(ALoop, IsAnErrorWhereTheSearchMeetsIt) {
  const std::string loop = "Loop exists in the graph";
  EXPECT_EQ(path_failure({"a", "b"}, {{"_input", "a"}, {"a", "b"}, {"b", "a"}}, "b"), loop);
  EXPECT_EQ(path_failure({"a", "b"}, {{"_input", "a"}, {"a", "a"}, {"a", "b"}}, "b"), loop) << "of one node";
  EXPECT_EQ(path_failure({"a", "b", "c"}, {{"_input", "a"}, {"a", "b"}, {"b", "a"}, {"a", "c"}}, "c"), loop)
      << "beside the way";
  EXPECT_EQ(path_failure({"a", "b", "c"}, {{"_input", "a"}, {"_input", "b"}, {"b", "c"}, {"c", "b"}}, "a"), loop)
      << "in a dead branch";
  EXPECT_EQ(path_failure({"a"}, {{"_input", "a"}, {"a", "_input"}}, "a"), loop) << "back to the start";
}

TEST(ALoop, ThroughTheEndIsAnError) {
  const std::string loop = "Loop exists in the graph";
  EXPECT_EQ(path_failure({"a"}, {{"_input", "a"}, {"a", "a"}}, "a"), loop);
  EXPECT_EQ(path_failure({"a", "b"}, {{"_input", "a"}, {"a", "b"}, {"b", "a"}}, "a"), loop);
  EXPECT_EQ(path_failure({"a", "b", "c"}, {{"_input", "a"}, {"a", "b"}, {"b", "c"}, {"c", "a"}}, "a"), loop);
}

TEST(ALoop, ThatTheSearchDoesNotMeetIsNone) {
  EXPECT_EQ(path_of({"a", "b", "c"}, {{"_input", "a"}, {"b", "c"}, {"c", "b"}, {"c", "a"}}, "a"),
            (Order{"_input", "a"}))
      << "before the end, but not behind the start";
  EXPECT_EQ(path_of({"a", "b", "c"}, {{"_input", "a"}, {"a", "b"}, {"b", "c"}, {"c", "b"}}, "a"),
            (Order{"_input", "a"}))
      << "behind the end";
}

/// The search as it is defined, in its simplest form: it calls itself.
class ReferenceSearch {
 public:
  ReferenceSearch(const Edges& links, std::string terminal) : terminal_(std::move(terminal)) {
    for (const auto& [from, to] : links) next_[from].push_back(to);
  }

  /// Empty without a way; {"loop"} for a loop.
  Order path() {
    const bool found = visit("_input");
    if (loop_) return {"loop"};
    if (!found) return {};
    std::reverse(order_.begin(), order_.end());
    return order_;
  }

 private:
  bool visit(const std::string& id) {
    int& mark = marks_[id];
    if (mark == 1) loop_ = true;
    if (mark != 0) return mark == 2;
    if (id == terminal_) {
      if (leads_back(id, {})) loop_ = true;
      mark = 2;
      order_.push_back(id);
      return true;
    }
    mark = 1;
    bool reaches = false;
    for (const auto& to : next_[id]) reaches = visit(to) || reaches;
    marks_[id] = reaches ? 2 : 3;
    if (reaches) order_.push_back(id);
    return reaches;
  }

  bool leads_back(const std::string& id, std::set<std::string> seen) {
    std::vector<std::string> open = next_[id];
    while (!open.empty()) {
      const std::string each = open.back();
      open.pop_back();
      if (each == terminal_) return true;
      if (seen.insert(each).second) open.insert(open.end(), next_[each].begin(), next_[each].end());
    }
    return false;
  }

  std::string terminal_;
  std::map<std::string, std::vector<std::string>> next_;
  std::map<std::string, int> marks_;
  Order order_;
  bool loop_ = false;
};

TEST(ThePath, IsThatOfTheDefinition) {
  std::mt19937 random(7);
  int loops = 0;
  int ways = 0;
  for (int round = 0; round < 3000; ++round) {
    const unsigned count = 2 + random() % 8;
    Order ids;
    for (unsigned i = 1; i < count; ++i)
      ids.push_back(std::string(1, static_cast<char>('a' + random() % 26)) + std::to_string(i));
    Order all = ids;
    all.insert(all.begin(), "_input");
    Edges links;
    const bool acyclic = round % 3 != 0;
    for (unsigned i = 0; i < 2 * count; ++i) {
      std::size_t from = random() % all.size();
      std::size_t to = random() % all.size();
      if (acyclic && from == to) continue;
      if (acyclic && from > to) std::swap(from, to);
      links.emplace_back(all[from], all[to]);
    }
    const std::string terminal = ids[random() % ids.size()];
    const Order expected = ReferenceSearch(links, terminal).path();
    if (expected.empty()) {
      EXPECT_EQ(path_failure(ids, links, terminal), "Path to the terminal node does not exist");
    } else if (expected.front() == "loop") {
      ++loops;
      EXPECT_EQ(path_failure(ids, links, terminal), "Loop exists in the graph");
    } else {
      ++ways;
      EXPECT_EQ(path_of(ids, links, terminal), expected);
    }
  }
  EXPECT_GT(loops, 300);
  EXPECT_GT(ways, 1000);
}

/// The search must not call itself for each node: how many there are, a file says.
TEST(ThePath, MayBeLong) {
  constexpr int kLayers = 50000;
  NNGraph graph;
  std::string before = "_input";
  for (int i = 0; i < kLayers; ++i) {
    const std::string id = std::to_string(i);
    graph.add_node(id, std::make_shared<DigitLayer>(id, 0.0f));
    graph.add_link(before, id);
    before = id;
  }
  graph.set_terminal_node(before);
  const NNGraph::Layers path = graph.get_forward_path();
  ASSERT_EQ(path.size(), kLayers + 1u);
  EXPECT_EQ(path.back()->id(), before);
}

/// Each node is searched once, however many ways lead to it.
TEST(ThePath, MayForkOften) {
  NNGraph graph;
  std::string before = "_input";
  for (int i = 0; i < 200; ++i) {
    const std::string level = std::to_string(i);
    for (const char* side : {"l", "r", "m"}) {
      graph.add_node(side + level, std::make_shared<DigitLayer>(side + level, 0.0f));
      if (*side != 'm') graph.add_link(before, side + level);
    }
    graph.add_link("l" + level, "m" + level);
    graph.add_link("r" + level, "m" + level);
    before = "m" + level;
  }
  graph.set_terminal_node(before);
  EXPECT_EQ(graph.get_forward_path().size(), 601u);
}

}  // namespace
}  // namespace meridane::test
