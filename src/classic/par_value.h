#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "classic/par_conversion.h"
#include "classic/par_source.h"

namespace sonivo::classic {

// Reading of one number or of an array into a field. Each answers how many elements failed, 0 for success; a field that
// fails stays as it was, with a message, and the elements behind it are read nevertheless.
//
// T is a 16 or 32-bit integer, float or double. An integer keeps the low bits of a number that it can't hold, but for
// fixed-point fields, which saturate with the message "over flow : KEY" and count as read. Shift codes of a coefficient
// that has none leave the nearest end with a warning, and count as read too.

template <typename T>
int ReadValue(ParSource& source, const std::string& key, const Conversion& conversion, T& value);

template <typename T>
int ReadValue(ParSource& source, std::string_view prefix, std::string_view name, const Conversion& conversion,
              T& value) {
  return ReadValue(source, std::string(prefix) + std::string(name), conversion, value);
}

/// name holds a "%d" for the index, from 0; values.size() elements.
template <typename T>
int ReadValues(ParSource& source, std::string_view prefix, std::string_view name, const Conversion& conversion,
               std::span<T> values) {
  int errors = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    errors += ReadValue(source, prefix, indexed(name, i), conversion, values[i]);
  }
  return errors;
}

/// A vector in space, under the keys "NAME.x", "NAME.y" and "NAME.z".
template <typename T>
int ReadVector(ParSource& source, const std::string& key, const Conversion& conversion, std::span<T, 3> vector) {
  return ReadValue(source, key, ".x", conversion, vector[0]) + ReadValue(source, key, ".y", conversion, vector[1]) +
         ReadValue(source, key, ".z", conversion, vector[2]);
}

template <typename T>
int ReadVector(ParSource& source, std::string_view prefix, std::string_view name, const Conversion& conversion,
               std::span<T, 3> vector) {
  return ReadVector(source, std::string(prefix) + std::string(name), conversion, vector);
}

/// name holds a "%d" for the index, from 0; vectors.size() elements.
template <typename T>
int ReadVectors(ParSource& source, std::string_view prefix, std::string_view name, const Conversion& conversion,
                std::span<std::array<T, 3>> vectors) {
  int errors = 0;
  for (std::size_t i = 0; i < vectors.size(); ++i) {
    errors += ReadVector(source, prefix, indexed(name, i), conversion, std::span<T, 3>(vectors[i]));
  }
  return errors;
}

// A fixed-point number in a table of 16-bit words. One that does not fit is an error, and the words stay as they were.

enum class Words : std::uint8_t {
  one,  ///< below 32768 and above -32767
  two,  ///< low word first; below 2147483649 and above -2147483647
};

/// table holds index + 1 words or more, index + 2 for two words.
int ReadTableValue(ParSource& source, const std::string& key, const Conversion& conversion, Words words,
                   std::span<std::uint16_t> table, std::size_t index);
int ReadTableValue(ParSource& source, std::string_view prefix, std::string_view name, const Conversion& conversion,
                   Words words, std::span<std::uint16_t> table, std::size_t index);
/// count elements, one behind the other from index on.
int ReadTableValues(ParSource& source, std::string_view prefix, std::string_view name, const Conversion& conversion,
                    Words words, std::span<std::uint16_t> table, std::size_t index, std::size_t count);

}  // namespace sonivo::classic
