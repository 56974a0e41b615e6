// Any text is a parameter file: keys are read in every form, both blobs are built, and a blob that comes out, complete
// or not, is judged and listed. What a file has for a number is what its line has.

#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "classic/par_listing.h"
#include "classic/par_reader.h"
#include "classic/param_check.h"

namespace {

using namespace sonivo::classic;

/// A folder for the run of the program.
const std::string& par_path() {
  static const struct Folder {
    Folder() {
      std::string name = (std::filesystem::temp_directory_path() / "sonivo-fuzz-XXXXXX").string();
      if (::mkdtemp(name.data()) == nullptr) std::abort();
      folder = name;
      file = (folder / "fuzz.par").string();
    }
    ~Folder() { std::filesystem::remove_all(folder); }
    std::filesystem::path folder;
    std::string file;
  } folder;
  return folder.file;
}

template <typename Param>
void build(std::ostringstream& messages) {
  const auto param = std::make_unique<Param>();
  ParFile file(par_path(), messages);
  const int errors = ReadParams(file, *param);
  if (errors < 0 || (errors > 0 && messages.str().empty())) std::abort();
  if (usable(*param) != !first_fault(*param).has_value()) std::abort();
  std::ostringstream listing;
  list_fields(listing, *param);
  if (listing.str().empty()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::ofstream(par_path(), std::ios::binary) << text;

  std::ostringstream messages;
  ParFile file(par_path(), messages);
  for (const char* const key : {"a", "syk1.nbin", "ain.Q[0]"}) {
    const auto token = file.token(key);
    if (token && (token->empty() || token->find_first_of(" \t,\n") != std::string::npos)) std::abort();
    const auto quoted = file.quoted(key);
    if (quoted && quoted->find('"') != std::string::npos) std::abort();
    const auto raw = file.raw(key);
    if (raw && raw->find('\n') < raw->size() - 1) std::abort();
    file.path(key);
  }
  build<KeyCancelParam>(messages);
  build<BeamFormingKeyCancelParam>(messages);
  return 0;
}
