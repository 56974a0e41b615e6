#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace sonivo::test {

/// Sets a variable of the environment, or takes it out (null), for as long as the object lives.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (value == nullptr) {
      ::unsetenv(name);
    } else {
      ::setenv(name, value, 1);
    }
  }
  ~ScopedVariable() { ::unsetenv(name_); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* name_;
};

inline std::string content_of(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline std::vector<std::filesystem::path> files_in(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

/// The text with a 0 for each digit.
inline std::string shape_of(std::string text) {
  for (char& c : text) {
    if (c >= '0' && c <= '9') c = '0';
  }
  return text;
}

/// Folders with the names that files of a dump would get in the next seconds, those that end so.
inline void stand_in_the_way_of_dumps(const std::filesystem::path& folder, const std::string& ending) {
  constexpr std::time_t kSeconds = 30;
  const std::time_t now = std::time(nullptr);
  for (std::time_t time = now; time < now + kSeconds; ++time) {
    std::tm calendar{};
    ::localtime_r(&time, &calendar);
    char name[32];
    std::strftime(name, sizeof name, "dump_%Y%m%d_%H%M%S", &calendar);
    std::filesystem::create_directory(folder / (name + ending));
  }
}

/// Writes a file and opens it for reading.
inline std::FILE* opened(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
  return std::fopen(path.c_str(), "rb");
}

}  // namespace sonivo::test
