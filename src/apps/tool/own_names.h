#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "apps/tool/output_file.h"

namespace sonivo::tool {

/// The user's table of microphone names, as `sonivo setup` edits it: one line of its own for each microphone that is to
/// count as the notebook's array. A change is written beside the table, and takes its place with commit(). All throw
/// Failure.
class OwnNames {
 public:
  /// The table needn't be there.
  explicit OwnNames(std::filesystem::path table) : table_(std::move(table)) {}

  /// In front of what is there. False when it is there already.
  bool add(const std::string& id);
  /// False when it isn't there.
  bool remove(const std::string& id);
  void commit();

 private:
  std::string text() const;
  void prepare(const std::string& text);

  const std::filesystem::path table_;
  std::unique_ptr<OutputFile> change_;
};

}  // namespace sonivo::tool
