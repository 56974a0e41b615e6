#include "enhance/timer_period.h"

#include <atomic>

namespace sonivo {
namespace {

std::atomic<std::int64_t> open_requests{0};

}  // namespace

void request_1ms_timer() { ++open_requests; }
void give_back_1ms_timer() { --open_requests; }
std::int64_t open_1ms_timer_requests() { return open_requests; }

}  // namespace sonivo
