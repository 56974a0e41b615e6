#pragma once

#include <optional>
#include <string>

#include "classic/param_blobs.h"

namespace sonivo::classic {

/// The first number of a blob that would stay in a chain's states for ever, because it is not finite or makes a filter
/// grow without end, or that is beyond 1e10 (200 dB), as a clause that names its key: "ns_nr.vol makes no finite
/// number". Numbers that no chain looks at, such as those behind the last band, may be anything. The counts of the blob
/// must be those of a usable one.
std::optional<std::string> harmful_number(const KeyCancelParam& param);
std::optional<std::string> harmful_number(const BeamFormingKeyCancelParam& param);

}  // namespace sonivo::classic
