#include "e2easr_model/result.h"

#include <algorithm>

namespace sonivo::e2e {

bool E2EResult::operator==(const E2EResult& other) const {
  return std::equal(values_.begin(), values_.end(), other.values_.begin(), other.values_.end(),
                    [](const auto& a, const auto& b) { return a.first == b.first && a.second->equals(*b.second); });
}

}  // namespace sonivo::e2e
