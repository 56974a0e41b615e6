#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"
#include "base/status.h"
#include "driver/disk.h"

namespace sonivo::driver {

/// The folder in which the driver keeps what outlives it, as open_own_folder() makes and checks it, and held by one
/// driver at a time: std::runtime_error when that is another one, or when there can be no such folder.
///
/// A file of lines in it starts with a title, which tells what it is and how it is written, and ends with a checksum of
/// all before. It is replaced whole, so that a driver that ends at any moment leaves the former or the next one. Where
/// its name is a link, all of that goes for what the link leads to, in a folder that open_own_folder() takes, too.
class StateFolder {
 public:
  static constexpr int kMaxDamaged = 5;

  StateFolder(std::filesystem::path folder, Disk& disk);

  /// The lines between title and checksum; none when there is no such file. One that is damaged is set aside.
  /// std::runtime_error when the file is there but can't be read, or is no regular file.
  std::vector<std::string> load(const std::string& name, std::string_view title);

  /// Returns once the file is on the disk. After a failure the former file is in place, or the disk failed at the very
  /// last step.
  Error save(const std::string& name, std::string_view title, const std::vector<std::string>& lines);

  /// Renames a file to "<name>.damaged", or with a number up to kMaxDamaged behind it when there are such already, and
  /// says why in the log. When there are all, the oldest goes and the others move up. std::runtime_error when it can't
  /// be renamed: it may be the only copy of what it holds, and nothing is written over it.
  void set_aside(const std::string& name, const std::string& why);

 private:
  /// Where a file lies.
  struct Place {
    Descriptor elsewhere;  ///< open where that is another folder
    int folder;
    std::string name;
    std::filesystem::path path;
  };
  /// std::runtime_error when links lead to no folder of this user.
  Place place_of(const std::string& name) const;
  /// 0, or the errno of what failed.
  int write_new(const Place& place, std::string_view content);
  Error failed_save(const std::filesystem::path& path, Error error, const char* why) const;

  std::filesystem::path path_;
  Disk& disk_;
  Descriptor folder_;
};

/// UTF-16 text as printable ASCII: everything else, and the backslash, is written "\uXXXX".
std::string escaped(std::u16string_view text);
/// None when the text is not of that form.
std::optional<std::u16string> unescaped(std::string_view text);

}  // namespace sonivo::driver
