#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace sonivo::classic {

/// Where the numbers of a parameter set come from, by key.
class ParSource {
 public:
  explicit ParSource(std::ostream& messages) : messages_(messages) {}  // messages outlives this object
  virtual ~ParSource() = default;
  ParSource(const ParSource&) = delete;
  ParSource& operator=(const ParSource&) = delete;

  /// The number of a key. Nothing, with a message, where the key is absent or malformed.
  virtual std::optional<double> number(const std::string& key) = 0;

  std::ostream& messages() { return messages_; }

 private:
  std::ostream& messages_;
};

/// The name of an array element: each "%d" in turn becomes an index, "%%" becomes "%". With one index,
/// "npm_band[%d][%%d]" gives the name of a row, "npm_band[1][%d]".
std::string indexed(std::string_view name, std::size_t first, std::size_t second = 0);

}  // namespace sonivo::classic
