#pragma once

#include <cstddef>
#include <functional>

namespace sonivo::bench {

/// job(0) to job(count - 1), on all cores. An exception of a job is thrown once all others have ended.
void in_parallel(std::size_t count, const std::function<void(std::size_t)>& job);

}  // namespace sonivo::bench
