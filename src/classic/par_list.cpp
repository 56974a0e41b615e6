#include "classic/par_list.h"

#include <algorithm>
#include <cstdlib>

namespace sonivo::classic {

namespace {

/// Where the index stands that ends at `end`: "[12]" as position and length of "12". Length 0 where there is none.
struct Index {
  std::size_t first = 0;
  std::size_t length = 0;
};

Index last_index(std::string_view key) {
  const std::size_t open = key.rfind('[');
  if (open == std::string_view::npos || !key.ends_with(']')) return {};
  return {open + 1, key.size() - open - 2};
}

/// The key with "%d" in the place of its first index.
std::string with_first_index_open(std::string key) {
  const std::size_t open = key.find('[');
  return key.replace(open + 1, key.find(']') - open - 1, "%d");
}

}  // namespace

const ParEntry* ParList::find(std::string_view name) const {
  const auto entry = std::find_if(entries_.begin(), entries_.end(), [&](const ParEntry& e) { return e.name == name; });
  return entry == entries_.end() ? nullptr : &*entry;
}

std::optional<double> ParList::number(const std::string& key) {
  if (const ParEntry* const exact = find(key)) return exact->numbers.front();
  const Index index = last_index(key);
  if (index.length != 0) {
    const std::size_t i = std::strtoul(key.c_str() + index.first, nullptr, 10);
    const std::string row = std::string(key).replace(index.first, index.length, "%d");
    const ParEntry* entry = find(row);
    if (entry == nullptr) entry = find(with_first_index_open(row));
    if (entry != nullptr && entry->numbers.size() == 1) return entry->numbers.front();
    if (entry != nullptr && i < entry->numbers.size()) return entry->numbers[i];
  }
  messages() << key << " is not in the list\n";
  return std::nullopt;
}

}  // namespace sonivo::classic
