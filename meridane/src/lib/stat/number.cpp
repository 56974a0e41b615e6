#include "meridane/stat/number.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <vector>

#include "meridane/error.h"
#include "meridane/io/binary.h"

namespace meridane {

template <class Number>
std::string text_of(Number value) {
  std::array<char, 32> text;
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

template <class Number>
Number number_of(std::string_view text) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end) raise("Invalid number \"%s\"", std::string(text).c_str());
  return value;
}

template std::string text_of(double);
template std::string text_of(std::int32_t);
template std::string text_of(std::int64_t);
template std::string text_of(std::uint64_t);
template double number_of(std::string_view);
template std::int32_t number_of(std::string_view);
template std::int64_t number_of(std::string_view);
template std::uint64_t number_of(std::string_view);

DoubleMatrix load_double_matrix(std::istream& stream) {
  const auto rows = read_number<std::int64_t>(stream);
  const auto cols = read_number<std::int64_t>(stream);
  const bool fits = rows >= 0 && cols >= 0 && (cols == 0 || rows <= std::numeric_limits<std::int64_t>::max() / cols);
  if (!fits) raise("Failed to read matrix binary");
  expect_left(stream, static_cast<std::uint64_t>(rows * cols), sizeof(double));
  DoubleMatrix matrix(rows, cols);
  read_bytes(stream, matrix.data(), static_cast<std::uint64_t>(matrix.size()) * sizeof(double));
  return matrix;
}

void dump_double_matrix(std::ostream& stream, const DoubleMatrix& matrix) {
  write_number<std::int64_t>(stream, matrix.rows());
  write_number<std::int64_t>(stream, matrix.cols());
  write_bytes(stream, matrix.data(), static_cast<std::uint64_t>(matrix.size()) * sizeof(double));
}

DoubleMatrix load_double_matrix(const XmlElement& element) {
  constexpr std::string_view kBetween = " \t\r,";
  const std::string text = element_text(element);
  std::vector<double> values;
  Eigen::Index rows = 0, cols = 0;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    const std::string_view line = std::string_view(text).substr(start, end - start);
    Eigen::Index count = 0;
    for (std::size_t at = line.find_first_not_of(kBetween); at < line.size();
         at = line.find_first_not_of(kBetween, at)) {
      const std::size_t stop = std::min(line.find_first_of(kBetween, at), line.size());
      values.push_back(number_of<double>(line.substr(at, stop - at)));
      at = stop;
      ++count;
    }
    start = end + 1;
    if (count == 0) continue;
    if (rows > 0 && count != cols) raise("Column-size error");
    cols = count;
    ++rows;
  }
  return Eigen::Map<const DoubleMatrix>(values.data(), rows, cols);
}

void dump_double_matrix(XmlElement& parent, XmlDocument& document, std::string_view name, const DoubleMatrix& matrix) {
  std::string text = "\n";
  for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
    for (Eigen::Index k = 0; k < matrix.cols(); ++k) {
      text += text_of(matrix(i, k));
      text += k + 1 < matrix.cols() ? '\t' : '\n';
    }
  }
  append_element(parent, document, name, text);
}

}  // namespace meridane
