#pragma once

#include <string>

#include "meridane/matrix.h"

namespace sonivo::tool {

/// A matrix as text: a line per row (feature), columns are frames. Values stand between tabs, blanks or commas; empty
/// lines and those that begin with # don't count. Throws Failure.
meridane::Matrix read_matrix(const std::string& name);

/// The same text, between tabs, nine significant digits. A matrix without frames has no text.
std::string matrix_text(const meridane::Matrix& matrix);

}  // namespace sonivo::tool
