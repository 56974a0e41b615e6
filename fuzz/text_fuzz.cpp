// Text conversion: any bytes become well-formed UTF-16, and that comes back from UTF-8 unchanged.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::u16string wide = sonivo::to_utf16(bytes);
  const std::string narrow = sonivo::to_utf8(wide);
  if (sonivo::to_utf16(narrow) != wide) std::abort();
  if (sonivo::to_utf8(sonivo::to_utf16(narrow)) != narrow) std::abort();

  std::u16string any(size / 2, u'\0');
  for (std::size_t i = 0; i < any.size(); ++i) any[i] = static_cast<char16_t>(data[2 * i] | data[2 * i + 1] << 8);
  const std::u16string repaired = sonivo::to_utf16(sonivo::to_utf8(any));
  if (repaired.size() != any.size()) std::abort();
  return 0;
}
