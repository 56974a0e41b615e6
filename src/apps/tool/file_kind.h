#pragma once

#include <string>

namespace sonivo::tool {

/// Why a file is not the model that is wanted: "it is a WAV file" and its like, where its first bytes tell that it is
/// something else, otherwise the reason that its reader gave. wanted_magic: what the wanted files' first bytes begin
/// with, such as "se".
std::string why_no_model(const std::string& path, const std::string& wanted_magic, const std::string& reason);

}  // namespace sonivo::tool
