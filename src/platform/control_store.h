#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "base/status.h"
#include "platform/control_requests.h"

namespace sonivo::control {

enum class SettingKind { number, text };

/// One value that the driver holds.
struct Setting {
  const char* name;  ///< as people write it, "keyboard-cancel"
  SettingKind kind;
  std::uint32_t get_code;
  std::uint32_t set_code;
  std::uint32_t initial = 0;
  std::uint32_t lowest = 0;  ///< of the numbers that mean something
  std::uint32_t highest = 0xFFFFFFFF;

  bool takes(std::uint32_t number) const { return lowest <= number && number <= highest; }
};

/// All values, by ascending get_code.
std::span<const Setting> settings();
/// Null when no value has this name.
const Setting* find_setting(const std::string& name);

/// How a request was answered.
struct Answer {
  Error error = error::kNone;
  std::uint32_t transferred = 0;                      ///< bytes of output
  bool changed = false;                               ///< a value is now another one
  std::optional<std::uint32_t> event = std::nullopt;  ///< command that tells the service of the change
};

/// Whether this is a request to set a number that means nothing for its setting. Input of another size is none.
bool sets_nonsense(std::uint32_t code, std::span<const std::byte> input);

/// The values behind the control channel, as every driver keeps them, sensible or not. Not locked.
class Store {
 public:
  Store();

  /// Answers a get or set request. Input of any size but the request's own is error::kInvalidParameter, as is a text
  /// without its end; too little room for the output is error::kInsufficientBuffer; any other code, those of the event
  /// channel included, error::kInvalidFunction.
  Answer answer(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output);

  std::uint32_t number(std::uint32_t get_code) const { return numbers_.at(get_code); }
  void set_number(std::uint32_t get_code, std::uint32_t value) { numbers_.at(get_code) = value; }
  std::u16string text(std::uint32_t get_code) const { return texts_.at(get_code); }
  /// At most 259 characters are kept.
  void set_text(std::uint32_t get_code, std::u16string_view value);

 private:
  Answer get(const Setting& setting, std::span<const std::byte> input, std::span<std::byte> output) const;
  Answer set(const Setting& setting, std::span<const std::byte> input);
  Answer set_mode(std::span<const std::byte> input);

  std::map<std::uint32_t, std::uint32_t> numbers_;  // by get_code
  std::map<std::uint32_t, std::u16string> texts_;
};

}  // namespace sonivo::control
