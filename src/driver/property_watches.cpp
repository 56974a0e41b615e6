#include "driver/property_watches.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace sonivo::driver {

Error PropertyWatches::wait(const PendingId& request, std::span<const std::byte> question, std::size_t output_bytes) {
  control::FxWatchQuestion wire;
  if (question.size() != sizeof wire || output_bytes != sizeof wire.seen) return error::kInvalidParameter;
  std::memcpy(&wire, question.data(), sizeof wire);
  const auto end = std::find(wire.endpoint.begin(), wire.endpoint.end(), u'\0');
  const auto endpoint = properties_.find_endpoint({wire.endpoint.begin(), end});
  if (!endpoint) return error::kNotFound;
  watches_.push_back({request, *endpoint, wire.seen});
  tell();
  return error::kNone;
}

void PropertyWatches::tell() {
  std::erase_if(watches_, [this](const Watch& each) {
    const std::uint64_t latest = properties_.latest_change(each.endpoint);
    if (latest == each.seen) return false;
    deliver_(each.request, latest);
    return true;
  });
}

void PropertyWatches::drop(const PendingId& request) {
  std::erase_if(watches_, [&](const Watch& each) { return each.request == request; });
}

void PropertyWatches::drop(ClientId client) {
  std::erase_if(watches_, [&](const Watch& each) { return each.request.client == client; });
}

}  // namespace sonivo::driver
