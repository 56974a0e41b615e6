#include "classic/par_file.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>

#include "classic/file.h"

namespace sonivo::classic {

namespace {

constexpr std::size_t kLineBuffer = 256;

/// A folder can be opened, but holds no text; a pipe would be waited for.
File open(const std::string& path, const char* mode) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return nullptr;
  return File(std::fopen(path.c_str(), mode));
}

std::string_view without_line_end(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

/// The folder of a path, with the separator behind it; empty for a plain name.
std::string folder_of(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

}  // namespace

ParFile::ParFile(std::string path, std::ostream& messages) : ParSource(messages), path_(std::move(path)) {}

std::optional<ParFile::Line> ParFile::find(const std::string& key, Form form) {
  const File file = open(path_, "r");
  if (!file) {
    messages() << "can not open par file " << path_ << "\n";
    return std::nullopt;
  }
  std::array<char, kLineBuffer> buffer;
  while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file.get()) != nullptr) {
    const std::string_view whole = buffer.data();
    const std::string_view line = form == raw_of ? whole : without_line_end(whole);
    const LineValue value = form(line, key);
    if (value.match != LineMatch::none) return Line{value.match, std::string(line), std::string(value.text)};
  }
  return Line{LineMatch::none, {}, {}};
}

std::optional<std::string> ParFile::value(const std::string& key, Form form) {
  std::optional<Line> line = find(key, form);
  if (!line) return std::nullopt;
  switch (line->match) {
    case LineMatch::none:
      messages() << key << " is not include par file\n";
      return std::nullopt;
    case LineMatch::bad:
      messages() << (form == quoted_of ? key : line->whole) << " is bad format\n";
      return std::nullopt;
    case LineMatch::found:
      break;
  }
  return std::move(line->value);
}

std::optional<double> ParFile::number(const std::string& key) {
  const std::optional<std::string> run = value(key, number_of);
  if (!run) return std::nullopt;
  return std::strtod(run->c_str(), nullptr);  // 0 for a run such as "--"
}

std::optional<std::string> ParFile::token(const std::string& key) { return value(key, token_of); }

std::optional<std::string> ParFile::quoted(const std::string& key) { return value(key, quoted_of); }

std::optional<std::string> ParFile::path(const std::string& key) {
  std::optional<std::string> name = token(key);
  if (!name || !name->starts_with('~')) return name;
  const char* const home = std::getenv("HOME");
  if (home == nullptr) {
    messages() << "environment HOME is NULL\n";
    return std::nullopt;
  }
  return home + name->substr(1);
}

std::optional<std::string> ParFile::raw(const std::string& key) {
  std::optional<Line> line = find(key, raw_of);
  if (!line || line->match != LineMatch::found) return std::nullopt;
  return std::move(line->value);
}

std::optional<std::string> ParFile::referenced_path(const std::string& key) {
  std::optional<std::string> name = token(key);
  if (name) name->insert(0, folder_of(path_));
  return name;
}

std::optional<std::vector<std::byte>> ParFile::referenced(const std::string& key) {
  const std::optional<std::string> path = referenced_path(key);
  if (!path) return std::nullopt;
  const File file = open(*path, "rb");
  if (!file) {
    messages() << key << " is bad value\ncan not open " << *path << "\n";
    return std::nullopt;
  }
  std::vector<std::byte> bytes(kReferencedBytes);
  if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
    messages() << key << " is bad value\ncan not read " << *path << "\n";
    return std::nullopt;
  }
  return bytes;
}

}  // namespace sonivo::classic
