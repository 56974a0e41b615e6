#include "apps/tool/chain.h"

#include <algorithm>
#include <array>

#include "apps/tool/failure.h"

namespace sonivo::tool {

namespace {

constexpr std::array<const char*, 4> kChainNames{"none", "keycancel", "beamforming", "ai"};

}  // namespace

std::string to_string(Chain chain) { return kChainNames.at(static_cast<std::size_t>(chain)); }

Chain parse_chain(const std::string& text) {
  const auto* const name = std::find(kChainNames.begin(), kChainNames.end(), text);
  if (name == kChainNames.end()) {
    throw UsageError("--chain takes none, keycancel, beamforming or ai, not '" + text + "'");
  }
  return static_cast<Chain>(name - kChainNames.begin());
}

}  // namespace sonivo::tool
