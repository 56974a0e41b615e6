#pragma once

namespace sonivo {

/// Lets the calling thread run before all ordinary ones: under real-time scheduling where the system permits it, else
/// at the highest nice level that it grants. Where it grants nothing the thread stays as it is; a trace tells.
void make_thread_time_critical();

}  // namespace sonivo
