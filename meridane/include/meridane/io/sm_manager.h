#pragma once

#include <boost/interprocess/containers/string.hpp>
#include <boost/interprocess/managed_shared_memory.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace meridane {

/// Named objects of a shared-memory segment under a name prefix; the parts of a name are joined by "::". The segment is
/// its creator's, and must outlive all that is found in it.
class SMManager {
 public:
  using Segment = boost::interprocess::managed_shared_memory::segment_manager;
  using Text =
      boost::interprocess::basic_string<char, std::char_traits<char>, boost::interprocess::allocator<char, Segment>>;

  SMManager(Segment& segment, std::string prefix)
      : segment_(&segment), prefix_(std::move(prefix)), undo_(std::make_shared<Undo>()) {}

  /// The objects of a part of this one.
  SMManager under(const std::string& name) const;

  template <class T>
  T* find(const std::string& name) const {
    const auto found = segment_->find<T>(named(name).c_str());
    return found.second == 1 ? found.first : nullptr;
  }
  /// Throws boost::interprocess::bad_alloc where the segment is full, interprocess_exception for a name in use.
  template <class T>
  T& construct(const std::string& name, const T& value) const {
    T& made = *segment_->construct<T>(named(name).c_str())(value);
    can_undo<T>(name);
    return made;
  }
  /// What is there, or one of that value.
  template <class T>
  T& find_or_construct(const std::string& name, const T& value) const {
    return *either([&] { return find<T>(name); }, [&] { return &construct(name, value); });
  }

  /// Floats, all 0.
  float* construct_floats(const std::string& name, std::uint64_t count) const;
  /// Null unless there are exactly so many.
  float* find_floats(const std::string& name, std::uint64_t count) const;
  /// interprocess_exception where there are, but not so many.
  float* find_or_construct_floats(const std::string& name, std::uint64_t count) const;
  Text* construct_text(const std::string& name, const std::string& text) const;
  const Text* find_text(const std::string& name) const { return find<Text>(name); }
  const Text* find_or_construct_text(const std::string& name, const std::string& text) const;

  /// What is constructed through a manager and its parts while this lives is destroyed with it, unless it's kept.
  /// Nobody may hold what is destroyed.
  class Construction {
   public:
    explicit Construction(const SMManager& manager);
    ~Construction();
    Construction(const Construction&) = delete;
    Construction& operator=(const Construction&) = delete;
    void keep() { kept_ = true; }

   private:
    const SMManager& manager_;
    bool kept_ = false;
  };

 private:
  /// How to destroy what was constructed, while somebody might want that.
  struct Undo {
    bool wanted = false;
    std::vector<std::function<void()>> steps;
  };

  std::string named(const std::string& name) const { return prefix_ + "::" + name; }

  template <class T>
  void can_undo(const std::string& name) const {
    if (!undo_->wanted) return;
    undo_->steps.emplace_back([segment = segment_, name = named(name)] { segment->destroy<T>(name.c_str()); });
  }

  /// What find() gives unless it's null, else what construct() gives, as one step for all processes.
  template <class Find, class Construct>
  auto either(Find find, Construct construct) const {
    auto* found = find();
    auto look_again = [&] {
      found = find();
      if (found == nullptr) found = construct();
    };
    if (found == nullptr) segment_->atomic_func(look_again);
    return found;
  }

  Segment* segment_;
  std::string prefix_;
  std::shared_ptr<Undo> undo_;  // one for all parts
};

}  // namespace meridane
