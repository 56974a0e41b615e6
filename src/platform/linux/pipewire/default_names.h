#pragma once

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/endpoints.h"
#include "platform/linux/pipewire/loop_timer.h"
#include "platform/linux/pipewire/registry.h"

namespace sonivo::pipewire {

/// Which nodes the session manager calls the defaults, by its metadata, which is there exactly while the manager is.
/// With the loop locked, all of it.
class DefaultNames {
 public:
  /// `told`: a name, be it new or not; empty: there is none.
  DefaultNames(Connection& connection, const Registry& registry,
               std::function<void(DataFlow, const std::string& name)> told);

  /// The metadata has come.
  void follow(std::uint32_t metadata);
  bool follows(std::uint32_t metadata) const { return metadata == metadata_; }
  void forget();
  /// Another client has come, which may ask for the names.
  void ask_later();

 private:
  void ask();
  int changed(const char* key, const char* value);

  const Registry& registry_;
  const std::function<void(DataFlow, const std::string&)> told_;
  LoopTimer ask_again_;
  bool asks_again_ = false;  ///< the timer runs
  std::uint32_t metadata_ = SPA_ID_INVALID;
  std::unique_ptr<BoundObject> asked_;
};

}  // namespace sonivo::pipewire
