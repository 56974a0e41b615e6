#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <variant>
#include <vector>

#include "platform/control_store.h"

namespace sonivo::tool {

/// The driver's values in the words of people.
///
///   flags                         on, off
///   meeting-mode                  off, or the position 1 to 5: 3 to 5 are 1 to 3 with room correction
///   speaker-mode, headphone-mode  0 to 4
///   model                         small, medium, large, or the row 3, 2, 1
///   enrolment                     start, running, abort, or a result
///   endpoints                     default, or the id of an endpoint
///   texts                         at most 259 characters of UTF-16

/// The setting of this name. Throws UsageError, with the name that was meant or all there are.
const control::Setting& setting_named(const std::string& name);

/// Only the machine itself has reason to set it.
bool is_of_the_machine(const control::Setting& setting);

/// Where the driver keeps what the user wants, beside what is in effect; null for a value of one layer.
const control::Setting* user_layer(const control::Setting& setting);
/// Whether it is such a user's layer itself.
bool is_user_layer(const control::Setting& setting);

/// One request that sets something.
struct SetRequest {
  std::uint32_t code = 0;
  std::variant<std::uint32_t, std::u16string> value;
  std::string name;  ///< of the setting, for messages
};

/// Appends the requests by which a setting takes a value, in both layers where it has two. Throws UsageError for a
/// value that it doesn't take.
void add_requests(std::vector<SetRequest>& requests, const control::Setting& setting, const std::string& value);

/// A value as setting_requests takes it, where it is one of those.
std::string value_text(const control::Store& store, const control::Setting& setting);
/// As a JSON value: true and false for flags, 0 for a meeting mode that is off, "" for a default endpoint.
nlohmann::ordered_json value_json(const control::Store& store, const control::Setting& setting);
/// Each name with its value, the two layers apart.
nlohmann::ordered_json settings_json(const control::Store& store);

}  // namespace sonivo::tool
