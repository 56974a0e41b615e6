#include "platform/linux/pipewire/registry.h"

#include <atomic>
#include <map>
#include <memory>
#include <vector>

#include "pipewire_bench.h"

namespace sonivo::test {
namespace {

using pipewire::BoundObject;
using pipewire::Connection;
using pipewire::Registry;

/// Asks each node what it is, and counts those that have answered by the time that all is told.
class Asker final : private Registry::User {
 public:
  explicit Asker(Connection& connection) : registry_(connection, *this, 2) {}

  int times_told() const { return told_; }
  int lost_with() const { return lost_with_; }
  int nodes() const { return nodes_; }
  int answered_by_then() const { return answered_by_then_; }

 private:
  void came(std::uint32_t id, std::string_view type, const spa_dict&) override {
    static const pw_node_events events = [] {
      pw_node_events table{};
      table.version = PW_VERSION_NODE_EVENTS;
      table.info = [](void* answered, const pw_node_info*) { *static_cast<bool*>(answered) = true; };
      return table;
    }();
    if (type != PW_TYPE_INTERFACE_Node) return;
    bool& answered = answered_[id] = false;
    bound_[id] =
        std::make_unique<BoundObject>(registry_, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &events, &answered);
  }
  void went(std::uint32_t id) override {
    bound_.erase(id);
    answered_.erase(id);
  }
  void told() override {
    nodes_ = static_cast<int>(answered_.size());
    int count = 0;
    for (const auto& [id, answered] : answered_) count += answered ? 1 : 0;
    answered_by_then_ = count;
    ++told_;
  }
  void lost() override {
    lost_with_ = static_cast<int>(bound_.size());
    bound_.clear();
    answered_.clear();
  }

  std::map<std::uint32_t, bool> answered_;
  std::map<std::uint32_t, std::unique_ptr<BoundObject>> bound_;
  std::atomic<int> nodes_ = 0;
  std::atomic<int> answered_by_then_ = -1;
  std::atomic<int> told_ = 0;
  std::atomic<int> lost_with_ = -1;
  Registry registry_;
};

TEST_F(PipeWireTest, WhatOthersAskOverTheSameConnectionEndsNobodysRound) {
  std::vector<std::unique_ptr<Asker>> askers;
  {
    const Connection::Lock lock(half_->connection);
    for (int i = 0; i < 4; ++i) askers.push_back(std::make_unique<Asker>(half_->connection));
  }
  for (const auto& each : askers) {
    ASSERT_TRUE(comes_true([&] { return each->times_told() == 1; }));
    EXPECT_GE(each->nodes(), 2);
    EXPECT_EQ(each->answered_by_then(), each->nodes());
  }
}

TEST_F(PipeWireTest, AServerThatComesBackIsAskedAnew) {
  const Asker asker(half_->connection);
  ASSERT_TRUE(comes_true([&] { return asker.times_told() == 1; }));
  const int nodes = asker.nodes();
  server_->kill_server();
  ASSERT_TRUE(comes_true([&] { return asker.lost_with() >= nodes; }));
  server_->start_server();
  EXPECT_TRUE(comes_true([&] { return asker.times_told() == 2; }));
  EXPECT_GE(asker.nodes(), 2);
}

}  // namespace
}  // namespace sonivo::test
