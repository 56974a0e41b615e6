// Streams over files and memory of a caller.

#include "e2easr_model/rex_stream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <iterator>

#include "meridane/io/binary.h"

namespace sonivo::e2e::test {
namespace {

std::string numbered_bytes(std::size_t count) {
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i) bytes.push_back(static_cast<char>(i * 31 % 251));
  return bytes;
}

std::FILE* file_of(const std::string& bytes) {
  std::FILE* const file = std::tmpfile();
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::rewind(file);
  return file;
}

std::string rest_of(std::istream& stream) {
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

TEST(RexInputFPStream, ReadsAllOfAFileLargerThanItsBuffer) {
  const std::string bytes = numbered_bytes(40000);
  std::FILE* const file = file_of(bytes);
  RexInputFPStream stream(file);
  EXPECT_EQ(meridane::bytes_left(stream), bytes.size());
  EXPECT_EQ(rest_of(stream), bytes);
  EXPECT_EQ(meridane::bytes_left(stream), 0u);
  std::fclose(file);
}

TEST(RexInputFPStream, TellsWhatIsLeftWhereItStands) {
  const std::string bytes = numbered_bytes(40000);
  std::FILE* const file = file_of(bytes);
  RexInputFPStream stream(file);
  for (const std::size_t count : {std::size_t{5}, std::size_t{16384}, std::size_t{9000}}) {
    const auto before = meridane::bytes_left(stream);
    std::string read(count, ' ');
    stream.read(read.data(), static_cast<std::streamsize>(count));
    EXPECT_EQ(read, bytes.substr(bytes.size() - before, count));
    EXPECT_EQ(meridane::bytes_left(stream), before - count);
  }
  std::fclose(file);
}

template <class Stream>
void expect_seeks(Stream& stream, const std::string& bytes) {
  for (const std::size_t position : {std::size_t{0}, std::size_t{20000}, std::size_t{19999}, bytes.size() - 1}) {
    stream.seekg(static_cast<std::streamoff>(position));
    EXPECT_EQ(stream.tellg(), static_cast<std::streamoff>(position));
    EXPECT_EQ(stream.get(), static_cast<unsigned char>(bytes[position]));
  }
  stream.seekg(-3, std::ios_base::end);
  EXPECT_EQ(rest_of(stream), bytes.substr(bytes.size() - 3));
  stream.clear();
  stream.seekg(static_cast<std::streamoff>(bytes.size()) + 1);
  EXPECT_TRUE(stream.fail()) << "beyond the end";
  stream.clear();
  stream.seekg(-1, std::ios_base::beg);
  EXPECT_TRUE(stream.fail()) << "ahead of the start";
}

TEST(RexInputFPStream, CanBeSought) {
  const std::string bytes = numbered_bytes(40000);
  std::FILE* const file = file_of(bytes);
  RexInputFPStream stream(file);
  expect_seeks(stream, bytes);
  std::fclose(file);
}

TEST(RexInputFPStream, APipeCanOnlyBeRead) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(::write(ends[1], "abc", 3), 3);
  ::close(ends[1]);
  std::FILE* const file = ::fdopen(ends[0], "rb");
  RexInputFPStream stream(file);
  EXPECT_EQ(stream.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in), std::streampos(-1));
  EXPECT_EQ(rest_of(stream), "abc");
  std::fclose(file);
}

TEST(RexInputMemStream, ReadsAndSeeks) {
  const std::string bytes = numbered_bytes(40000);
  RexInputMemStream stream(bytes.data(), bytes.size());
  EXPECT_EQ(meridane::bytes_left(stream), bytes.size());
  expect_seeks(stream, bytes);
  stream.clear();
  stream.seekg(0);
  EXPECT_EQ(rest_of(stream), bytes);
}

TEST(RexInputMemStream, OfNothingIsAtItsEnd) {
  RexInputMemStream stream(nullptr, 0);
  EXPECT_EQ(stream.get(), std::istream::traits_type::eof());
}

}  // namespace
}  // namespace sonivo::e2e::test
