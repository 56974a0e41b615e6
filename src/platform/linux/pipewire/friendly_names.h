#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sonivo::pipewire {

/// The names by which microphones are known to the program. Its rules recognise a notebook's own microphone by
/// fragments that the sound drivers of one system put into names; what this system calls such a microphone stands in a
/// table, which an installation can extend.
///
/// A table is text: one rule a line, "FRAGMENT = NAME". A microphone whose description or node name contains the
/// fragment gets NAME in parentheses after its description. Lines that are empty or start with '#' mean nothing. The
/// first rule that fits holds.
class FriendlyNames {
 public:
  /// Adds the rules of a text. Returns the number of the first line that is no rule, from 1, or 0; none is added then.
  int add(std::string_view text);
  /// Adds the rules of a file: an empty text, or why that can't be done, in a sentence.
  std::string add_file(const std::string& path);

  std::string name_of(const std::string& description, const std::string& node_name) const;

 private:
  struct Rule {
    std::string fragment;
    std::string name;
  };
  std::vector<Rule> rules_;
};

/// The names of those tables that are there. One that is wrong is left out, and adds a sentence to `faults`.
FriendlyNames names_of_tables(std::span<const std::filesystem::path> tables, std::vector<std::string>& faults);

}  // namespace sonivo::pipewire
