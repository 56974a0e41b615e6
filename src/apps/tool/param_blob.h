#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/tool/failure.h"
#include "classic/result.h"

namespace sonivo::tool {

/// The file with the parameters of a chain, "keycancel" or "beamforming": the one that is given, else the set that
/// belongs to the program.
std::string param_blob_path(const std::optional<std::string>& given, const std::string& chain);

/// The blob in that file, which has `bytes` bytes. Throws Failure when it can't be read or hasn't the size.
std::vector<std::byte> read_param_blob(const std::optional<std::string>& path, const std::string& chain,
                                       std::size_t bytes);

/// Opens CKeyCancel or CBeamFormingKeyCancel with such a blob, which it answers. Throws Failure.
template <class Chain>
std::vector<std::byte> open_with_params(Chain& chain, const std::optional<std::string>& path, const std::string& name,
                                        std::uint32_t rate_hz, std::uint16_t channels, std::uint16_t frames) {
  std::uint32_t size = 0;
  chain.GetParamSize(&size);
  auto blob = read_param_blob(path, name, size);
  const int status = chain.Open(blob.data(), static_cast<float>(rate_hz), channels, frames);
  if (status == ERROR_BEAMFORMING_KEY_CANCEL_PARAM_VERSION) {
    throw Failure("the parameter blob of the " + name +
                  " chain is damaged or of another version; build it again with sonivo params build");
  }
  if (status != 0) throw Failure("the " + name + " chain does not open, result " + std::to_string(status));
  return blob;
}

}  // namespace sonivo::tool
