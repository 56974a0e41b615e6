#pragma once

#include <memory>
#include <mutex>
#include <vector>

namespace sonivo::linux {

class OverlappedLink;

/// The connections of one bus whose requests may stay pending. Nothing tells them that the driver hangs, so that
/// whichever handle finds out has all of them lost.
class OpenLinks {
 public:
  void add(const std::shared_ptr<OverlappedLink>& link);
  void lose_all();

 private:
  std::mutex mutex_;
  std::vector<std::weak_ptr<OverlappedLink>> links_;
};

}  // namespace sonivo::linux
