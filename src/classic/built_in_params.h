#pragma once

#include <span>

#include "classic/par_list.h"
#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Parameter set number 2: noise reduction (and key reduction) of one channel with no file at hand, used while a voice
/// is enrolled. Made on the first call; safe to call from any thread.
const KeyCancelParam& NrModelParam();

/// What it is made from.
std::span<const ParEntry> NrModelEntries();

}  // namespace sonivo::classic
