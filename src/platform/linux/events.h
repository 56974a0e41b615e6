#pragma once

#include <utility>

#include "base/descriptor.h"
#include "base/event.h"

namespace sonivo::linux {

/// An eventfd: signalled while its count isn't zero.
class DescriptorEvent final : public Event {
 public:
  DescriptorEvent(Descriptor descriptor, Reset reset) : descriptor_(std::move(descriptor)), reset_(reset) {}

  void set() override;
  void reset() override { take(); }

  int number() const { return descriptor_.number(); }
  /// Ends a wait: false when another wait has taken an automatic event in the meantime.
  bool accept() { return reset_ == Reset::manual || take(); }

 private:
  /// Clears it; false when it was clear.
  bool take();

  Descriptor descriptor_;
  Reset reset_;
};

/// Waits with poll, for at most 64 events at a time; more fail with error::kInvalidParameter. All of them are its own.
class DescriptorEvents final : public Events {
 public:
  std::unique_ptr<Event> create(Reset reset) override;
  WaitResult wait_any(std::span<Event* const> events, std::optional<std::uint32_t> limit_ms) override;
};

}  // namespace sonivo::linux
