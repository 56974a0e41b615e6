#include "driver/state_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "base/trace.h"
#include "driver/own_folder.h"

namespace sonivo::driver {
namespace {

constexpr std::size_t kMaxFileBytes = std::size_t{32} << 20;

std::runtime_error path_failure(const std::string& what, const std::filesystem::path& path, int number) {
  return std::runtime_error(what + " " + path.string() + ": " + std::strerror(number));
}

Error write_error(int number) {
  switch (number) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return error::kDiskFull;
    default:
      return error::kWriteFault;
  }
}

/// What the links of this name lead to.
std::filesystem::path followed(std::filesystem::path path) {
  constexpr int kMostLinks = 40;
  for (int links = 0; links < kMostLinks; ++links) {
    std::error_code is_no_link;
    const std::filesystem::path target = std::filesystem::read_symlink(path, is_no_link);
    if (is_no_link) return path;
    path = path.parent_path() / target;
  }
  throw path_failure("can't follow the links of", path, ELOOP);
}

/// FNV-1a of 64 bits, in hexadecimal.
std::string checksum(std::string_view text) {
  std::uint64_t sum = 0xCBF29CE484222325;
  for (const char each : text) sum = (sum ^ static_cast<unsigned char>(each)) * 0x100000001B3;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(sum));
  return digits;
}

/// With a higher number the later it was set aside.
std::string damaged_name(const std::string& name, int number) {
  return name + ".damaged" + (number == 1 ? "" : "." + std::to_string(number));
}

constexpr std::string_view kChecksum = "checksum ";

/// The lines of a file's content without title and checksum; none, with the reason, when it is damaged.
std::optional<std::vector<std::string>> checked_lines(std::string_view content, std::string_view title,
                                                      std::string& why) {
  std::vector<std::string> lines;
  std::size_t last = 0;
  for (std::size_t start = 0; start < content.size();) {
    const std::size_t end = content.find('\n', start);
    if (end == content.npos) {
      why = "its last line has no end";
      return std::nullopt;
    }
    lines.emplace_back(content.substr(start, end - start));
    last = start;
    start = end + 1;
  }
  if (lines.size() < 2 || lines.front() != title) {
    why = "it doesn't start with \"" + std::string(title) + "\"";
    return std::nullopt;
  }
  if (lines.back() != std::string(kChecksum) + checksum(content.substr(0, last))) {
    why = "its checksum is wrong";
    return std::nullopt;
  }
  lines.erase(lines.begin());
  lines.pop_back();
  return lines;
}

}  // namespace

StateFolder::StateFolder(std::filesystem::path folder, Disk& disk) : path_(std::move(folder)), disk_(disk) {
  if (!path_.has_filename()) path_ = path_.parent_path();
  folder_ = open_own_folder(path_);
  if (::flock(folder_.number(), LOCK_EX | LOCK_NB) == 0) return;
  if (errno == EWOULDBLOCK) throw std::runtime_error("another driver keeps its state in " + path_.string());
  throw path_failure("can't lock the folder", path_, errno);
}

StateFolder::Place StateFolder::place_of(const std::string& name) const {
  const std::filesystem::path target = followed(path_ / name);
  if (target == path_ / name) return {{}, folder_.number(), name, target};
  Descriptor elsewhere = open_own_folder(target.parent_path());
  const int folder = elsewhere.number();
  return {std::move(elsewhere), folder, target.filename(), target};
}

std::vector<std::string> StateFolder::load(const std::string& name, std::string_view title) {
  const Place place = place_of(name);
  // Without O_NONBLOCK a FIFO of that name would be waited for.
  const Descriptor file(::openat(place.folder, place.name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file.is_open()) {
    if (errno == ENOENT) return {};
    throw path_failure("can't open", place.path, errno);
  }
  struct stat there {};
  if (::fstat(file.number(), &there) != 0) throw path_failure("can't read", place.path, errno);
  if (!S_ISREG(there.st_mode)) throw std::runtime_error(place.path.string() + " is no regular file");
  std::string content;
  for (char part[4096];;) {
    const ssize_t count = ::read(file.number(), part, sizeof part);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw path_failure("can't read", place.path, errno);
    if (count == 0) break;
    content.append(part, static_cast<std::size_t>(count));
    if (content.size() > kMaxFileBytes) break;
  }
  std::string why = "it is too large";
  if (content.size() <= kMaxFileBytes) {
    if (auto lines = checked_lines(content, title, why)) return std::move(*lines);
  }
  set_aside(name, why);
  return {};
}

Error StateFolder::save(const std::string& name, std::string_view title, const std::vector<std::string>& lines) {
  std::string content = std::string(title) + '\n';
  for (const std::string& line : lines) content += line + '\n';
  content += std::string(kChecksum) + checksum(content) + '\n';
  try {
    const Place place = place_of(name);
    const int reason = write_new(place, content);
    return reason == 0 ? error::kNone : failed_save(place.path, write_error(reason), std::strerror(reason));
  } catch (const std::runtime_error& no_place) {
    return failed_save(path_ / name, error::kWriteFault, no_place.what());
  }
}

Error StateFolder::failed_save(const std::filesystem::path& path, Error error, const char* why) const {
  trace(TraceLevel::error, "%s can't be written: %s\n", path.c_str(), why);
  return error;
}

int StateFolder::write_new(const Place& place, std::string_view content) {
  const std::string new_name = place.name + ".new";
  const auto give_up = [&] {
    const int why = errno;
    ::unlinkat(place.folder, new_name.c_str(), 0);
    return why;
  };
  ::unlinkat(place.folder, new_name.c_str(), 0);  // whatever has the name isn't written to, nor waited for
  const Descriptor file(disk_.create(place.folder, new_name.c_str()));
  if (!file.is_open()) return errno;
  while (!content.empty()) {
    const ssize_t count = disk_.write(file.number(), content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return give_up();
    content.remove_prefix(static_cast<std::size_t>(count));
  }
  if (disk_.sync(file.number()) != 0) return give_up();
  if (disk_.rename(place.folder, new_name.c_str(), place.name.c_str()) != 0) return give_up();
  return disk_.sync(place.folder) == 0 ? 0 : errno;
}

void StateFolder::set_aside(const std::string& name, const std::string& why) {
  const Place place = place_of(name);
  const auto move = [&place](const std::string& from, const std::string& to, unsigned flags) {
    return ::renameat2(place.folder, from.c_str(), place.folder, to.c_str(), flags) == 0;
  };
  std::string aside;
  bool moved = false;
  for (int number = 1; number <= kMaxDamaged && !moved; ++number) {
    aside = damaged_name(place.name, number);
    moved = move(place.name, aside, RENAME_NOREPLACE);
  }
  if (!moved && errno == EEXIST) {
    moved = true;
    for (int number = 2; number <= kMaxDamaged && moved; ++number) {
      moved = move(damaged_name(place.name, number), damaged_name(place.name, number - 1), 0);
    }
    moved = moved && move(place.name, aside, RENAME_NOREPLACE);
  }
  const std::string file = place.path.string();
  if (!moved) {
    throw path_failure(file + " is damaged (" + why + ") and can't be set aside as", place.path.parent_path() / aside,
                       errno);
  }
  trace(TraceLevel::warning, "%s is damaged: %s; it is now called %s, and defaults apply\n", file.c_str(), why.c_str(),
        aside.c_str());
}

std::string escaped(std::u16string_view text) {
  std::string line;
  for (const char16_t each : text) {
    if (each >= u' ' && each <= u'~' && each != u'\\') {
      line += static_cast<char>(each);
    } else {
      char code[7];
      std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(each));
      line += code;
    }
  }
  return line;
}

std::optional<std::u16string> unescaped(std::string_view text) {
  std::u16string plain;
  while (!text.empty()) {
    if (text.front() != '\\') {
      if (text.front() < ' ' || text.front() > '~') return std::nullopt;
      plain += static_cast<char16_t>(text.front());
      text.remove_prefix(1);
      continue;
    }
    std::uint16_t code = 0;
    if (text.size() < 6 || text[1] != 'u') return std::nullopt;
    const auto [end, wrong] = std::from_chars(text.data() + 2, text.data() + 6, code, 16);
    if (wrong != std::errc{} || end != text.data() + 6) return std::nullopt;
    plain += static_cast<char16_t>(code);
    text.remove_prefix(6);
  }
  return plain;
}

}  // namespace sonivo::driver
