#pragma once

#include <optional>
#include <string>

#include "classic/param_blobs.h"

namespace sonivo::classic {

// Whether a chain can run on a blob, wherever it came from: false for one that would make a chain read or write outside
// of its arrays, loop without bound or divide by an empty band, or that has numbers which would stay in its states for
// ever. Says nothing about how it would sound, nor about its version.

bool usable(const KeyCancelParam& param);
bool usable(const BeamFormingKeyCancelParam& param);

/// The first rule that the blob breaks, as a clause such as "the hop of the noise path is not 192"; nothing when
/// usable.
std::optional<std::string> first_fault(const KeyCancelParam& param);
std::optional<std::string> first_fault(const BeamFormingKeyCancelParam& param);

}  // namespace sonivo::classic
