#include "platform/linux/pipewire/friendly_names.h"

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "base/text.h"

namespace sonivo::pipewire {
namespace {

constexpr std::size_t kMaxTableBytes = 65536;

std::string_view trimmed(std::string_view text) {
  const auto blank = " \t\r";
  const std::size_t first = text.find_first_not_of(blank);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(blank) - first + 1);
}

}  // namespace

int FriendlyNames::add(std::string_view text) {
  std::vector<Rule> added;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.empty() || line.front() == '#') continue;
    const std::size_t equals = line.find('=');
    if (equals == line.npos) return number;
    const std::string_view fragment = trimmed(line.substr(0, equals));
    const std::string_view name = trimmed(line.substr(equals + 1));
    if (fragment.empty() || name.empty()) return number;
    added.push_back({std::string(fragment), std::string(name)});
  }
  std::move(added.begin(), added.end(), std::back_inserter(rules_));
  return 0;
}

std::string FriendlyNames::add_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(kMaxTableBytes + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.is_open() || file.bad()) return "The table of microphone names " + path + " can't be read.";
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() > kMaxTableBytes) return "The table of microphone names " + path + " is larger than 64 KiB.";
  const int wrong = add(text);
  if (wrong == 0) return {};
  return "Line " + std::to_string(wrong) + " of the table of microphone names " + path + " isn't FRAGMENT = NAME.";
}

std::string FriendlyNames::name_of(const std::string& description, const std::string& node_name) const {
  const auto fits = [&](const Rule& rule) {
    return contains(description, rule.fragment) || contains(node_name, rule.fragment);
  };
  const auto rule = std::find_if(rules_.begin(), rules_.end(), fits);
  const std::string& shown = description.empty() ? node_name : description;
  if (rule == rules_.end() || contains(shown, rule->name)) return shown;
  return shown + " (" + rule->name + ")";
}

FriendlyNames names_of_tables(std::span<const std::filesystem::path> tables, std::vector<std::string>& faults) {
  FriendlyNames names;
  for (const std::filesystem::path& table : tables) {
    std::error_code ignored;
    if (!std::filesystem::exists(table, ignored)) continue;
    if (std::string fault = names.add_file(table); !fault.empty()) faults.push_back(std::move(fault));
  }
  return names;
}

}  // namespace sonivo::pipewire
