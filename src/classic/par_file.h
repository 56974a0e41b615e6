#pragma once

#include <cstddef>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "classic/par_line.h"
#include "classic/par_source.h"

namespace sonivo::classic {

/// A parameter text file of lines "key = value", in any order; the first line of a key counts.
///
/// The file is opened, scanned from its top and closed for each key, and lines are read 255 characters at a time, so
/// that the rest of a longer one counts as a line of its own. What can't be read is nothing, with a message.
class ParFile final : public ParSource {
 public:
  static constexpr std::size_t kReferencedBytes = 3072;

  explicit ParFile(std::string path, std::ostream& messages = std::cout);

  std::optional<double> number(const std::string& key) override;
  std::optional<std::string> token(const std::string& key);
  /// Text between double quotes.
  std::optional<std::string> quoted(const std::string& key);
  /// A token; a leading "~" stands for the home folder.
  std::optional<std::string> path(const std::string& key);
  /// All that stands behind the "=", with the line feed of the line; without a message where the key is absent.
  std::optional<std::string> raw(const std::string& key);
  /// The file that a token names, relative to the par file's own folder.
  std::optional<std::string> referenced_path(const std::string& key);
  /// The first kReferencedBytes bytes of that file.
  std::optional<std::vector<std::byte>> referenced(const std::string& key);

 private:
  struct Line {
    LineMatch match;
    std::string whole;
    std::string value;
  };
  using Form = LineValue (*)(std::string_view line, std::string_view key);

  /// The first line that matches; nothing, with a message, where the file can't be opened.
  std::optional<Line> find(const std::string& key, Form form);
  /// The value of the key, with a message where it is absent or malformed.
  std::optional<std::string> value(const std::string& key, Form form);

  std::string path_;
};

}  // namespace sonivo::classic
