#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "meridane/io/xml.h"
#include "meridane/matrix.h"

// The stored forms of matrices that all layer records share.

namespace meridane {

/// How a record stores the values of its matrices.
enum class MatrixCoding {
  dense,  ///< single precision
  half,   ///< binary16
};

/// Head of a binary matrix. Both positive, and the values are there: read_matrix_size has looked.
struct MatrixSize {
  Eigen::Index rows;
  Eigen::Index cols;
};

/// Throws "Failed to read matrix binary" for a size that isn't positive or doesn't fit into an index; a size beyond the
/// end of the stream counts as reading past it.
MatrixSize read_matrix_size(std::istream& stream, MatrixCoding coding);
/// The next values of the matrix, `count` of them, row after row.
void read_matrix_values(std::istream& stream, MatrixCoding coding, float* values, Eigen::Index count);

/// Leaves the next values out.
void skip_matrix_values(std::istream& stream, MatrixCoding coding, Eigen::Index count);

void write_matrix_size(std::ostream& stream, MatrixSize size);
void write_matrix_values(std::ostream& stream, MatrixCoding coding, const float* values, Eigen::Index count);

using RowMatrix = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

/// rows, columns (64 bits, signed), values row after row.
RowMatrix load_matrix_bin(std::istream& stream);
void dump_matrix_bin(std::ostream& stream, const RowMatrix& matrix);

/// Lines of numbers between tabs, blanks and commas; empty lines and those that begin with # don't count. "Column-size
/// error" for a line of another length than the first, "Empty matrix (ncol == 0)" without any, "The text has no end"
/// for a device or a pipe that goes on and on.
RowMatrix load_matrix_text(std::istream& stream);

/// The matrix of an element: its text, or the file that its attribute `ref` names; attribute `type` says which form.
RowMatrix load_matrix_xml(const XmlElement& element);

/// Opens a file for reading, the standard input for "-"; throws "resource not found: PATH", for a folder too.
class RefInput {
 public:
  explicit RefInput(const std::string& path);
  ~RefInput();
  RefInput(const RefInput&) = delete;
  RefInput& operator=(const RefInput&) = delete;
  std::istream& stream() { return *stream_; }

 private:
  std::unique_ptr<std::istream> file_;
  std::istream* stream_;
};
RefInput ref_input_open(const std::string& path);

/// Opens a file for writing, the standard output for "-"; throws "resource cannot be opened: PATH".
class RefOutput {
 public:
  explicit RefOutput(const std::string& path);
  ~RefOutput();
  RefOutput(const RefOutput&) = delete;
  RefOutput& operator=(const RefOutput&) = delete;
  std::ostream& stream() { return *stream_; }

 private:
  std::unique_ptr<std::ostream> file_;
  std::ostream* stream_;
};
RefOutput ref_output_open(const std::string& path);

}  // namespace meridane
