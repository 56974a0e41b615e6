#include "apps/tool/param_blob.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/share_folder.h"

namespace sonivo::tool {

namespace {

std::string own_set(const std::string& chain) { return (share_folder() / "par" / (chain + ".bin")).string(); }

}  // namespace

std::string param_blob_path(const std::optional<std::string>& given, const std::string& chain) {
  return given.value_or(own_set(chain));
}

std::vector<std::byte> read_param_blob(const std::optional<std::string>& given, const std::string& chain,
                                       std::size_t bytes) {
  const std::string path = param_blob_path(given, chain);
  if (given) require_file(path, "a parameter blob");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw Failure("cannot open '" + path + "': " + std::strerror(errno) + "; give a parameter blob with --params");
  }
  std::vector<std::byte> blob(bytes + 1);
  file.read(reinterpret_cast<char*>(blob.data()), static_cast<std::streamsize>(blob.size()));
  blob.resize(static_cast<std::size_t>(file.gcount()));
  if (blob.size() != bytes) {
    throw Failure("'" + path + "' is no parameter blob of the " + chain + " chain, which has " + std::to_string(bytes) +
                  " bytes; build one with sonivo params build " + chain);
  }
  return blob;
}

}  // namespace sonivo::tool
