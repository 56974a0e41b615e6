#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace sonivo::tool {

/// A file that appears under its name, or where the links of that name lead, whole or not at all: written under a
/// temporary name beside it, then renamed.
/// What was not committed is removed, on SIGINT, SIGTERM and SIGHUP too. One at a time.
class OutputFile {
 public:
  /// Creates the temporary file, so that a folder that can't be written to is found before the work. Throws Failure,
  /// also for what is no file or belongs to a redirection.
  explicit OutputFile(const std::string& name);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::string& name() const { return name_; }
  int descriptor() const { return descriptor_; }
  /// What commit() gives the name to: for those who write files by name. They may replace it.
  const std::filesystem::path& temporary() const { return temporary_; }

  /// Appends to the file. Throws Failure.
  void write(std::string_view bytes);
  /// Gives the file its name. Throws Failure.
  void commit();

 private:
  std::string name_;
  std::filesystem::path target_;
  std::filesystem::path temporary_;
  int descriptor_ = -1;
  mode_t mode_ = 0;  // of the file that is replaced
};

}  // namespace sonivo::tool
