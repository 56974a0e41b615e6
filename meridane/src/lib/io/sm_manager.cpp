#include "meridane/io/sm_manager.h"

namespace meridane {

SMManager SMManager::under(const std::string& name) const {
  SMManager part = *this;
  part.prefix_ = named(name);
  return part;
}

float* SMManager::construct_floats(const std::string& name, std::uint64_t count) const {
  float* const made = segment_->construct<float>(named(name).c_str())[count](0.0f);
  can_undo<float>(name);
  return made;
}

float* SMManager::find_floats(const std::string& name, std::uint64_t count) const {
  const auto found = segment_->find<float>(named(name).c_str());
  return found.second == count ? found.first : nullptr;
}

float* SMManager::find_or_construct_floats(const std::string& name, std::uint64_t count) const {
  return either([&] { return find_floats(name, count); }, [&] { return construct_floats(name, count); });
}

SMManager::Text* SMManager::construct_text(const std::string& name, const std::string& text) const {
  Text* const made = segment_->construct<Text>(named(name).c_str())(
      text.data(), text.size(), boost::interprocess::allocator<char, Segment>(segment_));
  can_undo<Text>(name);
  return made;
}

const SMManager::Text* SMManager::find_or_construct_text(const std::string& name, const std::string& text) const {
  return either([&] { return find_text(name); }, [&]() -> const Text* { return construct_text(name, text); });
}

SMManager::Construction::Construction(const SMManager& manager) : manager_(manager) { manager.undo_->wanted = true; }

SMManager::Construction::~Construction() {
  Undo& undo = *manager_.undo_;
  if (!kept_) {
    for (auto step = undo.steps.rbegin(); step != undo.steps.rend(); ++step) (*step)();
  }
  undo = Undo();
}

}  // namespace meridane
