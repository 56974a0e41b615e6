#pragma once

#include <filesystem>

namespace sonivo {

class Folders {
 public:
  virtual ~Folders() = default;
  /// Where the delivered model files lie.
  virtual std::filesystem::path system_model_folder() = 0;
  /// System folder of the program's bitmaps.
  virtual std::filesystem::path bitmap_folder() = 0;
  /// Where the signed-in user's own data lie.
  virtual std::filesystem::path user_data_folder() = 0;
};

}  // namespace sonivo
