#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/device.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

inline constexpr const char* kEchoFilterPath = R"(\\.\KELVARECFILTER)";
inline constexpr std::uint32_t kEchoFilterMute = 0x9C40E0A0;

/// Optional filter driver of the notebook's maker, told of the mute state by 4 bytes and answering with 4.
class EchoFilter {
 public:
  EchoFilter(Scheduler& scheduler, Script& script, bool present);

  /// Null with error::kFileNotFound when there is none.
  std::shared_ptr<Device> open(Error& why);

  void set_present(bool present);
  /// What it answers from now on: this value in the first `bytes` bytes, reporting that many.
  void set_answer(std::uint32_t value, std::uint32_t bytes = 4);
  /// Values told so far.
  std::vector<std::uint32_t> values() const;
  std::size_t open_handles() const;

 private:
  class Handle;
  Error tell(std::span<const std::byte> input, std::span<std::byte> output, std::uint32_t& transferred);

  Scheduler& scheduler_;
  Script& script_;
  bool present_;
  std::uint32_t answer_ = 0;
  std::uint32_t answer_bytes_ = 4;
  std::vector<std::uint32_t> values_;
  std::size_t open_handles_ = 0;
};

}  // namespace sonivo::sim
