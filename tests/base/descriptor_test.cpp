#include "base/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>

namespace sonivo {
namespace {

bool is_open_in_system(int number) { return ::fcntl(number, F_GETFD) != -1; }

Descriptor new_descriptor() { return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

TEST(DescriptorTest, IsClosedWithItsObject) {
  int number = -1;
  {
    const Descriptor descriptor = new_descriptor();
    number = descriptor.number();
    EXPECT_TRUE(descriptor.is_open());
    EXPECT_TRUE(is_open_in_system(number));
  }
  EXPECT_FALSE(is_open_in_system(number));
}

TEST(DescriptorTest, MovesFromObjectToObject) {
  Descriptor first = new_descriptor();
  const int number = first.number();
  Descriptor second = std::move(first);
  EXPECT_EQ(second.number(), number);
  Descriptor third = new_descriptor();
  const int replaced = third.number();
  third = std::move(second);
  EXPECT_EQ(third.number(), number);
  EXPECT_TRUE(is_open_in_system(number));
  EXPECT_FALSE(is_open_in_system(replaced));
}

TEST(DescriptorTest, ThatIsReleasedStaysOpen) {
  Descriptor descriptor = new_descriptor();
  const int number = descriptor.release();
  EXPECT_FALSE(descriptor.is_open());
  EXPECT_EQ(descriptor.number(), -1);
  descriptor.close();
  EXPECT_TRUE(is_open_in_system(number));
  ::close(number);
}

}  // namespace
}  // namespace sonivo
