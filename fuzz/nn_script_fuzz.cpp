// Any text expands or ends in an error of the engine, within its limits: what runs on is left to the fuzzer's own time
// limit. A text without an expression stays as it is.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "meridane/io/script.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const std::string expanded = meridane::expand_script(text);
    if (text.find("${") == text.npos && expanded != text) std::abort();
  } catch (const meridane::ScriptError&) {
  }
  return 0;
}
