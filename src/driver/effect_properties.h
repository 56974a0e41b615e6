#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "driver/state_folder.h"
#include "platform/control_store.h"
#include "platform/fx_requests.h"

namespace sonivo::driver {

/// Effect properties of endpoints, kept in the file "effect-properties", one a line: home, format GUID, pid, type,
/// value in hexadecimal, endpoint id.
class EffectProperties {
 public:
  /// Takes over what the folder holds; a damaged file is set aside.
  explicit EffectProperties(StateFolder& folder);

  control::Answer get(std::span<const std::byte> input, std::span<std::byte> output) const;
  /// On the calling thread, which waits for the disk, to which all values are written. A change that can't be written
  /// fails, and the value stays; should the disk have failed at the very last step, the file may hold the refused one
  /// until the next request, be it one that sets the old value, is written.
  control::Answer set(std::span<const std::byte> input);
  control::Answer remove(std::span<const std::byte> input);

  /// The endpoint that a watch names, by its id or its GUID.
  std::optional<std::u16string> find_endpoint(std::u16string_view name) const;
  /// The latest change that counts for the watches of the endpoint; never 0.
  std::uint64_t latest_change(const std::u16string& endpoint) const;
  /// A change for the watches of every endpoint.
  void touch_all();

  struct Address {
    control::FxHome home = control::FxHome::user_store;
    std::u16string endpoint;
    PropertyKey key;
    friend auto operator<=>(const Address&, const Address&) = default;
  };
  struct Value {
    std::uint32_t type = 0;
    std::vector<std::byte> bytes;
    friend bool operator==(const Value&, const Value&) = default;
  };

 private:
  using Values = std::map<Address, Value>;
  control::Answer replace(Values next, const Address& changed);
  void touch(const std::u16string& endpoint);

  StateFolder& folder_;
  Values values_;
  bool unsure_ = false;                              // the file may hold something else
  std::uint64_t change_ = 1;                         // the latest of all
  std::uint64_t for_all_ = 1;                        // the latest that counts for every endpoint
  std::map<std::u16string, std::uint64_t> changes_;  // later ones, by endpoint
};

}  // namespace sonivo::driver
