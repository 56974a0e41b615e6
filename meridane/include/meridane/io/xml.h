#pragma once

#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace rapidxml {
template <class Ch>
class xml_node;
template <class Ch>
class xml_document;
}  // namespace rapidxml

namespace meridane {

using XmlElement = rapidxml::xml_node<char>;
using XmlDocument = rapidxml::xml_document<char>;

/// A document together with the text that its elements point into.
class XmlFile {
 public:
  /// An empty document with the declaration version="1.0".
  XmlFile();
  /// Reads the stream to its end and parses it; throws "Failed to parse xml" for what is no document, and for elements
  /// that are nested deeper than 64; "The text has no end" for a device or a pipe that goes on and on.
  explicit XmlFile(std::istream& stream);
  XmlFile(XmlFile&&) noexcept;
  XmlFile& operator=(XmlFile&&) noexcept;
  ~XmlFile();

  XmlDocument& document() { return *document_; }
  const XmlElement* root() const;  ///< null where there is none
  void write(std::ostream& stream) const;

 private:
  std::vector<char> text_;  // its characters stay where they are when the file is moved
  std::unique_ptr<XmlDocument> document_;
};

std::string element_name(const XmlElement& element);
/// The first child of that name (any with an empty name), or null.
const XmlElement* find_child(const XmlElement& element, std::string_view name = {});
/// The next sibling of the same name, or null.
const XmlElement* next_of_name(const XmlElement& element);
/// All text directly in the element.
std::string element_text(const XmlElement& element);

std::optional<std::string> find_attribute(const XmlElement& element, std::string_view name);
/// Throws MissingTagError, "\"NAME\" i mandatory in ELEMENT", where there is none.
std::string fetch_attribute(const XmlElement& element, std::string_view name);

XmlElement& append_element(XmlElement& parent, XmlDocument& document, std::string_view name,
                           std::string_view text = {});
void append_attribute(XmlElement& element, XmlDocument& document, std::string_view name, std::string_view value);

}  // namespace meridane
