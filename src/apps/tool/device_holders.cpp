#include "apps/tool/device_holders.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>

namespace sonivo::tool {

namespace {

namespace fs = std::filesystem;

/// The number after the key at the beginning of a line, as in "owner_pid   : 1234".
std::optional<long> number_after(const fs::path& path, std::string_view key) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(key)) continue;
    const std::size_t at = line.find_first_of("0123456789", key.size());
    if (at == line.npos) return std::nullopt;
    long number = 0;
    const auto [end, problem] = std::from_chars(line.data() + at, line.data() + line.size(), number);
    return problem == std::errc() ? std::optional(number) : std::nullopt;
  }
  return std::nullopt;
}

std::vector<fs::path> entries(const fs::path& folder, std::string_view beginning) {
  std::vector<fs::path> found;
  std::error_code ignored;
  for (fs::directory_iterator each(folder, ignored), end; each != end; each.increment(ignored)) {
    const bool is_link = fs::is_symlink(each->path(), ignored);  // a second name of a card
    if (!is_link && each->path().filename().string().starts_with(beginning)) found.push_back(each->path());
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string program_of(const fs::path& processes, long process) {
  std::ifstream file(processes / std::to_string(process) / "comm");
  std::string name;
  std::getline(file, name);
  return name;
}

bool shares(const std::string& program) { return program == "pipewire" || program == "wireplumber"; }

}  // namespace

std::vector<DeviceHolder> device_holders(const fs::path& cards, const fs::path& processes) {
  std::vector<DeviceHolder> holders;
  for (const fs::path& card : entries(cards, "card")) {
    for (const fs::path& device : entries(card, "pcm")) {
      for (const fs::path& stream : entries(device, "sub")) {
        const auto thread = number_after(stream / "status", "owner_pid");
        if (!thread) continue;
        const long process = number_after(processes / std::to_string(*thread) / "status", "Tgid:").value_or(*thread);
        const std::string program = program_of(processes, process);
        if (program.empty() || shares(program)) continue;
        holders.push_back({card.filename().string() + "/" + device.filename().string(), program, process});
      }
    }
  }
  return holders;
}

}  // namespace sonivo::tool
