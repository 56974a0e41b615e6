#include "lib/framescore/nnlayer/parameter_visitors.h"

#include "meridane/error.h"
#include "meridane/io/binary.h"
#include "meridane/io/number_text.h"

namespace meridane {
namespace {

/// "weight" of a layer's message that has one %s for its id.
[[noreturn]] void raise_for_layer(const char* message, const NNLayer& layer) {
  const std::string text = message;
  const std::size_t mark = text.find("%s");
  raise("%s", (text.substr(0, mark) + layer.id() + text.substr(mark + 2)).c_str());
}

}  // namespace

void BinaryLoader::weight(const char* name, Weight& weight) {
  const MatrixSize size = read_matrix_size(stream_, coding_);
  auto block = layer_.alloc_param(name, size.rows, size.cols);
  read_matrix_values(stream_, coding_, block.get(), size.rows * size.cols);
  weight.set(std::move(block), size.rows, size.cols);
}

void BinaryLoader::vector(const char* name, StoredVector& vector) {
  read_vector(name, vector, read_matrix_size(stream_, coding_));
}

void BinaryLoader::column(const char* name, StoredVector& vector, const char* message) {
  const MatrixSize size = read_matrix_size(stream_, coding_);
  if (size.cols != 1) raise_for_layer(message, layer_);
  read_vector(name, vector, size);
}

void BinaryLoader::read_vector(const char* name, StoredVector& vector, MatrixSize size) {
  const Eigen::Index count = size.cols == 1 ? size.rows : size.cols;
  auto block = layer_.alloc_param(name, count, 1);
  read_matrix_values(stream_, coding_, block.get(), count);
  const Eigen::Index unread = size.rows * size.cols - count;  // the rows behind row 0
  std::vector<float> rest(static_cast<std::size_t>(unread));
  read_matrix_values(stream_, coding_, rest.data(), unread);
  vector.set(std::move(block), count);
}

void BinaryLoader::quantized(const char*, QuantizedMatrix& matrix) { matrix = QuantizedMatrix::load_binary(stream_); }
void BinaryLoader::number(const char*, float& value, float) { value = read_number<float>(stream_); }
void BinaryLoader::integer(const char*, std::int32_t& value, std::int32_t) {
  value = read_number<std::int32_t>(stream_);
}
void BinaryLoader::text(const char*, std::string& value) { value = read_string(stream_); }

void BinaryDumper::weight(const char*, Weight& weight) {
  write_matrix_size(stream_, {weight.rows(), weight.cols()});
  Vector row(weight.cols());
  for (Eigen::Index i = 0; i < weight.rows(); ++i) {
    weight.row(i, row.data());
    write_matrix_values(stream_, coding_, row.data(), row.size());
  }
}

void BinaryDumper::vector(const char*, StoredVector& vector) {
  write_matrix_size(stream_, {vector.size(), 1});
  write_matrix_values(stream_, coding_, vector.data(), vector.size());
}

void BinaryDumper::column(const char* name, StoredVector& column, const char*) { vector(name, column); }
void BinaryDumper::quantized(const char*, QuantizedMatrix& matrix) { matrix.dump_binary(stream_); }
void BinaryDumper::number(const char*, float& value, float) { write_number(stream_, value); }
void BinaryDumper::integer(const char*, std::int32_t& value, std::int32_t) { write_number(stream_, value); }
void BinaryDumper::text(const char*, std::string& value) { write_string(stream_, value); }

const XmlElement& XmlLoader::child(const char* name) const {
  const XmlElement* const found = find_child(element_, name);
  if (found == nullptr) {
    raise<MissingTagError>("\"<%s>\" not found in a layer of type \"%s\" ", name, type_.c_str());
  }
  return *found;
}

void XmlLoader::weight(const char* name, Weight& weight) {
  const RowMatrix matrix = load_matrix_xml(child(name));
  auto block = layer_.alloc_param(name, matrix.rows(), matrix.cols());
  std::copy_n(matrix.data(), matrix.size(), block.get());
  weight.set(std::move(block), matrix.rows(), matrix.cols());
}

void XmlLoader::vector(const char* name, StoredVector& vector) {
  take_vector(name, vector, load_matrix_xml(child(name)));
}

void XmlLoader::column(const char* name, StoredVector& vector, const char* message) {
  const RowMatrix matrix = load_matrix_xml(child(name));
  if (matrix.cols() != 1) raise_for_layer(message, layer_);
  take_vector(name, vector, matrix);
}

void XmlLoader::take_vector(const char* name, StoredVector& vector, const RowMatrix& matrix) {
  const Eigen::Index count = matrix.cols() == 1 ? matrix.rows() : matrix.cols();
  auto block = layer_.alloc_param(name, count, 1);
  std::copy_n(matrix.data(), count, block.get());
  vector.set(std::move(block), count);
}

void XmlLoader::quantized(const char* name, QuantizedMatrix& matrix) {
  matrix = QuantizedMatrix::load_xml(child(name));
}

void XmlLoader::number(const char* name, float& value, float otherwise) {
  const auto text = find_attribute(element_, name);
  value = text ? float_of(*text) : otherwise;
}

void XmlLoader::integer(const char* name, std::int32_t& value, std::int32_t otherwise) {
  const auto text = find_attribute(element_, name);
  value = text ? int_of(*text) : otherwise;
}

void XmlLoader::text(const char* name, std::string& value) { value = find_attribute(element_, name).value_or(""); }

void XmlDumper::weight(const char* name, Weight& weight) {
  std::string text = "\n";
  Vector row(weight.cols());
  for (Eigen::Index i = 0; i < weight.rows(); ++i) {
    weight.row(i, row.data());
    for (Eigen::Index k = 0; k < row.size(); ++k) {
      text += number_text(row(k));
      text += k + 1 < row.size() ? '\t' : '\n';
    }
  }
  append_element(element_, document_, name, text);
}

void XmlDumper::vector(const char* name, StoredVector& vector) {
  std::string text = "\n";
  for (const float value : vector.map()) text += number_text(value) + '\n';
  append_element(element_, document_, name, text);
}

void XmlDumper::column(const char* name, StoredVector& column, const char*) { vector(name, column); }

void XmlDumper::quantized(const char* name, QuantizedMatrix& matrix) {
  matrix.dump_xml(append_element(element_, document_, name), document_);
}

void XmlDumper::number(const char* name, float& value, float) {
  append_attribute(element_, document_, name, number_text(value));
}

void XmlDumper::integer(const char* name, std::int32_t& value, std::int32_t) {
  append_attribute(element_, document_, name, number_text(value));
}

void XmlDumper::text(const char* name, std::string& value) {
  if (!value.empty()) append_attribute(element_, document_, name, value);
}

void ParameterCounter::add_product(std::int64_t rows, std::int64_t cols) {
  const auto count = static_cast<std::uint64_t>(rows) * static_cast<std::uint64_t>(cols);
  size_.parameters += count;
  size_.multiply_adds += count;
}

void ParameterCounter::weight(const char*, Weight& weight) { add_product(weight.rows(), weight.cols()); }
void ParameterCounter::vector(const char*, StoredVector& vector) {
  size_.parameters += static_cast<std::uint64_t>(vector.size());
}
void ParameterCounter::column(const char* name, StoredVector& column, const char*) { vector(name, column); }
void ParameterCounter::quantized(const char*, QuantizedMatrix& matrix) {
  add_product(matrix.size_major, matrix.size_minor);
}
void ParameterCounter::number(const char*, float&, float) { ++size_.parameters; }
void ParameterCounter::integer(const char*, std::int32_t&, std::int32_t) {}
void ParameterCounter::text(const char*, std::string&) {}

}  // namespace meridane
