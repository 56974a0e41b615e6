#pragma once

#include <cstring>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

#include "apps/tool/param_blob.h"
#include "classic/par_reader.h"

namespace sonivo::bench {

/// Parameters of a chain, "keycancel" or "beamforming", from a par file, a blob, or the set that belongs to the
/// program. Throws std::exception.
template <class Param>
Param read_params(const std::optional<std::string>& path, const std::string& chain) {
  if (path && path->ends_with(".par")) {
    const auto param = classic::MakeParams<Param>(*path, std::cerr);
    if (!param) throw std::runtime_error("'" + *path + "' is no complete parameter file of the " + chain + " chain");
    return *param;
  }
  const auto bytes = tool::read_param_blob(path, chain, sizeof(Param));
  Param param;
  std::memcpy(&param, bytes.data(), sizeof param);
  return param;
}

}  // namespace sonivo::bench
