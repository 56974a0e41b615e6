#include "base/text.h"

#include <algorithm>

namespace sonivo {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Length of the well-formed sequence at the head of `text` and its code point; length 0 when there is none.
struct Decoded {
  std::size_t length;
  char32_t code_point;
};

Decoded decode(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {1, lead};
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {0, 0};
  char32_t code_point = lead & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {0, 0};
    code_point = code_point << 6 | (byte(i) & 0x3Fu);
  }
  const bool overlong = (length == 3 && code_point < 0x800) || (length == 4 && code_point < 0x10000);
  const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
  if (overlong || surrogate || code_point > 0x10FFFF) return {0, 0};
  return {length, code_point};
}

void append_utf8(std::string& out, char32_t c) {
  const auto put = [&](char32_t bits) { out.push_back(static_cast<char>(bits)); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0 | c >> 6);
    put(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    put(0xE0 | c >> 12);
    put(0x80 | (c >> 6 & 0x3F));
    put(0x80 | (c & 0x3F));
  } else {
    put(0xF0 | c >> 18);
    put(0x80 | (c >> 12 & 0x3F));
    put(0x80 | (c >> 6 & 0x3F));
    put(0x80 | (c & 0x3F));
  }
}

}  // namespace

std::u16string to_utf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  while (!utf8.empty()) {
    const Decoded d = decode(utf8);
    const char32_t c = d.length == 0 ? kReplacement : d.code_point;
    utf8.remove_prefix(std::max<std::size_t>(d.length, 1));
    if (c < 0x10000) {
      out.push_back(static_cast<char16_t>(c));
    } else {
      out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    }
  }
  return out;
}

std::string to_utf8(std::u16string_view utf16) {
  std::string out;
  out.reserve(utf16.size());
  for (std::size_t i = 0; i < utf16.size(); ++i) {
    const char32_t unit = utf16[i];
    const bool high = unit >= 0xD800 && unit <= 0xDBFF;
    const bool low = unit >= 0xDC00 && unit <= 0xDFFF;
    if (high && i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 && utf16[i + 1] <= 0xDFFF) {
      append_utf8(out, 0x10000 + ((unit - 0xD800) << 10) + (utf16[i + 1] - 0xDC00u));
      ++i;
    } else {
      append_utf8(out, high || low ? kReplacement : unit);
    }
  }
  return out;
}

std::string to_lower_ascii(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), lower);
  return out;
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace sonivo
