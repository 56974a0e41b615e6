#pragma once

#include <filesystem>

namespace sonivo::tool {

/// What belongs to the program and lies beside it: ../share/sonivo, with the folders "par" and "models".
std::filesystem::path share_folder();

}  // namespace sonivo::tool
