#pragma once

#include <cstdio>
#include <string>

#include "classic/param_blobs.h"

namespace sonivo::classic {

// Blobs as raw files: the bytes of the record and nothing else. Blob is KeyCancelParam or BeamFormingKeyCancelParam.

enum class BlobFileResult {
  done,
  not_opened,
  wrong_size,  ///< shorter or longer than the record
  not_written,
};

/// blob is written to only when all of it could be read.
template <typename Blob>
BlobFileResult load_blob(const std::string& path, Blob& blob);

/// Into a file of that name.
template <typename Blob>
BlobFileResult store_blob(const std::string& path, const Blob& blob);
/// Into an open file, which stays open.
template <typename Blob>
BlobFileResult store_blob(std::FILE* file, const Blob& blob);

/// Verbatim.
template <typename Blob>
void copy_blob(const Blob& from, Blob& to) {
  to = from;
}

}  // namespace sonivo::classic
