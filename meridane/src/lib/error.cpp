#include "meridane/error.h"

#include <cstdio>
#include <string_view>
#include <vector>

namespace meridane {

std::string formatted(const char* format, ...) {
  std::vector<char> text(kLongestMessage + 1);
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return text.data();
}

std::string base_name(const char* path) {
  const std::string_view whole = path;
  return std::string(whole.substr(whole.rfind('/') + 1));
}

std::string qualified_name(const char* signature) {
  const std::string_view whole = signature;
  const std::string_view name = whole.substr(0, whole.find('('));
  std::size_t start = name.size();
  for (int brackets = 0; start > 0; --start) {  // a blank between template arguments belongs to the name
    const char before = name[start - 1];
    if (before == '>') ++brackets;
    if (before == '<') --brackets;
    if (before == ' ' && brackets == 0) break;
  }
  return std::string(name.substr(start));
}

}  // namespace meridane
