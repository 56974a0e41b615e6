#include "apps/tool/own_names.h"

#include <fstream>
#include <iterator>
#include <system_error>

#include "apps/tool/failure.h"

namespace sonivo::tool {

namespace {

constexpr const char* kArrayName = " = マイク配列 (デジタルマイク向けインテル\n";

/// Empty for an id that the table would read otherwise.
std::string line_of(const std::string& id) {
  const bool is_read_as_it_is = !id.empty() && id.find_first_of("=\n\r") == id.npos && id.front() != '#' &&
                                id.find_first_of(" \t") != 0 && id.find_last_of(" \t") + 1 != id.size();
  return is_read_as_it_is ? id + kArrayName : std::string();
}

/// Where the line begins in the text; npos when it isn't there.
std::size_t place_of(const std::string& line, const std::string& text) {
  std::size_t at = text.find(line);
  while (at != text.npos && at != 0 && text[at - 1] != '\n') at = text.find(line, at + 1);
  return at;
}

}  // namespace

bool OwnNames::add(const std::string& id) {
  const std::string line = line_of(id);
  if (line.empty()) throw Failure("'" + id + "' can't stand in a table of microphone names");
  const std::string all = text();
  if (place_of(line, all) != all.npos) return false;
  prepare(line + all);
  return true;
}

bool OwnNames::remove(const std::string& id) {
  const std::string line = line_of(id);
  std::string all = text();
  const std::size_t at = line.empty() ? all.npos : place_of(line, all);
  if (at == all.npos) return false;
  prepare(all.erase(at, line.size()));
  return true;
}

void OwnNames::commit() {
  if (change_) change_->commit();
  change_.reset();
}

std::string OwnNames::text() const {
  std::ifstream file(table_, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  std::error_code ignored;
  if (!file.is_open() && std::filesystem::exists(table_, ignored)) {
    throw Failure("cannot read '" + table_.string() + "'; make it readable, or remove it");
  }
  return text;
}

void OwnNames::prepare(const std::string& text) {
  std::error_code why;
  std::filesystem::create_directories(table_.parent_path(), why);
  if (why) throw Failure("cannot make the folder '" + table_.parent_path().string() + "': " + why.message());
  change_ = std::make_unique<OutputFile>(table_);
  change_->write(text);
}

}  // namespace sonivo::tool
