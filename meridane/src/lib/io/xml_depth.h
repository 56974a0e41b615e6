#pragma once

#include <cstddef>
#include <string_view>

namespace meridane {

/// At least how deep the elements of the text are nested, found without recursion: the parser calls itself for each
/// level, so that the depth of a document that isn't ours must be known before.
std::size_t xml_depth(std::string_view text);

}  // namespace meridane
