#include "apps/tool/param_blob.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "apps/tool/failure.h"

namespace sonivo::tool {

namespace {

/// The sets lie beside the program, as in ../share/sonivo/par.
std::string own_set(const std::string& chain) {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path().parent_path() / "share/sonivo/par" / (chain + ".bin")).string();
}

}  // namespace

std::vector<std::byte> read_param_blob(const std::optional<std::string>& given, const std::string& chain,
                                       std::size_t bytes) {
  const std::string path = given.value_or(own_set(chain));
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) throw Failure("'" + path + "' is a folder; give a parameter blob");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    const std::string advice = given ? "check its name and its permissions" : "give a parameter blob with --params";
    throw Failure("cannot open '" + path + "': " + std::strerror(errno) + "; " + advice);
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
