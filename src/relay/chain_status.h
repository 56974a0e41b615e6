#pragma once

namespace sonivo {

/// Which chain the microphone's blocks go through.
enum class ChainKind { none, key_cancel, beam_forming, ai_speech };

/// Why the chain that the gates call for does not run, as of the latest attempt to open it.
enum class ChainFault { none, no_parameters, no_model, not_opened };

}  // namespace sonivo
