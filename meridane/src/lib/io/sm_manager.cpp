#include "meridane/io/sm_manager.h"

namespace meridane {

float* SMManager::construct_floats(const std::string& name, std::uint64_t count) const {
  return segment_->construct<float>(named(name).c_str())[count](0.0f);
}

float* SMManager::find_floats(const std::string& name, std::uint64_t count) const {
  const auto found = segment_->find<float>(named(name).c_str());
  return found.second == count ? found.first : nullptr;
}

void SMManager::construct_text(const std::string& name, const std::string& text) const {
  segment_->construct<Text>(named(name).c_str())(text.data(), text.size(),
                                                 boost::interprocess::allocator<char, Segment>(segment_));
}

}  // namespace meridane
