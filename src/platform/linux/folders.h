#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "platform/folders.h"

namespace sonivo::linux {

/// Where a program finds what was installed with it, and what its user has.
class InstalledFolders final : public Folders {
 public:
  struct Places {
    std::filesystem::path models;
    std::filesystem::path bitmaps;
    std::filesystem::path user_data;
  };
  /// Of the running program: "share/sonivo" beside the folder that it lies in, or the model folder chosen when it was
  /// built, and the user's $XDG_DATA_HOME, else ~/.local/share. Relative paths in the environment don't count.
  static Places places();

  /// Makes the user's folder where it is missing, for that user alone.
  explicit InstalledFolders(Places where = places());

  std::filesystem::path system_model_folder() override { return places_.models; }
  std::filesystem::path bitmap_folder() override { return places_.bitmaps; }
  std::filesystem::path user_data_folder() override { return places_.user_data; }

 private:
  const Places places_;
};

/// The user's own table of microphone names: "sonivo/microphones" in $XDG_CONFIG_HOME, else in ~/.config.
std::filesystem::path own_microphone_table();

/// Tables of microphone names, the one that holds first in front: the user's own, that of the machine's owner, the one
/// that is installed with the program. None of them has to be there.
std::vector<std::filesystem::path> microphone_tables();

}  // namespace sonivo::linux
