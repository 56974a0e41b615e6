// Dense and half-precision matrices of binary records.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>

#include "meridane/error.h"
#include "meridane/io/half.h"
#include "meridane/io/matrix.h"

namespace meridane {
namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;

constexpr char kFailed[] = "Failed to read matrix binary";
constexpr char kEnd[] = "Unexpected end of the stream";

template <class Number>
std::string bytes_of(std::initializer_list<Number> numbers) {
  std::string bytes;
  for (const Number number : numbers) bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
  return bytes;
}

std::string head(std::int64_t rows, std::int64_t cols) { return bytes_of({rows, cols}); }

RowMatrix of_binary(const std::string& bytes) {
  std::istringstream stream(bytes);
  return load_matrix_bin(stream);
}

TEST(DenseMatrix, HoldsItsSizeAndItsValuesRowAfterRow) {
  const RowMatrix matrix = (RowMatrix(2, 3) << 1, 2, 3, 4, 5, -6).finished();
  const std::string bytes = head(2, 3) + bytes_of({1.0f, 2.0f, 3.0f, 4.0f, 5.0f, -6.0f});
  std::ostringstream stream;
  dump_matrix_bin(stream, matrix);
  EXPECT_EQ(stream.str(), bytes);
  EXPECT_EQ(of_binary(bytes), matrix);
}

TEST(DenseMatrix, KeepsEveryBit) {
  const auto values = {std::numeric_limits<float>::denorm_min(), -0.0f, std::numeric_limits<float>::infinity(),
                       std::numeric_limits<float>::signaling_NaN()};
  const std::string bytes = head(4, 1) + bytes_of(values);
  std::ostringstream stream;
  dump_matrix_bin(stream, of_binary(bytes));
  EXPECT_EQ(stream.str(), bytes);
}

TEST(DenseMatrix, LeavesTheStreamBehindItself) {
  std::istringstream stream(head(1, 2) + bytes_of({1.0f, 2.0f}) + "next");
  load_matrix_bin(stream);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "next");
}

TEST(DenseMatrix, WithoutRowsOrColumnsIsRefused) {
  using Limits = std::numeric_limits<std::int64_t>;
  for (const auto& [rows, cols] : {std::pair<std::int64_t, std::int64_t>{0, 3},
                                   {3, 0},
                                   {0, 0},
                                   {-1, 3},
                                   {3, -1},
                                   {-2, -2},
                                   {Limits::min(), Limits::min()},
                                   {Limits::max(), 2},
                                   {std::int64_t{1} << 32, std::int64_t{1} << 32}}) {
    const std::string bytes = head(rows, cols) + std::string(64, '\0');
    EXPECT_THAT([&] { of_binary(bytes); }, ThrowsMessage<BaseRuntimeError>(std::string(kFailed)))
        << rows << "x" << cols;
  }
}

TEST(DenseMatrix, ThatClaimsMoreThanThereIsTakesNoMemory) {
  for (const auto& [rows, cols] : {std::pair<std::int64_t, std::int64_t>{std::int64_t{1} << 62, 1},
                                   {1, std::int64_t{1} << 62},
                                   {std::int64_t{1} << 31, std::int64_t{1} << 31},
                                   {4, 4},
                                   {1, 5}}) {
    const std::string bytes = head(rows, cols) + std::string(19, '\0');
    EXPECT_THAT([&] { of_binary(bytes); }, ThrowsMessage<BaseRuntimeError>(std::string(kEnd))) << rows << "x" << cols;
    std::istringstream strict(bytes);
    strict.exceptions(std::ios_base::failbit);
    EXPECT_THROW(load_matrix_bin(strict), std::ios_base::failure);
  }
}

TEST(DenseMatrix, CutAnywhereIsAnEndOfTheStream) {
  const std::string bytes = head(2, 2) + std::string(16, '\0');
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_THAT([&] { of_binary(bytes.substr(0, size)); }, ThrowsMessage<BaseRuntimeError>(std::string(kEnd))) << size;
  }
}

TEST(HalfMatrix, HasValuesOfTwoBytes) {
  const std::array values{1.0f, -2.0f, 65504.0f, 0x1p-24f};
  std::ostringstream stream;
  write_matrix_size(stream, {2, 2});
  write_matrix_values(stream, MatrixCoding::half, values.data(), 4);
  EXPECT_EQ(stream.str(), head(2, 2) + bytes_of<std::uint16_t>({0x3c00, 0xc000, 0x7bff, 0x0001}));

  std::istringstream back(stream.str());
  const MatrixSize size = read_matrix_size(back, MatrixCoding::half);
  EXPECT_EQ(size.rows, 2);
  EXPECT_EQ(size.cols, 2);
  std::array<float, 4> read;
  read_matrix_values(back, MatrixCoding::half, read.data(), 4);
  EXPECT_EQ(read, values);
}

TEST(HalfMatrix, OfAnySizeReadsAsItWasWritten) {
  for (const Eigen::Index count : {1, 1023, 1024, 1025, 4097}) {
    std::vector<float> values(static_cast<std::size_t>(count) + 1, 77.0f);
    for (std::size_t i = 0; i + 1 < values.size(); ++i) values[i] = static_cast<float>(i % 2048) - 1000;  // exact
    std::stringstream stream;
    write_matrix_values(stream, MatrixCoding::half, values.data(), count);
    EXPECT_EQ(stream.str().size(), static_cast<std::size_t>(count) * 2);
    std::vector<float> read(values.size(), 77.0f);
    read_matrix_values(stream, MatrixCoding::half, read.data(), count);
    EXPECT_EQ(read, values);  // the last of them untouched
  }
}

TEST(HalfMatrix, RoundsToTheNearestHalf) {
  const std::array values{0.1f, 1000.3f, 1e-9f, 1e9f};
  std::stringstream stream;
  write_matrix_values(stream, MatrixCoding::half, values.data(), 4);
  std::array<float, 4> read;
  read_matrix_values(stream, MatrixCoding::half, read.data(), 4);
  // 11 bits: off by at most 2^-11 of the value.
  EXPECT_NEAR(read[0], 0.1f, 0.1f * 0x1p-11f);
  EXPECT_EQ(read[1], 1000.5f);
  EXPECT_EQ(read[2], 0.0f);
  EXPECT_EQ(read[3], std::numeric_limits<float>::infinity());
}

TEST(HalfMatrix, IsMeasuredByItsOwnWidth) {
  const std::string bytes = head(2, 2) + std::string(8, '\0');
  std::istringstream halves(bytes), floats(bytes), cut(bytes.substr(0, bytes.size() - 1));
  EXPECT_NO_THROW(read_matrix_size(halves, MatrixCoding::half));
  EXPECT_THAT([&] { read_matrix_size(floats, MatrixCoding::dense); },
              ThrowsMessage<BaseRuntimeError>(std::string(kEnd)));
  EXPECT_THAT([&] { read_matrix_size(cut, MatrixCoding::half); }, ThrowsMessage<BaseRuntimeError>(std::string(kEnd)));
  std::istringstream none(head(0, 2));
  EXPECT_THAT([&] { read_matrix_size(none, MatrixCoding::half); },
              ThrowsMessage<BaseRuntimeError>(std::string(kFailed)));
}

}  // namespace
}  // namespace meridane
