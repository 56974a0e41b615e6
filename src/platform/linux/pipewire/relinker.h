#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/pipewire/loop_timer.h"
#include "platform/linux/pipewire/registry.h"

namespace sonivo::pipewire {

/// Links applications with nodes of ours again after the session manager has been away: it leaves a stream that lived
/// before without a link. A stream that the manager links by itself is the manager's, also later; one that had no link
/// with a node of ours when the manager went isn't touched, and what somebody takes apart under a manager stays so, but
/// for a link that goes less than a second before the manager, which counts as gone with it and is made again. A stream
/// that somebody links with a second node loses the link that was made again, as though it had been moved there.
class Relinker final : private Registry::User {
 public:
  Relinker(Connection& connection, std::set<std::string> own_nodes);

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
    Id stream_port() const { return is_recorded ? input : output; }
  };
  struct Lost {
    Link link;
    std::chrono::steady_clock::time_point when;
  };

  // Registry::User
  void came(Id id, std::string_view type, const spa_dict& properties) override;
  void went(Id id) override;
  void lost() override;

  void add_link(Id id, Id output, Id input);
  void look();
  bool is_over(const Link& lost) const;
  void restore(const Link& lost);
  bool is_made(const Link& link) const { return made_.contains(ports_of(link)); }
  static std::pair<Id, Id> ports_of(const Link& link) { return {link.output, link.input}; }

  const std::set<std::string> own_names_;
  LoopTimer next_look_;
  Id manager_ = SPA_ID_INVALID;  ///< its table of defaults
  std::chrono::steady_clock::time_point manager_came_;
  int looks_left_ = 0;
  std::map<Id, std::string> own_nodes_;
  std::set<Id> streams_;
  std::map<Id, Port> ports_;
  std::map<Id, Link> links_;
  std::set<std::pair<Id, Id>> asked_;  ///< for since the latest look, from port to port; the server may refuse
  std::set<std::pair<Id, Id>> made_;
  std::vector<Lost> lost_;
  Registry registry_;
};

}  // namespace sonivo::pipewire
