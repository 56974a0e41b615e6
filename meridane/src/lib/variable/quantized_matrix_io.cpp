// Stored forms of the 8-bit matrices.

#include <algorithm>
#include <limits>
#include <span>
#include <sstream>

#include "lib/variable/code_padding.h"
#include "meridane/error.h"
#include "meridane/io/binary.h"
#include "meridane/io/number_text.h"
#include "meridane/quantized_matrix.h"

namespace meridane {
namespace {

constexpr const char* kMatrix = "QuantizedMatrix";
constexpr const char* kVector = "QuantizedVector";

[[noreturn]] void raise_missing(const char* name, const char* owner) {
  raise("\"<%s>\" not found in \"%s\" ", name, owner);
}

[[noreturn]] void raise_contradiction(const char* owner) {
  raise<InvalidFormat>("invalid format (expected \"%s\")", owner);
}

std::string attribute(const XmlElement& element, const char* name, const char* owner) {
  const auto text = find_attribute(element, name);
  if (!text) raise_missing(name, owner);
  return *text;
}

std::int32_t int_attribute(const XmlElement& element, const char* name, const char* owner) {
  return int_of(attribute(element, name, owner));
}

/// Calls take(text) for each of the values between blanks; there must be exactly `count`.
template <class Take>
void each_value(const std::string& text, std::size_t count, const char* owner, Take take) {
  constexpr std::string_view kBlanks = " \t\r\n";
  std::size_t found = 0;
  for (std::size_t at = text.find_first_not_of(kBlanks); at < text.size(); at = text.find_first_not_of(kBlanks, at)) {
    const std::size_t end = std::min(text.find_first_of(kBlanks, at), text.size());
    if (found++ == count) break;
    take(std::string_view(text).substr(at, end - at));
    at = end;
  }
  if (found != count) raise_contradiction(owner);
}

std::string child_text(const XmlElement& element, const char* name, const char* owner) {
  const XmlElement* const child = find_child(element, name);
  if (child == nullptr) raise_missing(name, owner);
  return element_text(*child);
}

/// Codes of a text. As many as there must be can't be more than the text has characters.
Codes codes_of(const std::string& text, std::uint64_t count, const char* owner) {
  if (count > text.size()) raise_contradiction(owner);
  Codes codes;
  codes.reserve(count);
  each_value(text, count, owner, [&](std::string_view value) {
    const int code = int_of(value);
    if (code < 0 || code > 255) raise_contradiction(owner);
    codes.push_back(static_cast<std::uint8_t>(code));
  });
  return codes;
}

template <class Values, class Parse>
Values values_of(const std::string& text, std::int32_t count, const char* owner, Parse parse) {
  if (static_cast<std::uint64_t>(count) > text.size()) raise_contradiction(owner);
  Values values(count);
  Eigen::Index i = 0;
  each_value(text, static_cast<std::size_t>(count), owner, [&](std::string_view value) { values(i++) = parse(value); });
  return values;
}

template <class Values>
std::string joined(const Values& values) {
  std::string text;
  for (const auto value : values) {
    if (!text.empty()) text += ' ';
    text += number_text(value);
  }
  return text;
}

bool are_zero(std::span<const std::uint8_t> codes) {
  return std::all_of(codes.begin(), codes.end(), [](std::uint8_t code) { return code == 0; });
}

std::int32_t sum_of(std::span<const std::uint8_t> codes) {
  std::uint32_t sum = 0;
  for (const std::uint8_t code : codes) sum += code;
  return static_cast<std::int32_t>(sum);
}

bool is_padded_size(std::int32_t size, std::int32_t padded, std::int64_t group) {
  return size >= 0 && padded == rounded_up(size, group);
}

template <class Values>
Values read_values(std::istream& stream, std::int64_t count, std::int32_t expected) {
  if (count != expected) raise_contradiction(kMatrix);
  expect_left(stream, static_cast<std::uint64_t>(count), 4);
  Values values(count);
  read_bytes(stream, values.data(), static_cast<std::uint64_t>(count) * 4);
  return values;
}

}  // namespace

QuantizedVector::QuantizedVector(const XmlElement& element)
    : size_minor(int_attribute(element, "size_minor", kVector)),
      align_size_minor(int_attribute(element, "align_size_minor", kVector)) {
  qparam = float_of(attribute(element, "qparam", kVector));
  rqpmin = int_attribute(element, "rqpmin", kVector);
  sumqp = int_attribute(element, "sumqp", kVector);
  const std::string codes = child_text(element, "quantized_param", kVector);
  if (!is_padded_size(size_minor, align_size_minor, kCodeGroup)) raise_contradiction(kVector);
  quantized_param = codes_of(codes, static_cast<std::uint64_t>(align_size_minor), kVector);
  const std::span all(quantized_param);
  if (!are_zero(all.subspan(static_cast<std::size_t>(size_minor))) || sum_of(all) != sumqp) {
    raise_contradiction(kVector);
  }
}

void QuantizedVector::dump_xml(XmlElement& element, XmlDocument& document) const {
  append_attribute(element, document, "size_minor", number_text(size_minor));
  append_attribute(element, document, "align_size_minor", number_text(align_size_minor));
  append_attribute(element, document, "qparam", number_text(qparam));
  append_attribute(element, document, "rqpmin", number_text(rqpmin));
  append_attribute(element, document, "sumqp", number_text(sumqp));
  append_element(element, document, "quantized_param", joined(quantized_param));
}

/// Sizes, padding and sums must be those that quantizing gives; a product relies on each of them.
void QuantizedMatrix::check() const {
  const auto minor = static_cast<std::size_t>(align_size_minor);
  for (std::int32_t i = 0; i < align_size_major; ++i) {
    const auto line = std::span(quantized_param).subspan(static_cast<std::size_t>(i) * minor, minor);
    const bool real = i < size_major;
    if (!are_zero(line.subspan(real ? static_cast<std::size_t>(size_minor) : 0))) raise_contradiction(kMatrix);
    if (real && sum_of(line) != sumqp(i)) raise_contradiction(kMatrix);
  }
}

QuantizedMatrix QuantizedMatrix::load_binary(std::istream& stream) {
  QuantizedMatrix matrix;
  matrix.size_major = read_number<std::int32_t>(stream);
  matrix.size_minor = read_number<std::int32_t>(stream);
  matrix.align_size_major = read_number<std::int32_t>(stream);
  matrix.align_size_minor = read_number<std::int32_t>(stream);
  const bool left = is_padded_size(matrix.size_major, matrix.align_size_major, kLineGroup);
  const bool right = is_padded_size(matrix.size_major, matrix.align_size_major, 1);
  if (!(left || right) || !is_padded_size(matrix.size_minor, matrix.align_size_minor, kCodeGroup)) {
    raise_contradiction(kMatrix);
  }
  const auto rows = read_number<std::int64_t>(stream);
  if (read_number<std::int64_t>(stream) != 1) raise_contradiction(kMatrix);
  matrix.qvector = read_values<Vector>(stream, rows, matrix.size_major);
  matrix.rqpmin = read_values<IntVector>(stream, read_number<std::int64_t>(stream), matrix.size_major);
  matrix.sumqp = read_values<IntVector>(stream, read_number<std::int64_t>(stream), matrix.size_major);
  const auto lines = static_cast<std::uint64_t>(matrix.align_size_major);
  const auto codes = static_cast<std::uint64_t>(matrix.align_size_minor);
  expect_left(stream, lines * codes, 1);
  matrix.quantized_param.resize(lines * codes);
  read_bytes(stream, matrix.quantized_param.data(), lines * codes);
  matrix.check();
  if (left) matrix.pack();
  return matrix;
}

void QuantizedMatrix::dump_binary(std::ostream& stream) const {
  for (const std::int32_t size : {size_major, size_minor, align_size_major, align_size_minor}) {
    write_number(stream, size);
  }
  write_number<std::int64_t>(stream, qvector.rows());
  write_number<std::int64_t>(stream, qvector.cols());
  write_bytes(stream, qvector.data(), static_cast<std::uint64_t>(qvector.size()) * sizeof(float));
  for (const IntVector* values : {&rqpmin, &sumqp}) {
    write_number<std::int64_t>(stream, values->size());
    write_bytes(stream, values->data(), static_cast<std::uint64_t>(values->size()) * sizeof(std::int32_t));
  }
  write_bytes(stream, quantized_param.data(), quantized_param.size());
}

QuantizedMatrix QuantizedMatrix::load_xml(const XmlElement& element) {
  QuantizedMatrix matrix;
  matrix.size_major = int_attribute(element, "size_major", kMatrix);
  matrix.size_minor = int_attribute(element, "size_minor", kMatrix);
  matrix.align_size_major = int_attribute(element, "align_size_major", kMatrix);
  matrix.align_size_minor = int_attribute(element, "align_size_minor", kMatrix);
  const std::string scales = child_text(element, "qvector", kMatrix);
  const std::string zeros = child_text(element, "rqpmin", kMatrix);
  const std::string codes = child_text(element, "quantized_param", kMatrix);
  const bool left = is_padded_size(matrix.size_major, matrix.align_size_major, kLineGroup);
  const bool right = is_padded_size(matrix.size_major, matrix.align_size_major, 1);
  if (!(left || right) || !is_padded_size(matrix.size_minor, matrix.align_size_minor, kCodeGroup)) {
    raise_contradiction(kMatrix);
  }
  matrix.qvector = values_of<Vector>(scales, matrix.size_major, kMatrix, float_of);
  matrix.rqpmin = values_of<IntVector>(zeros, matrix.size_major, kMatrix, int_of);
  const auto minor = static_cast<std::uint64_t>(matrix.align_size_minor);
  matrix.quantized_param = codes_of(codes, static_cast<std::uint64_t>(matrix.align_size_major) * minor, kMatrix);
  if (const XmlElement* sums = find_child(element, "sumqp")) {
    matrix.sumqp = values_of<IntVector>(element_text(*sums), matrix.size_major, kMatrix, int_of);
  } else {  // they follow from the codes
    matrix.sumqp.resize(matrix.size_major);
    for (std::int32_t i = 0; i < matrix.size_major; ++i) {
      matrix.sumqp(i) = sum_of(std::span(matrix.quantized_param).subspan(static_cast<std::size_t>(i) * minor, minor));
    }
  }
  matrix.check();
  if (left) matrix.pack();
  return matrix;
}

void QuantizedMatrix::dump_xml(XmlElement& element, XmlDocument& document) const {
  append_attribute(element, document, "size_major", number_text(size_major));
  append_attribute(element, document, "size_minor", number_text(size_minor));
  append_attribute(element, document, "align_size_major", number_text(align_size_major));
  append_attribute(element, document, "align_size_minor", number_text(align_size_minor));
  append_element(element, document, "qvector", joined(qvector));
  append_element(element, document, "rqpmin", joined(rqpmin));
  append_element(element, document, "sumqp", joined(sumqp));
  append_element(element, document, "quantized_param", joined(quantized_param));
}

}  // namespace meridane
