#pragma once

#include "enhance/block_dump.h"

namespace sonivo {

/// Opens a file for reading; null for what can't be, and for what is no file: the writer of a pipe may never come, and
/// the caller holds a lock.
/// Takes no memory but what a file needs.
File open_to_read(const char* name);

}  // namespace sonivo
