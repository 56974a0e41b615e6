#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "meridane/io/matrix.h"

// What files of parameters have in common.

namespace meridane {

bool is_xml(const std::string& mime);

/// Reads 8 bytes; throws InvalidFormat, "invalid format (expected \"DESCRIPTION\")", if they aren't the magic.
void expect_magic(std::istream& stream, const char* magic, const char* description);
void write_magic(std::ostream& stream, const char* magic);

/// The root of a document, which has that name and magic.
const XmlElement& expect_root(const XmlFile& file, const char* name, const char* magic);
XmlElement& append_root(XmlFile& file, const char* name, const char* magic);

/// The child of that name; throws "couldn't find \"NAME\" tag" without.
const XmlElement& expect_child(const XmlElement& element, const char* name);
std::vector<const XmlElement*> children(const XmlElement& element, const char* name);

/// The column of a matrix of one column, else row 0.
Vector vector_of(const RowMatrix& matrix);
void append_matrix(XmlElement& parent, XmlDocument& document, const char* name, const RowMatrix& matrix);

}  // namespace meridane
