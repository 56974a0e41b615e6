#pragma once

#include "enhance/block_dump.h"

namespace sonivo {

/// Opens for reading; null for what can't be. A pipe can't: its writer may never come, and the caller holds a lock.
/// Takes no memory but what a file needs.
File open_to_read(const char* name);

}  // namespace sonivo
