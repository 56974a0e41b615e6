#include "platform/linux/open_links.h"

#include "platform/linux/overlapped_control.h"

namespace sonivo::linux {

void OpenLinks::add(const std::shared_ptr<OverlappedLink>& link) {
  const std::scoped_lock lock(mutex_);
  std::erase_if(links_, [](const auto& each) { return each.expired(); });
  links_.push_back(link);
}

void OpenLinks::lose_all() {
  const std::scoped_lock lock(mutex_);
  for (const auto& each : links_) {
    if (const auto link = each.lock()) link->lose();
  }
}

}  // namespace sonivo::linux
