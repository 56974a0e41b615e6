#pragma once

#include <iostream>
#include <memory>
#include <string>

#include "classic/par_file.h"
#include "classic/par_source.h"
#include "classic/param_blobs.h"

namespace sonivo::classic {

// From a par file to a blob. Readers answer how many keys failed; 0 means a complete blob. A key that fails leaves its
// field as it was, with a message, and the reading goes on, so that one run shows all that is missing.

int ReadParams(ParSource& source, KeyCancelParam& param);
/// Starts from zero. Filter files lie in the folder of the par file.
int ReadParams(ParFile& file, BeamFormingKeyCancelParam& param);

/// The blob of a par file; null, with the message "parametre error", when a key failed, or "memory empty". Param is
/// KeyCancelParam or BeamFormingKeyCancelParam.
template <typename Param>
std::unique_ptr<Param> MakeParams(const std::string& path, std::ostream& messages = std::cout);

}  // namespace sonivo::classic
