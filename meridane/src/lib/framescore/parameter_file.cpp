#include "lib/framescore/parameter_file.h"

#include <array>
#include <cstring>
#include <rapidxml/rapidxml.hpp>

#include "meridane/error.h"
#include "meridane/io/binary.h"
#include "meridane/io/number_text.h"

namespace meridane {
namespace {

constexpr std::size_t kMagicLength = 8;

}  // namespace

bool is_xml(const std::string& mime) { return mime.substr(0, mime.find(';')) == "text/xml"; }

void expect_magic(std::istream& stream, const char* magic, const char* description) {
  std::array<char, kMagicLength> found;
  read_bytes(stream, found.data(), found.size());
  if (std::memcmp(found.data(), magic, found.size()) != 0) {
    raise<InvalidFormat>("invalid format (expected \"%s\")", description);
  }
}

void write_magic(std::ostream& stream, const char* magic) { write_bytes(stream, magic, kMagicLength); }

const XmlElement& expect_root(const XmlFile& file, const char* name, const char* magic) {
  const XmlElement* const root = file.root();
  if (root == nullptr || element_name(*root) != name) raise<MissingTagError>("couldn't find \"%s\" tag", name);
  const std::string found = fetch_attribute(*root, "magic");
  if (found != magic) raise<InvalidFormat>("illegal magic number \"%s\"", found.c_str());
  return *root;
}

XmlElement& append_root(XmlFile& file, const char* name, const char* magic) {
  XmlElement& root = append_element(file.document(), file.document(), name);
  append_attribute(root, file.document(), "magic", magic);
  return root;
}

const XmlElement& expect_child(const XmlElement& element, const char* name) {
  const XmlElement* const child = find_child(element, name);
  if (child == nullptr) raise<MissingTagError>("couldn't find \"%s\" tag", name);
  return *child;
}

std::vector<const XmlElement*> children(const XmlElement& element, const char* name) {
  std::vector<const XmlElement*> found;
  for (const XmlElement* child = find_child(element, name); child != nullptr; child = next_of_name(*child)) {
    found.push_back(child);
  }
  return found;
}

Vector vector_of(const RowMatrix& matrix) {
  if (matrix.cols() == 1) return matrix.col(0);
  return matrix.row(0).transpose();
}

void append_matrix(XmlElement& parent, XmlDocument& document, const char* name, const RowMatrix& matrix) {
  std::string text = "\n";
  for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
    for (Eigen::Index k = 0; k < matrix.cols(); ++k) {
      text += number_text(matrix(i, k));
      text += k + 1 < matrix.cols() ? '\t' : '\n';
    }
  }
  append_element(parent, document, name, text);
}

}  // namespace meridane
