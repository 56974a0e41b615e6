#include "quality/parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <future>
#include <thread>
#include <vector>

namespace sonivo::bench {

void in_parallel(std::size_t count, const std::function<void(std::size_t)>& job) {
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = next++; i < count; i = next++) job(i);
  };
  std::vector<std::future<void>> workers;
  const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
  for (std::size_t w = 0; w < std::min(cores, count); ++w) workers.push_back(std::async(std::launch::async, work));
  std::exception_ptr failure;
  for (auto& worker : workers) {
    try {
      worker.get();
    } catch (...) {
      failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace sonivo::bench
