// Any bytes are an 8-bit matrix or an error of the engine, as a binary record or, if they begin with `<`, as an element
// that stands for a matrix or a vector. What is one is the same again after it was written in both forms, and
// multiplies if it is a left operand.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <rapidxml/rapidxml.hpp>
#include <sstream>
#include <string>

#include "meridane/error.h"
#include "meridane/quantized_matrix.h"

namespace {

using namespace meridane;

bool same(const float* a, const float* b, Eigen::Index count) {
  for (Eigen::Index i = 0; i < count; ++i) {  // what is no number has no bits to keep
    if (a[i] == a[i] ? std::memcmp(a + i, b + i, sizeof *a) != 0 : b[i] == b[i]) return false;
  }
  return true;
}

void expect_same(const QuantizedMatrix& a, const QuantizedMatrix& b) {
  if (a.size_major != b.size_major || a.align_size_major != b.align_size_major) std::abort();
  if (a.size_minor != b.size_minor || a.align_size_minor != b.align_size_minor) std::abort();
  if (!same(a.qvector.data(), b.qvector.data(), a.qvector.size())) std::abort();
  if (a.rqpmin != b.rqpmin || a.sumqp != b.sumqp || a.quantized_param != b.quantized_param) std::abort();
}

void expect_same(const QuantizedVector& a, const QuantizedVector& b) {
  if (a.size_minor != b.size_minor || a.align_size_minor != b.align_size_minor) std::abort();
  if (!same(&a.qparam, &b.qparam, 1)) std::abort();
  if (a.rqpmin != b.rqpmin || a.sumqp != b.sumqp || a.quantized_param != b.quantized_param) std::abort();
}

/// The element that an object writes itself into, read from its text.
template <class Quantized>
XmlFile written(const Quantized& quantized) {
  XmlFile file;
  quantized.dump_xml(append_element(file.document(), file.document(), "weight"), file.document());
  std::stringstream stream;
  file.write(stream);
  return XmlFile(stream);
}

void check(const QuantizedMatrix& matrix) {
  std::stringstream binary;
  matrix.dump_binary(binary);
  expect_same(QuantizedMatrix::load_binary(binary), matrix);
  const XmlFile file = written(matrix);
  expect_same(QuantizedMatrix::load_xml(*file.root()), matrix);

  if (!matrix.is_left() || matrix.size_minor > 1 << 20) return;  // lines that long need no lines to be there
  const Matrix x = Matrix::NullaryExpr(
      matrix.size_minor, 3, [](Eigen::Index i, Eigen::Index t) { return static_cast<float>(i * t - 7) / 3; });
  const Matrix y = matrix.multiply(x);
  if (y.rows() != matrix.size_major || y.cols() != 3) std::abort();
}

void read(std::istream& stream, bool is_document) {
  if (!is_document) {
    check(QuantizedMatrix::load_binary(stream));
    return;
  }
  const XmlFile file(stream);
  const XmlElement* const root = file.root();
  if (root == nullptr) return;
  if (find_attribute(*root, "qparam")) {
    const QuantizedVector vector(*root);
    const XmlFile again = written(vector);
    expect_same(QuantizedVector(*again.root()), vector);
  } else {
    check(QuantizedMatrix::load_xml(*root));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
  try {
    read(stream, size > 0 && data[0] == '<');
  } catch (const BaseRuntimeError&) {
  }
  return 0;
}
