#pragma once

#include <gmock/gmock.h>

#include <cctype>
#include <exception>
#include <string>

namespace sonivo::e2e::test {

/// What the exception says that the call throws; "" if it throws none.
template <class Call>
std::string message_of(const Call& call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

/// Each number behind a source's name, ".cpp 12" or ".h 12", turned into "%d": lines move when sources are written.
inline std::string without_lines(const std::string& message) {
  std::string text;
  for (std::size_t i = 0; i < message.size();) {
    text += message[i++];
    if (!text.ends_with(".cpp ") && !text.ends_with(".h ")) continue;
    const std::size_t start = i;
    while (i < message.size() && std::isdigit(static_cast<unsigned char>(message[i])) != 0) ++i;
    if (i > start) text += "%d";
  }
  return text;
}

/// A text whose lines of sources are written "%d".
MATCHER_P(IsMessage, expected, "is \"" + std::string(expected) + "\"") {
  *result_listener << "which is \"" << without_lines(arg) << '"';
  return without_lines(arg) == expected;
}

}  // namespace sonivo::e2e::test
