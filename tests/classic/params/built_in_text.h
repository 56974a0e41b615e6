#pragma once

#include <optional>
#include <ostream>
#include <sstream>
#include <string>

#include "classic/built_in_params.h"
#include "classic/par_list.h"
#include "classic/par_reader.h"

namespace sonivo::classic::test {

/// Writes down the keys that the built-in set is made of.
class Scribe final : public ParSource {
 public:
  explicit Scribe(std::ostream& lines) : ParSource(lines), list_(NrModelEntries(), lines) {}

  std::optional<double> number(const std::string& key) override {
    const auto value = list_.number(key);
    if (value) messages() << key << " = " << *value << "\n";
    return value;
  }

 private:
  ParList list_;
};

/// The built-in set as a par file; its blob differs in the version alone.
inline std::string built_in_text() {
  std::ostringstream lines;
  Scribe scribe(lines);
  KeyCancelParam param{};
  ReadParams(scribe, param);
  return lines.str();
}

}  // namespace sonivo::classic::test
