#pragma once

#include <cstdint>

#include "base/thread.h"

namespace sonivo {

/// What a thread may ask the system for, each for itself.
struct PriorityCalls {
  bool (*set_scheduler)(int policy, int priority);  ///< whether it is granted
  bool (*set_nice)(int level);                      ///< the same
  int (*nice)();                                    ///< the level as it is
  std::uint64_t (*nice_limit)();                    ///< n permits levels from 20 - n on
};
extern const PriorityCalls kSystemPriorityCalls;

/// Lets the calling thread run before all ordinary ones: under real-time scheduling where `grant` or the system permits
/// it, else at the highest nice level that it grants. Where it grants nothing the thread stays as it is; a trace tells.
void make_thread_time_critical(const RealTimeGrant& grant, const PriorityCalls& system = kSystemPriorityCalls);

}  // namespace sonivo
