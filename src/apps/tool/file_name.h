#pragma once

#include <string>

namespace sonivo::tool {

/// Throws UsageError for a name that can't be a file's: an empty one, and "-", which means a stream to other programs.
void check_file_name(const std::string& argument, const std::string& name, const std::string& stream);

/// Throws Failure for what is no file that can be read: a folder, a pipe or a device too. `what` is the file that is
/// wanted, as in "a parameter blob".
void require_file(const std::string& path, const std::string& what);

/// Throws Failure when both names lead to the same file, through links too. `what` is the file that would be lost.
void refuse_same_file(const std::string& input, const std::string& output, const std::string& what = "the input");

}  // namespace sonivo::tool
