#pragma once

#include <string>
#include <vector>

#include "driver/state_folder.h"
#include "platform/control_store.h"

namespace sonivo::driver {

/// The values behind the control channel, kept in the file "settings", one "name value" a line. What tells the state of
/// the machine or of a program that runs lives only as long as the driver: headphone, enrolment and enrolment-dialog.
/// Lines with other names, which another version of the driver may have written, stay in the file as they are.
class Settings {
 public:
  /// Takes over what the folder holds; a damaged file is set aside, and defaults apply.
  explicit Settings(StateFolder& folder);

  /// As control::Store::answer, on the calling thread, which waits for the disk. A number that means nothing for its
  /// setting is error::kInvalidParameter. A change that can't be written fails,
  /// and the value stays. Should the disk have failed at the very last step, the file may hold the refused value until
  /// the next request that sets one, be it the old one, is written.
  control::Answer answer(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output);

  std::uint32_t number(std::uint32_t get_code) const { return store_.number(get_code); }

 private:
  StateFolder& folder_;
  control::Store store_;
  control::Store kept_;              // what the latest answered request left
  std::vector<std::string> others_;  // lines with names of other versions
  std::vector<std::string> lines_;   // what the file holds
  bool unsure_ = false;              // it may hold something else
};

}  // namespace sonivo::driver
