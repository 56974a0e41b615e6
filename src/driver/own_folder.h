#pragma once

#include <filesystem>

#include "base/descriptor.h"

namespace sonivo::driver {

/// A folder of this user, which is made (mode 0700, with those above it) if it isn't there. std::runtime_error when
/// there can be none, or the one there belongs to somebody else or can be written to by others: what lies in it would
/// be theirs to choose.
Descriptor open_own_folder(const std::filesystem::path& path);

}  // namespace sonivo::driver
