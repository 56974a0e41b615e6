#pragma once

#include <ostream>

#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Every field of a blob, one element per line: byte offset, name, value. Windows and filter spectra are one line each
/// with their ends. Param is KeyCancelParam or BeamFormingKeyCancelParam.
template <typename Param>
void list_fields(std::ostream& output, const Param& param);

}  // namespace sonivo::classic
