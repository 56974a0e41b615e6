#include "lib/framescore/nnlayer/parameter_visitors.h"

#include <algorithm>
#include <charconv>
#include <optional>

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

/// The integer of an attribute's text; none for anything else.
template <class Integer>
std::optional<Integer> parsed(const std::string& text) {
  Integer value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

/// The integers of a text, between blanks and commas; none if there is anything else.
std::vector<std::int32_t> integers_of(const std::string& text) {
  constexpr const char* kBetween = " \t\r\n,";
  std::vector<std::int32_t> values;
  for (std::size_t at = text.find_first_not_of(kBetween); at < text.size(); at = text.find_first_not_of(kBetween, at)) {
    const std::size_t end = std::min(text.find_first_of(kBetween, at), text.size());
    const auto value = parsed<std::int32_t>(text.substr(at, end - at));
    if (!value) return {};
    values.push_back(*value);
    at = end;
  }
  return values;
}

void expect_weight(const QuantizedMatrix& matrix) {
  if (!matrix.is_left()) raise<InvalidFormat>("invalid format (expected \"QuantizedMatrix\")");
}

std::string prefix_of(const char* name, std::int32_t i) { return formatted("%s[%d]::", name, i); }

}  // namespace

void raise_incorrect(const char* name, const std::string& type) {
  raise("Incorrect \"%s\" for \"%s\"", name, type.c_str());
}

void raise_wrong_type(const std::string& class_name) {
  raise("%s::load_xml() has been called for a wrong layer type - indicating an implementation error",
        class_name.c_str());
}

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
  skip_matrix_values(stream_, coding_, size.rows * size.cols - count);  // the rows behind row 0
  vector.set(std::move(block), count);
}

void BinaryLoader::quantized(const char*, QuantizedMatrix& matrix) {
  matrix = QuantizedMatrix::load_binary(stream_);
  expect_weight(matrix);
}
void BinaryLoader::number(const char*, float& value, float) { value = read_number<float>(stream_); }
void BinaryLoader::integer(const char*, std::int32_t& value, std::int32_t) {
  value = read_number<std::int32_t>(stream_);
}
void BinaryLoader::whole(const char* name, std::int32_t& value, std::int32_t, std::int32_t least) {
  value = read_number<std::int32_t>(stream_);
  if (value < least) raise_incorrect(name, type_);
}
void BinaryLoader::flag(const char*, bool& value, bool) { value = read_number<std::int32_t>(stream_) != 0; }
void BinaryLoader::size(const char*, std::uint64_t& value, std::uint64_t) {
  value = read_number<std::uint64_t>(stream_);
}
void BinaryLoader::sizes(const char* name, std::span<std::int32_t> values, std::int32_t least, const char*, bool) {
  for (std::int32_t& value : values) whole(name, value, 0, least);
}
void BinaryLoader::parts(const char* name, std::int32_t& count, const VisitPart& visit) {
  whole(name, count, 0, 1);
  for (std::int32_t i = 0; i < count; ++i) visit(*this, i, prefix_of(name, i));
}
void BinaryLoader::implied(const char*, std::int64_t) {}
void BinaryLoader::stated(const char*, std::int32_t& value) { value = 0; }
void BinaryLoader::mandatory(const char*, std::int32_t& value) { value = read_number<std::int32_t>(stream_); }
void BinaryLoader::word(const char*, std::int32_t& value, const Words&) { value = read_number<std::int32_t>(stream_); }
void BinaryLoader::text(const char*, std::string& value) { value = read_string(stream_); }
void BinaryLoader::mandatory_text(const char* name, std::string& value) { text(name, value); }

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
void BinaryDumper::whole(const char*, std::int32_t& value, std::int32_t, std::int32_t) { write_number(stream_, value); }
void BinaryDumper::flag(const char*, bool& value, bool) { write_number<std::int32_t>(stream_, value ? 1 : 0); }
void BinaryDumper::size(const char*, std::uint64_t& value, std::uint64_t) { write_number(stream_, value); }
void BinaryDumper::sizes(const char*, std::span<std::int32_t> values, std::int32_t, const char*, bool) {
  for (const std::int32_t value : values) write_number(stream_, value);
}
void BinaryDumper::parts(const char* name, std::int32_t& count, const VisitPart& visit) {
  write_number(stream_, count);
  for (std::int32_t i = 0; i < count; ++i) visit(*this, i, prefix_of(name, i));
}
void BinaryDumper::implied(const char*, std::int64_t) {}
void BinaryDumper::stated(const char*, std::int32_t&) {}
void BinaryDumper::mandatory(const char*, std::int32_t& value) { write_number(stream_, value); }
void BinaryDumper::word(const char*, std::int32_t& value, const Words&) { write_number(stream_, value); }
void BinaryDumper::text(const char*, std::string& value) { write_string(stream_, value); }
void BinaryDumper::mandatory_text(const char* name, std::string& value) { text(name, value); }

const XmlElement& XmlLoader::child(const char* name) const {
  const XmlElement* const found = find_child(element(), name);
  if (found == nullptr) {
    raise<MissingTagError>("\"<%s>\" not found in a layer of type \"%s\" ", name, places_.back().type.c_str());
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
  expect_weight(matrix);
}

void XmlLoader::number(const char* name, float& value, float otherwise) {
  const auto text = find_attribute(element(), name);
  value = text ? float_of(*text) : otherwise;
}

void XmlLoader::integer(const char* name, std::int32_t& value, std::int32_t otherwise) {
  const auto text = find_attribute(element(), name);
  value = text ? int_of(*text) : otherwise;
}

void XmlLoader::whole(const char* name, std::int32_t& value, std::int32_t otherwise, std::int32_t least) {
  const auto text = find_attribute(element(), name);
  const auto found = text ? parsed<std::int32_t>(*text) : otherwise;
  if (!found || *found < least) raise_incorrect(name, places_.back().type);
  value = *found;
}

void XmlLoader::flag(const char* name, bool& value, bool otherwise) {
  const auto text = find_attribute(element(), name);
  if (!text) {
    value = otherwise;
  } else if (*text == "true" || *text == "True") {
    value = true;
  } else if (*text == "false" || *text == "False") {
    value = false;
  } else {
    const auto digits = parsed<std::int32_t>(*text);
    if (!digits) raise_incorrect(name, places_.back().type);
    value = *digits != 0;
  }
}

void XmlLoader::size(const char* name, std::uint64_t& value, std::uint64_t otherwise) {
  const auto text = find_attribute(element(), name);
  const auto found = text ? parsed<std::uint64_t>(*text) : otherwise;
  if (!found) raise_incorrect(name, places_.back().type);
  value = *found;
}

void XmlLoader::sizes(const char* name, std::span<std::int32_t> values, std::int32_t least, const char* message,
                      bool one_for_all) {
  const std::vector<std::int32_t> found = integers_of(find_attribute(element(), name).value_or(""));
  const bool one = one_for_all && found.size() == 1;
  if (found.size() != values.size() && !one) raise("%s", message);
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = found[one ? 0 : i];
    if (values[i] < least) raise_incorrect(name, places_.back().type);
  }
}

void XmlLoader::parts(const char* name, std::int32_t& count, const VisitPart& visit) {
  count = 0;
  for (const XmlElement* part = &child(name); part != nullptr; part = next_of_name(*part)) {
    places_.push_back({places_.back().type, part});
    visit(*this, count++, "");
    places_.pop_back();
  }
}

void XmlLoader::implied(const char* name, std::int64_t value) {
  const auto text = find_attribute(element(), name);
  if (text && *text != std::to_string(value)) raise_incorrect(name, places_.back().type);
}

void XmlLoader::stated(const char* name, std::int32_t& value) { whole(name, value, 0, 0); }

void XmlLoader::mandatory(const char* name, std::int32_t& value) { value = int_of(fetch_attribute(element(), name)); }

void XmlLoader::word(const char* name, std::int32_t& value, const Words& words) {
  value = words.value(find_attribute(element(), name));
}

void XmlLoader::begin(const char* name, const char* type) {
  const XmlElement& inner = child(name);
  if (type != nullptr && fetch_attribute(inner, "type") != type) raise_wrong_type(std::string(type) + "Layer");
  places_.push_back({type != nullptr ? type : places_.back().type, &inner});
}

void XmlLoader::end() { places_.pop_back(); }

void XmlLoader::text(const char* name, std::string& value) { value = find_attribute(element(), name).value_or(""); }
void XmlLoader::mandatory_text(const char* name, std::string& value) { value = fetch_attribute(element(), name); }

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
  append_element(element(), document_, name, text);
}

void XmlDumper::vector(const char* name, StoredVector& vector) {
  std::string text = "\n";
  for (const float value : vector.map()) text += number_text(value) + '\n';
  append_element(element(), document_, name, text);
}

void XmlDumper::column(const char* name, StoredVector& column, const char*) { vector(name, column); }

void XmlDumper::quantized(const char* name, QuantizedMatrix& matrix) {
  matrix.dump_xml(append_element(element(), document_, name), document_);
}

void XmlDumper::number(const char* name, float& value, float) {
  append_attribute(element(), document_, name, number_text(value));
}

void XmlDumper::integer(const char* name, std::int32_t& value, std::int32_t) {
  append_attribute(element(), document_, name, number_text(value));
}

void XmlDumper::whole(const char* name, std::int32_t& value, std::int32_t, std::int32_t) {
  append_attribute(element(), document_, name, number_text(value));
}

void XmlDumper::flag(const char* name, bool& value, bool) {
  append_attribute(element(), document_, name, value ? "true" : "false");
}

void XmlDumper::size(const char* name, std::uint64_t& value, std::uint64_t) {
  append_attribute(element(), document_, name, std::to_string(value));
}

void XmlDumper::sizes(const char* name, std::span<std::int32_t> values, std::int32_t, const char*, bool) {
  std::string text;
  for (const std::int32_t value : values) {
    if (!text.empty()) text += ' ';
    text += number_text(value);
  }
  append_attribute(element(), document_, name, text);
}

void XmlDumper::parts(const char* name, std::int32_t& count, const VisitPart& visit) {
  for (std::int32_t i = 0; i < count; ++i) {
    elements_.push_back(&append_element(element(), document_, name));
    visit(*this, i, "");
    elements_.pop_back();
  }
}

void XmlDumper::implied(const char* name, std::int64_t value) {
  append_attribute(element(), document_, name, std::to_string(value));
}
void XmlDumper::stated(const char* name, std::int32_t& value) { integer(name, value, 0); }
void XmlDumper::mandatory(const char* name, std::int32_t& value) { integer(name, value, 0); }

void XmlDumper::word(const char* name, std::int32_t& value, const Words& words) {
  append_attribute(element(), document_, name, words.word(value));
}

void XmlDumper::begin(const char* name, const char* type) {
  XmlElement& inner = append_element(element(), document_, name);
  if (type != nullptr) append_attribute(inner, document_, "type", type);
  elements_.push_back(&inner);
}

void XmlDumper::end() { elements_.pop_back(); }

void XmlDumper::text(const char* name, std::string& value) {
  if (!value.empty()) append_attribute(element(), document_, name, value);
}
void XmlDumper::mandatory_text(const char* name, std::string& value) {
  append_attribute(element(), document_, name, value);
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
void ParameterCounter::whole(const char*, std::int32_t&, std::int32_t, std::int32_t) {}
void ParameterCounter::flag(const char*, bool&, bool) {}
void ParameterCounter::size(const char*, std::uint64_t&, std::uint64_t) {}
void ParameterCounter::sizes(const char*, std::span<std::int32_t>, std::int32_t, const char*, bool) {}
void ParameterCounter::parts(const char*, std::int32_t& count, const VisitPart& visit) {
  for (std::int32_t i = 0; i < count; ++i) visit(*this, i, "");
}
void ParameterCounter::implied(const char*, std::int64_t) {}
void ParameterCounter::stated(const char*, std::int32_t&) {}
void ParameterCounter::mandatory(const char*, std::int32_t&) {}
void ParameterCounter::word(const char*, std::int32_t&, const Words&) {}
void ParameterCounter::text(const char*, std::string&) {}
void ParameterCounter::mandatory_text(const char*, std::string&) {}

}  // namespace meridane
