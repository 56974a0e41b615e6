#include "classic/par_line.h"

namespace sonivo::classic {

namespace {

constexpr std::string_view kSeparators = " \t,";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kNumberCharacters = "0123456789+-.";

/// What stands from the first character on that is none of `skipped`.
std::string_view behind(std::string_view text, std::string_view skipped) {
  const std::size_t first = text.find_first_not_of(skipped);
  return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

/// What stands behind the "=" of a line that begins with the key. Nothing but separators may stand between them, so a
/// longer key is another one.
LineValue assigned(std::string_view line, std::string_view key, std::string_view separators) {
  if (!line.starts_with(key) || line.size() == key.size()) return {};
  const std::string_view rest = behind(line.substr(key.size()), separators);
  if (rest.empty()) return {LineMatch::bad};
  if (rest.front() != '=') return {};
  return {LineMatch::found, rest.substr(1)};
}

}  // namespace

LineValue number_of(std::string_view line, std::string_view key) {
  const LineValue value = assigned(line, key, kSeparators);
  if (value.match != LineMatch::found) return value;
  const std::size_t first = value.text.find_first_of(kNumberCharacters);
  if (first == std::string_view::npos) return {LineMatch::bad};
  const std::string_view run = value.text.substr(first);
  return {LineMatch::found, run.substr(0, run.find_first_not_of(kNumberCharacters))};
}

LineValue token_of(std::string_view line, std::string_view key) {
  const LineValue value = assigned(line, key, kSeparators);
  if (value.match != LineMatch::found) return value;
  const std::string_view rest = behind(value.text, kSeparators);
  if (rest.empty()) return {LineMatch::bad};
  return {LineMatch::found, rest.substr(0, rest.find_first_of(kSeparators))};
}

LineValue quoted_of(std::string_view line, std::string_view key) {
  const LineValue value = assigned(line, key, kBlanks);
  if (value.match != LineMatch::found) return value;
  const std::string_view opened = behind(value.text, kBlanks);
  if (!opened.starts_with('"')) return {LineMatch::bad};
  const std::string_view text = opened.substr(1);
  const std::size_t end = text.find('"');
  if (end == std::string_view::npos) return {LineMatch::bad};
  const std::string_view rest = behind(text.substr(end + 1), " \t\v\f\r\n");
  if (!rest.empty() && rest.front() != '#') return {LineMatch::bad};
  return {LineMatch::found, text.substr(0, end)};
}

LineValue raw_of(std::string_view line, std::string_view key) {
  if (!line.starts_with(key)) return {};
  const std::string_view rest = line.substr(key.size());
  const std::size_t equals = rest.find('=');
  if (equals == std::string_view::npos) return {LineMatch::bad};
  return {LineMatch::found, rest.substr(equals + 1)};
}

}  // namespace sonivo::classic
