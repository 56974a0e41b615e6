#include "classic/blob_file.h"

#include <bit>
#include <filesystem>
#include <memory>
#include <type_traits>

#include "classic/file.h"

namespace sonivo::classic {

static_assert(std::endian::native == std::endian::little, "blob files are images of memory");

template <typename Blob>
BlobFileResult load_blob(const std::string& path, Blob& blob) {
  static_assert(std::is_trivially_copyable_v<Blob>);
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) return BlobFileResult::not_opened;
  const File file(std::fopen(path.c_str(), "rb"));
  if (!file) return BlobFileResult::not_opened;
  const auto read = std::make_unique<Blob>();
  if (std::fread(read.get(), sizeof(Blob), 1, file.get()) != 1) return BlobFileResult::wrong_size;
  if (std::fgetc(file.get()) != EOF) return BlobFileResult::wrong_size;
  copy_blob(*read, blob);
  return BlobFileResult::done;
}

template <typename Blob>
BlobFileResult store_blob(std::FILE* file, const Blob& blob) {
  const bool written = std::fwrite(&blob, sizeof blob, 1, file) == 1 && std::fflush(file) == 0;
  return written ? BlobFileResult::done : BlobFileResult::not_written;
}

template <typename Blob>
BlobFileResult store_blob(const std::string& path, const Blob& blob) {
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) return BlobFileResult::not_opened;
  const BlobFileResult result = store_blob(file.get(), blob);
  if (std::fclose(file.release()) != 0) return BlobFileResult::not_written;
  return result;
}

template BlobFileResult load_blob(const std::string&, KeyCancelParam&);
template BlobFileResult load_blob(const std::string&, BeamFormingKeyCancelParam&);
template BlobFileResult store_blob(const std::string&, const KeyCancelParam&);
template BlobFileResult store_blob(const std::string&, const BeamFormingKeyCancelParam&);
template BlobFileResult store_blob(std::FILE*, const KeyCancelParam&);
template BlobFileResult store_blob(std::FILE*, const BeamFormingKeyCancelParam&);

}  // namespace sonivo::classic
