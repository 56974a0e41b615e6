#include "meridane/io/binary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <sstream>

#include "../support/streams.h"
#include "meridane/error.h"

namespace meridane {
namespace {

using test::Pipe;
using testing::ThrowsMessage;

constexpr char kEnd[] = "Unexpected end of the stream";
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

TEST(BinaryNumbers, AreLittleEndian) {
  std::ostringstream stream;
  write_number<std::uint64_t>(stream, 0x0102030405060708);
  write_number<std::int32_t>(stream, -2);
  write_number(stream, 1.0f);
  EXPECT_EQ(stream.str(), std::string("\x08\x07\x06\x05\x04\x03\x02\x01\xfe\xff\xff\xff\0\0\x80\x3f", 16));
  std::istringstream back(stream.str());
  EXPECT_EQ(read_number<std::uint64_t>(back), 0x0102030405060708);
  EXPECT_EQ(read_number<std::int32_t>(back), -2);
  EXPECT_EQ(read_number<float>(back), 1.0f);
}

TEST(BinaryNumbers, CutShortAreAnEndOfTheStream) {
  for (const std::size_t size : {0u, 1u, 7u}) {
    std::istringstream stream(std::string(size, 'x'));
    EXPECT_THAT([&] { read_number<std::uint64_t>(stream); }, ThrowsMessage<BaseRuntimeError>(std::string(kEnd)));
    std::istringstream strict(std::string(size, 'x'));
    strict.exceptions(std::ios_base::failbit);
    EXPECT_THROW(read_number<std::uint64_t>(strict), std::ios_base::failure);
  }
}

TEST(BinaryStrings, AreALengthAndTheirBytes) {
  std::ostringstream stream;
  write_string(stream, std::string_view("a\0b", 3));
  write_string(stream, "");
  EXPECT_EQ(stream.str(), std::string("\3\0\0\0\0\0\0\0a\0b\0\0\0\0\0\0\0\0", 19));
  std::istringstream back(stream.str());
  EXPECT_EQ(read_string(back), std::string("a\0b", 3));
  EXPECT_EQ(read_string(back), "");
}

TEST(BinaryStrings, ThatLieAboutTheirLengthAreAnEndOfTheStreamAndTakeNoMemory) {
  for (const std::uint64_t length : {std::uint64_t{4}, std::uint64_t{1} << 40, std::uint64_t{1} << 63, kLargest}) {
    std::ostringstream out;
    write_number(out, length);
    write_bytes(out, "abc", 3);
    std::istringstream stream(out.str());
    EXPECT_THAT([&] { read_string(stream); }, ThrowsMessage<BaseRuntimeError>(std::string(kEnd)));
    EXPECT_TRUE(stream.eof());
    EXPECT_TRUE(stream.fail());
    std::istringstream strict(out.str());
    strict.exceptions(std::ios_base::eofbit);
    EXPECT_THROW(read_string(strict), std::ios_base::failure);
  }
}

TEST(ExpectLeft, CountsFromTheNextByteToTheEnd) {
  std::istringstream stream("0123456789");
  expect_left(stream, 10, 1);
  expect_left(stream, 2, 5);
  expect_left(stream, 0, 8);
  EXPECT_THROW(expect_left(stream, 11, 1), BaseRuntimeError);
  stream.clear();
  char three[3];
  read_bytes(stream, three, 3);
  expect_left(stream, 7, 1);
  EXPECT_EQ(stream.get(), '3');  // looking moves nothing
  EXPECT_THROW(expect_left(stream, 7, 1), BaseRuntimeError);
}

TEST(ExpectLeft, DoesNotOverflow) {
  std::istringstream stream("0123456789");
  EXPECT_THROW(expect_left(stream, kLargest, 8), BaseRuntimeError);
  stream.clear();
  EXPECT_THROW(expect_left(stream, (std::uint64_t{1} << 61) + 1, 8), BaseRuntimeError);
}

TEST(ExpectLeft, KnowsTheEndOfAnEmptyStream) {
  std::istringstream stream;
  expect_left(stream, 0, 1);
  EXPECT_THROW(expect_left(stream, 1, 1), BaseRuntimeError);
}

TEST(ExpectLeft, BelievesAPipeWithinLimits) {
  Pipe pipe("abc");
  std::istream stream(&pipe);
  expect_left(stream, 256u << 20, 1);
  EXPECT_THAT([&] { expect_left(stream, (256u << 20) + 1, 1); }, ThrowsMessage<BaseRuntimeError>(std::string(kEnd)));
  stream.clear();
  EXPECT_THROW(expect_left(stream, 64u << 20, 5), BaseRuntimeError);
}

TEST(SkippedBytes, MustBeThere) {
  std::istringstream stream("0123456789");
  skip_bytes(stream, 0);
  skip_bytes(stream, 7);
  EXPECT_EQ(stream.get(), '7');
  EXPECT_THAT([&] { skip_bytes(stream, 3); }, ThrowsMessage<BaseRuntimeError>(std::string(kEnd)));
  stream.clear();
  EXPECT_THROW(skip_bytes(stream, kLargest), BaseRuntimeError);
  std::istringstream strict("012");
  strict.exceptions(std::ios_base::failbit);
  EXPECT_THROW(skip_bytes(strict, 4), std::ios_base::failure);
}

TEST(BinaryStrings, ComeFromAPipeToo) {
  std::ostringstream out;
  write_string(out, "abc");
  write_string(out, "cut short");
  Pipe pipe(out.str().substr(0, out.str().size() - 1));
  std::istream stream(&pipe);
  EXPECT_EQ(read_string(stream), "abc");
  EXPECT_THAT([&] { read_string(stream); }, ThrowsMessage<BaseRuntimeError>(std::string(kEnd)));
}

}  // namespace
}  // namespace meridane
