#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/host_state.h"
#include "host/trouble_watch.h"

namespace sonivo {

/// What the service tells of itself, as JSON; `trouble` is what is wrong at present, empty when all is well.
std::string StatusReport(HostState& host, const std::string& trouble);

/// Gives the driver, while it is connected, a report that says how things stand now. Any thread.
void ReportAtOnce(HostState& host);

/// Gives the report to the driver, for whoever asks: at once to one that is connected anew, at most once a second when
/// it says something new, else every five seconds, from which others see that the service goes on. Notes what keeps the
/// service from its driver.
class StatusPublisher {
 public:
  explicit StatusPublisher(HostState& host) : host_(host), watch_(host) {}
  /// To be called several times a second.
  void Publish();

 private:
  void Offer(const std::string& trouble, std::uint64_t now_ms);
  void NoteObstacle(std::uint64_t now_ms);

  HostState& host_;
  TroubleWatch watch_;
  static constexpr std::uint32_t kWaitingMs = 1000;  // more than it takes to become the service

  std::uint64_t next_ms_ = 0;
  std::uint64_t repeat_ms_ = 0;
  bool refused_ = false;  // as another process is the driver's service
  Standing waiting_{kWaitingMs};
  std::string published_;
  std::weak_ptr<Device> published_to_;
};

}  // namespace sonivo
