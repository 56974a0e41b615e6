#include "meridane/io/sm_manager.h"

#include <unistd.h>

namespace meridane {
namespace {

namespace ipc = boost::interprocess;

/// A segment of this process's own, removed at the end.
class SharedMemoryObjects : public testing::Test {
 protected:
  ~SharedMemoryObjects() override { ipc::shared_memory_object::remove(name_.c_str()); }

  template <class T>
  std::size_t count(const char* name) {
    return segment_.find<T>(name).second;
  }

  std::string name_ = "sonivo-objects-" + std::to_string(::getpid());
  ipc::managed_shared_memory segment_{ipc::create_only, name_.c_str(), 1 << 16};
  SMManager manager_{*segment_.get_segment_manager(), "p"};
};

TEST_F(SharedMemoryObjects, HaveNamesOfParts) {
  manager_.construct<std::uint64_t>("a", 1);
  manager_.under("q").under("r").construct<float>("b", 2.5f);
  EXPECT_EQ(count<std::uint64_t>("p::a"), 1u);
  EXPECT_EQ(*segment_.find<float>("p::q::r::b").first, 2.5f);
  EXPECT_EQ(manager_.find<float>("b"), nullptr);
  EXPECT_THROW(manager_.construct<std::uint64_t>("a", 1), ipc::interprocess_exception);
}

TEST_F(SharedMemoryObjects, AreFoundOrConstructed) {
  std::uint64_t& number = manager_.find_or_construct<std::uint64_t>("n", 7);
  EXPECT_EQ(number, 7u);
  number = 8;
  EXPECT_EQ(&manager_.find_or_construct<std::uint64_t>("n", 7), &number);
  EXPECT_EQ(number, 8u);

  const auto* const text = manager_.find_or_construct_text("t", "a text that is longer than a short one");
  EXPECT_EQ(*text, "a text that is longer than a short one");
  EXPECT_EQ(manager_.find_or_construct_text("t", "another"), text);
  EXPECT_EQ(manager_.find_text("t"), text);

  float* const floats = manager_.find_or_construct_floats("f", 3);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(floats[i], 0);
  floats[2] = 1;
  EXPECT_EQ(manager_.find_or_construct_floats("f", 3), floats);
  EXPECT_EQ(floats[2], 1);
}

TEST_F(SharedMemoryObjects, OfAnotherCountAreNotFoundAndNotReplaced) {
  manager_.construct_floats("f", 3);
  EXPECT_EQ(manager_.find_floats("f", 2), nullptr);
  EXPECT_EQ(manager_.find_floats("f", 4), nullptr);
  EXPECT_THROW(manager_.find_or_construct_floats("f", 4), ipc::interprocess_exception);
  EXPECT_EQ(count<float>("p::f"), 3u);
}

TEST_F(SharedMemoryObjects, OfAConstructionGoWithItUnlessTheyAreKept) {
  manager_.construct<std::uint64_t>("before", 1);
  const std::size_t free = segment_.get_free_memory();
  const SMManager part = manager_.under("part");
  {
    const SMManager::Construction construction(manager_);
    part.construct<std::uint64_t>("n", 1);
    part.construct_text("t", std::string(100, 't'));
    part.find_or_construct_floats("f", 5);
    EXPECT_EQ(manager_.find_or_construct<std::uint64_t>("before", 2), 1u);
    EXPECT_EQ(count<float>("p::part::f"), 5u);
  }
  EXPECT_EQ(segment_.get_num_named_objects(), 1u);
  EXPECT_EQ(count<std::uint64_t>("p::before"), 1u);
  EXPECT_EQ(segment_.get_free_memory(), free);
  {
    SMManager::Construction construction(manager_);
    part.construct<std::uint64_t>("n", 1);
    construction.keep();
  }
  { const SMManager::Construction construction(manager_); }
  EXPECT_EQ(count<std::uint64_t>("p::part::n"), 1u);
}

}  // namespace
}  // namespace meridane
