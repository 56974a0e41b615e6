#include "apps/tool/printable.h"

#include <algorithm>

#include "base/text.h"

namespace sonivo::tool {

namespace {

constexpr std::size_t kLongestCharacter = 4;

/// Bytes of the UTF-8 character at the head of `text`, 0 when there is none.
std::size_t character_length(std::string_view text) {
  for (std::size_t length = 1; length <= std::min(text.size(), kLongestCharacter); ++length) {
    const std::string_view head = text.substr(0, length);
    if (to_utf8(to_utf16(head)) == head) return length;
  }
  return 0;
}

bool is_control(std::string_view character) {
  const char16_t code = to_utf16(character).front();
  return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

std::string escaped(char byte) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  switch (byte) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      const auto value = static_cast<unsigned char>(byte);
      return {'\\', 'x', kDigits[value >> 4], kDigits[value & 15]};
  }
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = character_length(text);
    const std::string_view head = text.substr(0, std::max<std::size_t>(length, 1));
    if (length == 0 || is_control(head)) {
      for (const char byte : head) result += escaped(byte);
    } else {
      result += head;
    }
    text.remove_prefix(head.size());
  }
  return result;
}

}  // namespace sonivo::tool
