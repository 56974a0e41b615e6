#pragma once

#include <string>

namespace sonivo::tool {

/// What the microphone passes on its way to applications.
enum class Chain { none, keycancel, beamforming, ai };

/// As commands take it and print it.
std::string to_string(Chain chain);
/// As `--chain` takes it. Throws UsageError for what is no chain.
Chain parse_chain(const std::string& text);

}  // namespace sonivo::tool
