#include "driver/line_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <vector>

#include "base/descriptor.h"

namespace sonivo::driver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LineLogTest : public testing::Test {
 protected:
  LineLogTest() { ::fcntl(reader_.number(), F_SETFL, O_NONBLOCK); }
  /// What has been written since the last call.
  std::vector<std::string> lines() {
    std::string text;
    for (std::array<char, 4096> part{};;) {
      const ssize_t count = ::read(reader_.number(), part.data(), part.size());
      if (count <= 0) break;
      text.append(part.data(), static_cast<std::size_t>(count));
    }
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) all.push_back(line);
    return all;
  }

  /// Another word for each number.
  static std::string letters(int number) {
    std::string word;
    for (; number > 0; number /= 26) word += static_cast<char>('a' + number % 26);
    return word;
  }

  static std::array<int, 2> pipe_ends() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    return ends;
  }

  std::uint64_t now_ms_ = 1'000'000;
  const std::array<int, 2> ends_ = pipe_ends();
  Descriptor reader_{ends_[0]};
  Descriptor writer_{ends_[1]};
  LineLog log_{writer_.number(), "driver", [this] { return now_ms_; }};
};

TEST_F(LineLogTest, ALineComesWithTheNameBeforeIt) {
  log_.write("one\n");
  log_.write("two\n");
  EXPECT_THAT(lines(), ElementsAre("driver: one", "driver: two"));
}

TEST_F(LineLogTest, OfAFloodSixtyLinesAreWrittenAndThenFiveASecond) {
  for (int i = 0; i < 1000; ++i) log_.write("flood of " + letters(i) + '\n');
  EXPECT_EQ(lines().size(), 60u);
  now_ms_ += 199;
  log_.write("too soon\n");
  EXPECT_THAT(lines(), IsEmpty());
  now_ms_ += 1;
  log_.write("in time\n");
  EXPECT_THAT(lines(), ElementsAre("driver: 941 lines were dropped", "driver: in time"));
  now_ms_ += 1000;
  for (int i = 0; i < 10; ++i) log_.write("later " + letters(i) + '\n');
  EXPECT_EQ(lines().size(), 5u);
  now_ms_ += 1'000'000;
  for (int i = 0; i < 100; ++i) log_.write("much later " + letters(i) + '\n');
  EXPECT_EQ(lines().size(), 61u);  // one of them tells of the five
}

TEST_F(LineLogTest, LinesThatDifferByNumbersAloneAreCounted) {
  for (int i = 0; i < 1234; ++i) {
    log_.write("process " + std::to_string(i) + " is refused\n");
    if (i == 500) log_.write("another line\n");
    now_ms_ += 2000;
  }
  EXPECT_THAT(lines(), ElementsAre("driver: process 0 is refused", "driver: process 9 is refused (10 times by now)",
                                   "driver: process 99 is refused (100 times by now)", "driver: another line",
                                   "driver: process 999 is refused (1000 times by now)"));
  now_ms_ += 60'000;
  log_.write("process 7 is refused\n");
  EXPECT_THAT(lines(), ElementsAre("driver: process 7 is refused"));
}

TEST_F(LineLogTest, APipeThatNobodyReadsHoldsNobodyUp) {
  const std::string page(4000, 'x');
  for (int i = 0; i < 10'000; ++i) {
    now_ms_ += 1000;
    log_.write(page + letters(i) + '\n');
  }
  const std::size_t taken = lines().size();
  EXPECT_GT(taken, 0u);
  EXPECT_LT(taken, 10'000u);
  log_.write("read again\n");
  EXPECT_THAT(lines(),
              ElementsAre("driver: " + std::to_string(10'000 - taken) + " lines were dropped", "driver: read again"));
}

TEST_F(LineLogTest, ALineThatIsTooLongIsCut) {
  log_.write(std::string(5000, 'x') + "\n");
  const auto all = lines();
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].size(), 4095u);
}

}  // namespace
}  // namespace sonivo::driver
