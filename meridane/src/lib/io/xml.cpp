#include "meridane/io/xml.h"

#include <cstring>
#include <iterator>
#include <rapidxml/rapidxml.hpp>

#include "lib/io/xml_depth.h"
#include "meridane/error.h"
#include "meridane/io/binary.h"

// The printer uses these before it declares them.
namespace rapidxml::internal {
template <class Out, class Ch>
Out print_children(Out out, const xml_node<Ch>* node, int flags, int indent);
template <class Out, class Ch>
Out print_element_node(Out out, const xml_node<Ch>* node, int flags, int indent);
template <class Out, class Ch>
Out print_data_node(Out out, const xml_node<Ch>* node, int flags, int indent);
template <class Out, class Ch>
Out print_cdata_node(Out out, const xml_node<Ch>* node, int flags, int indent);
template <class Out, class Ch>
Out print_declaration_node(Out out, const xml_node<Ch>* node, int flags, int indent);
template <class Out, class Ch>
Out print_comment_node(Out out, const xml_node<Ch>* node, int flags, int indent);
template <class Out, class Ch>
Out print_doctype_node(Out out, const xml_node<Ch>* node, int flags, int indent);
template <class Out, class Ch>
Out print_pi_node(Out out, const xml_node<Ch>* node, int flags, int indent);
}  // namespace rapidxml::internal
#include <rapidxml/rapidxml_print.hpp>

namespace meridane {
namespace {

constexpr std::size_t kDeepestElement = 64;

const char* copy_into(XmlDocument& document, std::string_view text) {
  if (text.find('\0') != text.npos) raise("A document can't hold a character 0");  // it would end there
  // The pool gives no memory for nothing.
  if (text.empty()) return "";
  return document.allocate_string(text.data(), text.size());
}

std::vector<char> text_of(std::istream& stream) {
  constexpr std::size_t kAtOnce = 1u << 16;
  constexpr std::uint64_t kMostReserved = 1u << 30;
  std::uint64_t left = bytes_left(stream);
  std::vector<char> text;
  if (left < kMostReserved) text.reserve(static_cast<std::size_t>(left) + kAtOnce);
  for (std::size_t size = 0;;) {
    text.resize(size + kAtOnce);
    const auto now = static_cast<std::size_t>(stream.rdbuf()->sgetn(text.data() + size, kAtOnce));
    size += now;
    text.resize(size);
    if (now > left) raise_endless();
    left -= now;
    if (now == 0) return text;
  }
}

}  // namespace

XmlFile::XmlFile() : document_(std::make_unique<XmlDocument>()) {
  XmlElement* declaration = document_->allocate_node(rapidxml::node_declaration);
  document_->append_node(declaration);
  append_attribute(*declaration, *document_, "version", "1.0");
}

XmlFile::XmlFile(std::istream& stream) : text_(text_of(stream)), document_(std::make_unique<XmlDocument>()) {
  if (xml_depth({text_.data(), text_.size()}) > kDeepestElement) raise("Failed to parse xml");
  text_.push_back('\0');
  try {
    document_->parse<rapidxml::parse_validate_closing_tags>(text_.data());
  } catch (const rapidxml::parse_error&) {
    raise("Failed to parse xml");
  }
}

XmlFile::XmlFile(XmlFile&&) noexcept = default;
XmlFile& XmlFile::operator=(XmlFile&&) noexcept = default;
XmlFile::~XmlFile() = default;

const XmlElement* XmlFile::root() const { return find_child(*document_); }

void XmlFile::write(std::ostream& stream) const {
  rapidxml::print(std::ostreambuf_iterator<char>(stream), static_cast<const XmlElement&>(*document_), 0);
}

std::string element_name(const XmlElement& element) { return {element.name(), element.name_size()}; }

const XmlElement* find_child(const XmlElement& element, std::string_view name) {
  for (const XmlElement* child = element.first_node(); child != nullptr; child = child->next_sibling()) {
    if (child->type() != rapidxml::node_element) continue;
    if (name.empty() || element_name(*child) == name) return child;
  }
  return nullptr;
}

const XmlElement* next_of_name(const XmlElement& element) {
  return element.next_sibling(element.name(), element.name_size());
}

std::string element_text(const XmlElement& element) {
  std::string text;
  for (const XmlElement* child = element.first_node(); child != nullptr; child = child->next_sibling()) {
    if (child->type() == rapidxml::node_data || child->type() == rapidxml::node_cdata) {
      text.append(child->value(), child->value_size());
    }
  }
  return text;
}

std::optional<std::string> find_attribute(const XmlElement& element, std::string_view name) {
  if (name.empty()) return std::nullopt;
  const auto* attribute = element.first_attribute(name.data(), name.size());
  if (attribute == nullptr) return std::nullopt;
  return std::string(attribute->value(), attribute->value_size());
}

std::string fetch_attribute(const XmlElement& element, std::string_view name) {
  auto value = find_attribute(element, name);
  if (!value) {
    raise<MissingTagError>("\"%s\" i mandatory in %s", std::string(name).c_str(), element_name(element).c_str());
  }
  return *std::move(value);
}

XmlElement& append_element(XmlElement& parent, XmlDocument& document, std::string_view name, std::string_view text) {
  XmlElement* element = document.allocate_node(rapidxml::node_element, copy_into(document, name), nullptr, name.size());
  if (!text.empty()) {
    element->append_node(
        document.allocate_node(rapidxml::node_data, nullptr, copy_into(document, text), 0, text.size()));
  }
  parent.append_node(element);
  return *element;
}

void append_attribute(XmlElement& element, XmlDocument& document, std::string_view name, std::string_view value) {
  element.append_attribute(
      document.allocate_attribute(copy_into(document, name), copy_into(document, value), name.size(), value.size()));
}

}  // namespace meridane
