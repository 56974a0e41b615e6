#pragma once

#include "classic/classic_chain.h"

namespace sonivo {

/// Keyboard-noise cancellation and noise reduction of one to four independent channels. Version 0.4, blobs of 15808
/// bytes with major version 0.
class CKeyCancel : public ClassicChain<classic::KeyCancelChannel> {};

}  // namespace sonivo
