#include "meridane/io/matrix.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>

#include "meridane/error.h"
#include "meridane/io/binary.h"
#include "meridane/io/half.h"
#include "meridane/io/number_text.h"
#include "meridane/io/script.h"

namespace meridane {
namespace {

constexpr std::string_view kSeparators = "\t\n ,";
constexpr std::size_t kHalvesAtOnce = 1024;

std::uint64_t width(MatrixCoding coding) { return coding == MatrixCoding::dense ? sizeof(float) : 2; }

/// Appends the numbers of a line and answers how many there are.
std::size_t append_numbers(std::string_view line, std::vector<float>& values) {
  std::size_t count = 0;
  for (std::size_t at = line.find_first_not_of(kSeparators); at < line.size();
       at = line.find_first_not_of(kSeparators, at)) {
    const std::size_t end = std::min(line.find_first_of(kSeparators, at), line.size());
    values.push_back(float_of(line.substr(at, end - at)));
    at = end;
    ++count;
  }
  return count;
}

/// The next line, without its end; false behind the last one. `left` is how many characters there can be still.
bool next_line(std::istream& stream, std::string& line, std::uint64_t& left) {
  using Traits = std::istream::traits_type;
  line.clear();
  for (auto c = stream.rdbuf()->sbumpc(); c != Traits::eof(); c = stream.rdbuf()->sbumpc()) {
    if (left-- == 0) raise_endless();
    if (c == '\n') return true;
    line += Traits::to_char_type(c);
  }
  return !line.empty();
}

}  // namespace

MatrixSize read_matrix_size(std::istream& stream, MatrixCoding coding) {
  const auto rows = read_number<std::int64_t>(stream);
  const auto cols = read_number<std::int64_t>(stream);
  if (rows <= 0 || cols <= 0 || rows > std::numeric_limits<std::int64_t>::max() / cols) {
    raise("Failed to read matrix binary");
  }
  expect_left(stream, static_cast<std::uint64_t>(rows * cols), width(coding));
  return {rows, cols};
}

void read_matrix_values(std::istream& stream, MatrixCoding coding, float* values, Eigen::Index count) {
  if (coding == MatrixCoding::dense) {
    read_bytes(stream, values, static_cast<std::uint64_t>(count) * sizeof(float));
    return;
  }
  std::array<std::uint16_t, kHalvesAtOnce> halves;
  for (auto left = static_cast<std::size_t>(count); left > 0;) {
    const std::size_t now = std::min(left, halves.size());
    read_bytes(stream, halves.data(), now * 2);
    values = std::transform(halves.begin(), halves.begin() + static_cast<std::ptrdiff_t>(now), values, half_to_float);
    left -= now;
  }
}

void skip_matrix_values(std::istream& stream, MatrixCoding coding, Eigen::Index count) {
  skip_bytes(stream, static_cast<std::uint64_t>(count) * width(coding));
}

void write_matrix_size(std::ostream& stream, MatrixSize size) {
  write_number<std::int64_t>(stream, size.rows);
  write_number<std::int64_t>(stream, size.cols);
}

void write_matrix_values(std::ostream& stream, MatrixCoding coding, const float* values, Eigen::Index count) {
  if (coding == MatrixCoding::dense) {
    write_bytes(stream, values, static_cast<std::uint64_t>(count) * sizeof(float));
    return;
  }
  for (Eigen::Index i = 0; i < count; ++i) write_number(stream, float_to_half(values[i]));
}

RowMatrix load_matrix_bin(std::istream& stream) {
  const MatrixSize size = read_matrix_size(stream, MatrixCoding::dense);
  RowMatrix matrix(size.rows, size.cols);
  read_matrix_values(stream, MatrixCoding::dense, matrix.data(), matrix.size());
  return matrix;
}

void dump_matrix_bin(std::ostream& stream, const RowMatrix& matrix) {
  write_matrix_size(stream, {matrix.rows(), matrix.cols()});
  write_matrix_values(stream, MatrixCoding::dense, matrix.data(), matrix.size());
}

RowMatrix load_matrix_text(std::istream& stream) {
  std::vector<float> values;
  std::size_t rows = 0;
  std::size_t cols = 0;
  std::uint64_t left = bytes_left(stream);
  for (std::string line; next_line(stream, line, left);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty() || line.front() == '#') continue;
    const std::size_t count = append_numbers(line, values);
    if (count == 0) continue;  // the blanks before an element's closing tag
    if (rows > 0 && count != cols) raise("Column-size error");
    cols = count;
    ++rows;
  }
  if (cols == 0) raise("Empty matrix (ncol == 0)");
  return Eigen::Map<const RowMatrix>(values.data(), static_cast<Eigen::Index>(rows), static_cast<Eigen::Index>(cols));
}

RowMatrix load_matrix_xml(const XmlElement& element) {
  const std::string type = find_attribute(element, "type").value_or("text/plain");
  const bool is_text = type == "text/plain" || type == "text/tab-separated-values";
  const auto load = [&](std::istream& stream) { return is_text ? load_matrix_text(stream) : load_matrix_bin(stream); };
  if (const auto ref = find_attribute(element, "ref")) {
    RefInput input = ref_input_open(expand_script(*ref));
    return load(input.stream());
  }
  std::istringstream text(expand_script(element_text(element)));
  return load(text);
}

RefInput::RefInput(const std::string& path) : stream_(&std::cin) {
  if (path == "-") return;
  file_ = std::make_unique<std::ifstream>(path, std::ios_base::binary);
  stream_ = file_.get();
  if (!*file_ || std::filesystem::is_directory(path)) raise("resource not found: %s", path.c_str());
}
RefInput::~RefInput() = default;

RefInput ref_input_open(const std::string& path) { return RefInput(path); }

RefOutput::RefOutput(const std::string& path) : stream_(&std::cout) {
  if (path == "-") return;
  file_ = std::make_unique<std::ofstream>(path, std::ios_base::binary);
  stream_ = file_.get();
  if (!*file_) raise("resource cannot be opened: %s", path.c_str());
}
RefOutput::~RefOutput() = default;

RefOutput ref_output_open(const std::string& path) { return RefOutput(path); }

}  // namespace meridane
