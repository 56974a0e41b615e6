#pragma once

#include <spa/utils/dict.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace sonivo::pipewire {

/// A property of an object; empty where it isn't told.
inline std::string_view text_of(const spa_dict& properties, const char* key) {
  const char* const value = spa_dict_lookup(&properties, key);
  return value != nullptr ? value : std::string_view();
}

inline std::optional<std::uint32_t> number_of(const spa_dict& properties, const char* key) {
  const std::string_view text = text_of(properties, key);
  std::uint32_t number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || problem != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace sonivo::pipewire
