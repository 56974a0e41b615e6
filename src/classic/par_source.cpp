#include "classic/par_source.h"

namespace sonivo::classic {

std::string indexed(std::string_view name, std::size_t first, std::size_t second) {
  std::string text;
  std::size_t index = first;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const std::string_view rest = name.substr(i);
    if (rest.starts_with("%d")) {
      text += std::to_string(index);
      index = second;
      ++i;
    } else {
      text += name[i];
      if (rest.starts_with("%%")) ++i;
    }
  }
  return text;
}

}  // namespace sonivo::classic
