#pragma once

#include <initializer_list>
#include <optional>
#include <string>

#include "meridane/error.h"
#include "meridane/io/matrix.h"
#include "meridane/io/xml.h"

// Settings are the children of a node's element. Expressions in their texts and attributes are expanded.

namespace meridane {

/// The element holds children of these names alone: "Unknown element \"NAME\" in ELEMENT".
void expect_children(const XmlElement& element, std::initializer_list<const char*> names);
/// And each at most once: "Setting \"NAME\" is given twice".
void expect_settings(const XmlElement& element, std::initializer_list<const char*> names);

/// The text, without blanks around it; nothing without that child.
std::optional<std::string> setting_text(const XmlElement& element, const char* name);
/// Raises malformed unless the text is a whole number that fits.
int whole_number(const std::string& text, Format malformed);
/// Raises malformed unless the text is a number.
float number(const std::string& text, Format malformed);
/// A number that must be given and positive: malformed for none or something else, illegal below 1.
int positive_setting(const XmlElement& element, const char* name, Format malformed, Format illegal);

/// The matrix of a child that must be there; raises failed for whatever is wrong with it but its expressions.
RowMatrix matrix_setting(const XmlElement& element, const char* name, Format failed);
/// The same with one row or one column; else raises not_vector.
RowMatrix vector_setting(const XmlElement& element, const char* name, Format failed, Format not_vector);
/// The values of a matrix of one row or one column.
Eigen::Map<const Vector> values_of(const RowMatrix& matrix);

/// Throws DimensionMismatchError, "number of dimentions of input data does not accord", for another size.
void expect_size(const Vector& x, Eigen::Index size);

/// The element and all in it, as the last child of `parent`.
XmlElement& append_copy(XmlElement& parent, XmlDocument& document, const XmlElement& element);

}  // namespace meridane
