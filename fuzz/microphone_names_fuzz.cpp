// The table of microphone names, after a line with a description and one with a node's name: a table that is refused
// changes nothing, one that is taken adds at most a name in parentheses, and taken again it adds no other.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/linux/pipewire/friendly_names.h"

namespace {

std::string first_line(std::string& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string line = text.substr(0, end);
  text.erase(0, end + 1);
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string table(reinterpret_cast<const char*>(data), size);
  const std::string description = first_line(table);
  const std::string node = first_line(table);
  const std::string shown = description.empty() ? node : description;
  sonivo::pipewire::FriendlyNames names;
  const int wrong = names.add(table);
  const std::string name = names.name_of(description, node);
  if (wrong < 0 || wrong > std::count(table.begin(), table.end(), '\n') + 1) std::abort();
  if (wrong != 0 && name != shown) std::abort();
  if (name != shown && (!name.starts_with(shown + " (") || !name.ends_with(")"))) std::abort();
  if (names.add(table) != wrong || names.name_of(description, node) != name) std::abort();
  return 0;
}
