#pragma once

#include <string>
#include <vector>

#include "driver/state_folder.h"
#include "platform/control_store.h"

namespace sonivo::driver {

/// The values behind the control channel, kept in the file "settings", one "name value" a line. What tells the state of
/// the machine or of a program that runs lives only as long as the driver: headphone, enrolment and enrolment-dialog.
class Settings {
 public:
  /// Takes over what the folder holds; a damaged file is set aside, and defaults apply.
  explicit Settings(StateFolder& folder);

  /// As control::Store::answer. A change that can't be written to the disk fails, and nothing is changed.
  control::Answer answer(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output);

 private:
  StateFolder& folder_;
  control::Store store_;
  control::Store kept_;             // what the latest answered request left
  std::vector<std::string> lines_;  // what the file holds
};

}  // namespace sonivo::driver
