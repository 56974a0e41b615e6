#pragma once

#include <boost/interprocess/containers/string.hpp>
#include <boost/interprocess/managed_shared_memory.hpp>
#include <cstdint>
#include <string>

namespace meridane {

/// Named objects of a shared-memory segment under a name prefix; the parts of a name are joined by "::". The segment is
/// its creator's, and must outlive all that is found in it.
class SMManager {
 public:
  using Segment = boost::interprocess::managed_shared_memory::segment_manager;
  using Text =
      boost::interprocess::basic_string<char, std::char_traits<char>, boost::interprocess::allocator<char, Segment>>;

  SMManager(Segment& segment, std::string prefix) : segment_(&segment), prefix_(std::move(prefix)) {}

  /// The objects of a part of this one.
  SMManager under(const std::string& name) const { return {*segment_, named(name)}; }

  template <class T>
  T* find(const std::string& name) const {
    const auto found = segment_->find<T>(named(name).c_str());
    return found.second == 1 ? found.first : nullptr;
  }
  /// Throws boost::interprocess::bad_alloc where the segment is full, interprocess_exception for a name in use.
  template <class T>
  T& construct(const std::string& name, const T& value) const {
    return *segment_->construct<T>(named(name).c_str())(value);
  }
  template <class T>
  T& find_or_construct(const std::string& name, const T& value) const {
    return *segment_->find_or_construct<T>(named(name).c_str())(value);
  }

  /// Floats, all 0.
  float* construct_floats(const std::string& name, std::uint64_t count) const;
  /// Null unless there are exactly so many.
  float* find_floats(const std::string& name, std::uint64_t count) const;
  void construct_text(const std::string& name, const std::string& text) const;
  const Text* find_text(const std::string& name) const { return find<Text>(name); }

 private:
  std::string named(const std::string& name) const { return prefix_ + "::" + name; }

  Segment* segment_;
  std::string prefix_;
};

}  // namespace meridane
