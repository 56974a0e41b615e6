#include "apps/tool/matrix_file.h"

#include <array>
#include <charconv>
#include <fstream>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "meridane/error.h"
#include "meridane/io/matrix.h"

namespace sonivo::tool {

namespace {

constexpr int kSignificantDigits = 9;  // enough to read the same float again

void append_number(std::string& text, float value) {
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::general,
                                 kSignificantDigits);
  text.append(digits.data(), end.ptr);
}

}  // namespace

meridane::Matrix read_matrix(const std::string& name) {
  require_file(name, "a matrix");
  std::ifstream file(name);
  try {
    return meridane::load_matrix_text(file);
  } catch (const meridane::BaseRuntimeError& error) {
    throw Failure("'" + name + "' is no matrix of numbers: " + error.what());
  }
}

std::string matrix_text(const meridane::Matrix& matrix) {
  std::string text;
  for (Eigen::Index i = 0; i < matrix.rows() && matrix.cols() > 0; ++i) {
    for (Eigen::Index t = 0; t < matrix.cols(); ++t) {
      if (t > 0) text += '\t';
      append_number(text, matrix(i, t));
    }
    text += '\n';
  }
  return text;
}

}  // namespace sonivo::tool
