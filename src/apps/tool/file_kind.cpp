#include "apps/tool/file_kind.h"

#include <array>
#include <fstream>

namespace sonivo::tool {

namespace {

struct FileKind {
  const char* first_bytes;
  const char* name;
};

constexpr std::array kFileKinds{
    FileKind{"RIFF", "a WAV file"},
    FileKind{"RF64", "a WAV file"},
    FileKind{"senb", "a speech enhancement model"},
    FileKind{"senx", "a speech enhancement model"},
    FileKind{"spkb", "a speaker encoder"},
    FileKind{"spkx", "a speaker encoder"},
    FileKind{"vadb", "a voice activity model"},
    FileKind{"vadx", "a voice activity model"},
    FileKind{"<", "a document in XML"},
};

}  // namespace

std::string why_no_model(const std::string& path, const std::string& wanted_magic, const std::string& reason) {
  std::array<char, 4> first{};
  std::ifstream file(path, std::ios_base::binary);
  file.read(first.data(), first.size());
  const std::string magic(first.data(), static_cast<std::size_t>(file.gcount()));
  if (magic.starts_with(wanted_magic)) return reason;
  for (const FileKind& kind : kFileKinds) {
    if (magic.starts_with(kind.first_bytes)) return std::string("it is ") + kind.name;
  }
  return reason;
}

}  // namespace sonivo::tool
