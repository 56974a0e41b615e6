// Any text is a matrix or an error of the engine. What is a matrix is the same one again after it was written, as text
// and in binary; cut in binary it is an error.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "meridane/error.h"
#include "meridane/io/matrix.h"
#include "meridane/io/number_text.h"

namespace {

using meridane::RowMatrix;

/// What is no number has no bits to keep.
bool same(float a, float b) { return a != a ? b != b : std::memcmp(&a, &b, sizeof a) == 0; }

void expect_same(const RowMatrix& a, const RowMatrix& b) {
  if (a.rows() != b.rows() || a.cols() != b.cols()) std::abort();
  for (Eigen::Index i = 0; i < a.size(); ++i) {
    if (!same(a.data()[i], b.data()[i])) std::abort();
  }
}

std::string text_of(const RowMatrix& matrix) {
  std::string text;
  for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
    for (Eigen::Index j = 0; j < matrix.cols(); ++j) text += meridane::number_text(matrix(i, j)) + '\t';
    text += '\n';
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
  RowMatrix matrix;
  try {
    matrix = meridane::load_matrix_text(stream);
  } catch (const meridane::BaseRuntimeError&) {
    return 0;
  }
  if (matrix.size() == 0) std::abort();

  std::istringstream text(text_of(matrix));
  expect_same(meridane::load_matrix_text(text), matrix);
  std::stringstream binary;
  meridane::dump_matrix_bin(binary, matrix);
  expect_same(meridane::load_matrix_bin(binary), matrix);
  std::istringstream cut(binary.str().substr(0, binary.str().size() - 1));
  try {
    meridane::load_matrix_bin(cut);
    std::abort();
  } catch (const meridane::BaseRuntimeError&) {
  }
  return 0;
}
