#pragma once

#include "classic/param_blobs.h"

namespace sonivo::classic {

// Whether a chain can run on a blob, wherever it came from: false for one that would make a chain read or write outside
// of its arrays, loop without bound or divide by an empty band. Says nothing about how it would sound, nor about its
// version.

bool usable(const KeyCancelParam& param);
bool usable(const BeamFormingKeyCancelParam& param);

/// The first rule that the blob breaks, as a clause such as "the hop of the noise path is not 192"; null when usable.
const char* first_fault(const KeyCancelParam& param);
const char* first_fault(const BeamFormingKeyCancelParam& param);

}  // namespace sonivo::classic
