#include "lib/frontend/settings.h"

#include <algorithm>
#include <rapidxml/rapidxml.hpp>
#include <stdexcept>

#include "meridane/io/logging.h"
#include "meridane/io/number_text.h"
#include "meridane/io/script.h"

namespace meridane {
namespace {

std::string without_blanks(const std::string& text) {
  constexpr const char* kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

}  // namespace

void expect_children(const XmlElement& element, std::initializer_list<const char*> names) {
  for (const XmlElement* child = element.first_node(); child != nullptr; child = child->next_sibling()) {
    if (child->type() != rapidxml::node_element) continue;
    const std::string name = element_name(*child);
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    raise("Unknown element \"%s\" in %s", name.c_str(), element_name(element).c_str());
  }
}

void expect_settings(const XmlElement& element, std::initializer_list<const char*> names) {
  expect_children(element, names);
  for (const char* const name : names) {
    const XmlElement* const first = find_child(element, name);
    if (first != nullptr && next_of_name(*first) != nullptr) raise("Setting \"%s\" is given twice", name);
  }
}

std::optional<std::string> setting_text(const XmlElement& element, const char* name) {
  const XmlElement* const child = find_child(element, name);
  if (child == nullptr) return std::nullopt;
  return without_blanks(expand_script(element_text(*child)));
}

int whole_number(const std::string& text, Format malformed) {
  try {
    return int_of(text);
  } catch (const BaseRuntimeError&) {
    raise(malformed);
  }
}

float number(const std::string& text, Format malformed) {
  try {
    return float_of(text);
  } catch (const BaseRuntimeError&) {
    raise(malformed);
  }
}

int positive_setting(const XmlElement& element, const char* name, Format malformed, Format illegal) {
  const int value = whole_number(setting_text(element, name).value_or(""), malformed);
  if (value < 1) raise(illegal);
  return value;
}

RowMatrix matrix_setting(const XmlElement& element, const char* name, Format failed) {
  const XmlElement* const child = find_child(element, name);
  if (child == nullptr) raise(failed);
  try {
    return load_matrix_xml(*child);
  } catch (const ScriptError&) {
    throw;
  } catch (const std::runtime_error& error) {
    log(kLogWarning, [&] { return error.what(); });
    raise(failed);
  }
}

RowMatrix vector_setting(const XmlElement& element, const char* name, Format failed, Format not_vector) {
  RowMatrix matrix = matrix_setting(element, name, failed);
  if (matrix.cols() != 1 && matrix.rows() != 1) raise(not_vector);
  return matrix;
}

Eigen::Map<const Vector> values_of(const RowMatrix& matrix) { return {matrix.data(), matrix.size()}; }

void expect_size(const Vector& x, Eigen::Index size) {
  if (x.size() != size) raise<DimensionMismatchError>("number of dimentions of input data does not accord");
}

XmlElement& append_copy(XmlElement& parent, XmlDocument& document, const XmlElement& element) {
  XmlElement& copy = append_element(parent, document, element_name(element), element_text(element));
  for (const auto* attribute = element.first_attribute(); attribute != nullptr;
       attribute = attribute->next_attribute()) {
    append_attribute(copy, document, {attribute->name(), attribute->name_size()},
                     {attribute->value(), attribute->value_size()});
  }
  for (const XmlElement* child = element.first_node(); child != nullptr; child = child->next_sibling()) {
    if (child->type() == rapidxml::node_element) append_copy(copy, document, *child);
  }
  return copy;
}

}  // namespace meridane
