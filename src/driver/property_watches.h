#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "driver/effect_properties.h"
#include "driver/event_channel.h"

namespace sonivo::driver {

/// Requests that pend until a property of their endpoint changes.
class PropertyWatches {
 public:
  using Deliver = std::function<void(const PendingId& request, std::uint64_t change)>;

  PropertyWatches(const EffectProperties& properties, Deliver deliver)
      : properties_(properties), deliver_(std::move(deliver)) {}

  /// The error of a request that can't wait.
  Error wait(const PendingId& request, std::span<const std::byte> question, std::size_t output_bytes);
  /// Answers those that have something to be told.
  void tell();
  void drop(const PendingId& request);
  void drop(ClientId client);

 private:
  struct Watch {
    PendingId request;
    std::u16string endpoint;
    std::uint64_t seen = 0;
  };
  const EffectProperties& properties_;
  Deliver deliver_;
  std::vector<Watch> watches_;
};

}  // namespace sonivo::driver
