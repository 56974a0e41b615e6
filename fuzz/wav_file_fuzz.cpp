// Any file either decodes to as many whole frames as its head promises or is refused; nothing else is thrown.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "apps/tool/failure.h"
#include "apps/tool/wav_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace sonivo::tool;
  static const int file = ::memfd_create("in.wav", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  if (::ftruncate(file, 0) != 0 || ::pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
  try {
    const PcmAudio audio = read_wav(path, std::nullopt);
    if (audio.frames() == 0 || audio.bytes.size() != audio.frames() * audio.bytes_per_frame()) std::abort();
  } catch (const Failure&) {
  }
  return 0;
}
