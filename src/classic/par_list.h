#pragma once

#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "classic/par_source.h"

namespace sonivo::classic {

/// A parameter and its numbers as a par file would have them.
struct ParEntry {
  std::string_view name;        ///< a key; "[%d]" in the place of an index stands for all elements
  std::vector<double> numbers;  ///< of an array: by the last index, or one for all of it
};

/// Parameters written down in the program. An exact key comes before the row of a two-dimensional array, the row before
/// the whole array.
class ParList final : public ParSource {
 public:
  /// entries outlive this object.
  ParList(std::span<const ParEntry> entries, std::ostream& messages) : ParSource(messages), entries_(entries) {}

  std::optional<double> number(const std::string& key) override;

 private:
  const ParEntry* find(std::string_view name) const;

  std::span<const ParEntry> entries_;
};

}  // namespace sonivo::classic
