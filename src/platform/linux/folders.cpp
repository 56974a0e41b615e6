#include "platform/linux/folders.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>

#include "base/trace.h"

namespace sonivo::linux {
namespace {

std::optional<std::filesystem::path> absolute_path(const char* value) {
  if (value == nullptr || value[0] != '/') return std::nullopt;
  return value;
}

std::filesystem::path home_folder() {
  if (const auto home = absolute_path(std::getenv("HOME"))) return *home;
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 4096> text{};
  ::getpwuid_r(::getuid(), &entry, text.data(), text.size(), &found);
  return found != nullptr ? absolute_path(found->pw_dir).value_or("/") : "/";
}

std::filesystem::path user_data() {
  if (const auto data = absolute_path(std::getenv("XDG_DATA_HOME"))) return *data;
  return home_folder() / ".local" / "share";
}

std::filesystem::path installed() {
  std::error_code ignored;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored);
  return program.parent_path().parent_path() / "share" / "sonivo";
}

/// Folders on the way get the same rights.
void make_private(const std::filesystem::path& folder) {
  std::error_code why;
  for (std::filesystem::path way; const auto& part : folder) {
    way /= part;
    if (!std::filesystem::create_directory(way, why)) continue;
    std::filesystem::permissions(way, std::filesystem::perms::owner_all, why);
  }
  if (why) trace(TraceLevel::warning, "%s can't be made: %s\n", folder.c_str(), why.message().c_str());
}

}  // namespace

InstalledFolders::Places InstalledFolders::places() {
  const auto own = installed();
  const std::filesystem::path chosen = SONIVO_MODEL_FOLDER;
  return {.models = chosen.empty() ? own / "models" : chosen, .bitmaps = own / "bitmaps", .user_data = user_data()};
}

InstalledFolders::InstalledFolders(Places where) : places_(std::move(where)) {
  std::error_code ignored;
  if (!std::filesystem::is_directory(places_.user_data, ignored)) make_private(places_.user_data);
}

std::filesystem::path own_microphone_table() {
  const auto chosen = absolute_path(std::getenv("XDG_CONFIG_HOME"));
  return chosen.value_or(home_folder() / ".config") / "sonivo" / "microphones";
}

std::vector<std::filesystem::path> microphone_tables() {
  return {own_microphone_table(), "/etc/sonivo/microphones", installed() / "microphones"};
}

}  // namespace sonivo::linux
