#pragma once

#include <Eigen/Core>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>

#include "meridane/io/xml.h"

// Numbers of statistics: sums over long recordings want double precision.

namespace meridane {

/// The shortest text that reads as the same number again, for double and integers of 32 and 64 bits.
template <class Number>
std::string text_of(Number value);
/// Throws "Invalid number \"TEXT\"" for a text that isn't one number of that type, whole.
template <class Number>
Number number_of(std::string_view text);

using DoubleMatrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

/// rows, columns (64 bits, signed, not negative), values of 8 bytes row after row.
DoubleMatrix load_double_matrix(std::istream& stream);
void dump_double_matrix(std::ostream& stream, const DoubleMatrix& matrix);
/// As text, a line for each row.
DoubleMatrix load_double_matrix(const XmlElement& element);
void dump_double_matrix(XmlElement& parent, XmlDocument& document, std::string_view name, const DoubleMatrix& matrix);

}  // namespace meridane
