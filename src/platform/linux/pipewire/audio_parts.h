#pragma once

#include <string>

#include "base/thread.h"
#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/dispatcher.h"
#include "platform/linux/pipewire/endpoints.h"
#include "platform/linux/pipewire/friendly_names.h"
#include "platform/linux/pipewire/graph.h"
#include "platform/linux/pipewire/pacer.h"

namespace sonivo::pipewire {

/// The audio half of a machine, wired; a VirtualPair on the same parts makes it whole. Endpoints and defaults are known
/// once it is constructed, unless the server isn't there or doesn't answer within two seconds.
struct AudioParts {
  /// Throws std::runtime_error when threads or the client library can't be had.
  explicit AudioParts(Threads& threads, const FriendlyNames& names = {}, const std::string& remote = {})
      : pacer(threads), connection(remote), graph(connection, dispatcher, names), endpoints(connection, graph, pacer) {
    graph.wait_until_known(2000);
  }
  ~AudioParts() { dispatcher.stop(); }

  Pacer pacer;
  Connection connection;
  Dispatcher dispatcher;
  Graph graph;
  PipeWireEndpoints endpoints;
};

}  // namespace sonivo::pipewire
