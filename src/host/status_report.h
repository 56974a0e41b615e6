#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/host_state.h"

namespace sonivo {

/// What the service tells of itself, as JSON.
std::string StatusReport(HostState& host);

/// Gives the report to the driver, for whoever asks: at most once a second, and only when it says something new.
class StatusPublisher {
 public:
  explicit StatusPublisher(HostState& host) : host_(host) {}
  /// To be called now and then.
  void Publish();

 private:
  HostState& host_;
  std::uint64_t next_ms_ = 0;
  std::string published_;
  std::weak_ptr<Device> published_to_;  // the driver forgets the report with this handle
};

}  // namespace sonivo
