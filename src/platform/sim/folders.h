#pragma once

#include <filesystem>
#include <utility>

#include "platform/folders.h"

namespace sonivo::sim {

/// "models", "bitmaps" and "user" below one folder.
class SimFolders final : public Folders {
 public:
  explicit SimFolders(std::filesystem::path root) : root_(std::move(root)) {}

  std::filesystem::path system_model_folder() override { return root_ / "models"; }
  std::filesystem::path bitmap_folder() override { return root_ / "bitmaps"; }
  std::filesystem::path user_data_folder() override { return root_ / "user"; }

 private:
  std::filesystem::path root_;
};

}  // namespace sonivo::sim
