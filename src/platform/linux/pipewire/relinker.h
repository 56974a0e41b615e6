#pragma once

#include <pipewire/pipewire.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/pipewire/connection.h"

namespace sonivo::pipewire {

/// Links applications with nodes of ours again after the session manager has been away: it leaves a stream that lived
/// before without a link. A stream that the manager links by itself is the manager's, also later; one that had no link
/// with a node of ours when the manager went isn't touched.
class Relinker final : private Connection::User {
 public:
  Relinker(Connection& connection, std::set<std::string> own_nodes);
  ~Relinker();
  Relinker(const Relinker&) = delete;
  Relinker& operator=(const Relinker&) = delete;

 private:
  using Id = std::uint32_t;

  struct Port {
    Id node = SPA_ID_INVALID;
    std::string name;  ///< with that of the node where this is ours, which comes back under another number
    bool is_own = false;
  };
  struct Link {
    Id output = SPA_ID_INVALID;
    Id input = SPA_ID_INVALID;
    Id stream = SPA_ID_INVALID;
    bool is_recorded = false;  ///< the input is the stream's
    std::string own_port;      ///< at the other end; empty: it isn't ours
  };
  struct Lost {
    Link link;
    std::chrono::steady_clock::time_point when;
  };

  // Connection::User
  void connected(pw_core& core) override;
  void disconnected() override;

  void added(Id id, std::string_view type, const spa_dict& properties);
  void removed(Id id);
  void add_link(Id id, Id output, Id input);
  void look_in(std::chrono::milliseconds wait);
  void look();
  bool is_over(const Link& lost) const;
  void restore(const Link& lost);
  bool is_made(const Link& link) const { return made_.contains({link.output, link.input}); }

  Connection& connection_;
  const std::set<std::string> own_names_;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook registry_hook_{};
  spa_source* timer_ = nullptr;
  Id manager_ = SPA_ID_INVALID;  ///< its table of defaults
  int looks_left_ = 0;
  std::map<Id, std::string> own_nodes_;
  std::set<Id> streams_;
  std::map<Id, Port> ports_;
  std::map<Id, Link> links_;
  std::set<std::pair<Id, Id>> made_;  ///< from port to port
  std::vector<Lost> lost_;
};

}  // namespace sonivo::pipewire
