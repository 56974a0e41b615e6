#include "driver/property_lines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "base/text.h"

namespace sonivo::driver {
namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

std::string hex_of(std::span<const std::byte> bytes) {
  std::string text;
  for (const std::byte each : bytes) {
    text += kHexDigits[std::to_integer<std::size_t>(each >> 4)];
    text += kHexDigits[std::to_integer<std::size_t>(each & std::byte{0xF})];
  }
  return text;
}

std::optional<std::vector<std::byte>> bytes_of_hex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::vector<std::byte> bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const std::size_t high = kHexDigits.find(text[i]);
    const std::size_t low = kHexDigits.find(text[i + 1]);
    if (high == kHexDigits.npos || low == kHexDigits.npos) return std::nullopt;
    bytes.push_back(static_cast<std::byte>(high << 4 | low));
  }
  return bytes;
}

/// Of digits of this base and nothing else.
template <typename Number>
bool parse_all(std::string_view text, Number& number, int base) {
  const auto [end, wrong] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return wrong == std::errc{} && end == text.data() + text.size();
}

/// As to_text(Guid) writes it.
std::optional<Guid> guid_of_text(std::string_view text) {
  Guid guid;
  if (text.size() != 38) return std::nullopt;
  bool sound = parse_all(text.substr(1, 8), guid.data1, 16) && parse_all(text.substr(10, 4), guid.data2, 16) &&
               parse_all(text.substr(15, 4), guid.data3, 16);
  constexpr std::array<std::size_t, 8> kBytePlaces{20, 22, 25, 27, 29, 31, 33, 35};
  for (std::size_t i = 0; i < kBytePlaces.size(); ++i) {
    sound = sound && parse_all(text.substr(kBytePlaces[i], 2), guid.data4[i], 16);
  }
  if (!sound || to_text(guid) != text) return std::nullopt;
  return guid;
}

std::string_view next_word(std::string_view& line) {
  const std::string_view word = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(line.size(), word.size() + 1));
  return word;
}

}  // namespace

std::string property_line(const EffectProperties::Address& address, const EffectProperties::Value& value) {
  return std::to_string(static_cast<std::uint32_t>(address.home)) + ' ' + to_text(address.key.fmtid) + ' ' +
         std::to_string(address.key.pid) + ' ' + std::to_string(value.type) + ' ' + hex_of(value.bytes) + ' ' +
         escaped(address.endpoint);
}

std::optional<std::pair<EffectProperties::Address, EffectProperties::Value>> property_of_line(std::string_view line) {
  EffectProperties::Address address;
  EffectProperties::Value value;
  std::uint32_t home = 0;
  const bool has_home =
      parse_all(next_word(line), home, 10) && home <= static_cast<std::uint32_t>(control::FxHome::device_properties);
  const auto fmtid = guid_of_text(next_word(line));
  const bool has_numbers =
      parse_all(next_word(line), address.key.pid, 10) && parse_all(next_word(line), value.type, 10);
  auto bytes = bytes_of_hex(next_word(line));
  auto endpoint = unescaped(line);
  if (!has_home || !fmtid || !has_numbers || !bytes || !endpoint || endpoint->empty() ||
      endpoint->size() >= control::kTextCharacters) {
    return std::nullopt;
  }
  address.home = static_cast<control::FxHome>(home);
  address.key.fmtid = *fmtid;
  address.endpoint = std::move(*endpoint);
  value.bytes = std::move(*bytes);
  if (!is_sound(value)) return std::nullopt;
  return std::pair{std::move(address), std::move(value)};
}

bool is_sound(const EffectProperties::Value& value) {
  if (value.type == 0 || value.type > control::kMaxType || value.bytes.size() > control::kMaxFxValueBytes) return false;
  if (value.type == control::kTypeNumber) return value.bytes.size() == sizeof(std::uint32_t);
  if (value.type != control::kTypeText) return true;
  const std::string text(reinterpret_cast<const char*>(value.bytes.data()), value.bytes.size());
  return to_utf8(to_utf16(text)) == text;
}

}  // namespace sonivo::driver
