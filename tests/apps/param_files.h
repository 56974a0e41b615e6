#pragma once

#include <string>

#include "../classic/chain/chain_params.h"
#include "wav_bytes.h"

namespace sonivo::tool {

template <class Param>
std::string bytes_of(const Param& param) {
  return {reinterpret_cast<const char*>(&param), sizeof param};
}

/// Blobs that the chains accept, as files of the folder.
inline std::string key_cancel_blob(const TemporaryFolder& folder) {
  return folder.write("keycancel.bin", bytes_of(classic::test::key_cancel_params()));
}
inline std::string beam_forming_blob(const TemporaryFolder& folder) {
  return folder.write("beamforming.bin", bytes_of(classic::test::beam_forming_params()));
}

}  // namespace sonivo::tool
