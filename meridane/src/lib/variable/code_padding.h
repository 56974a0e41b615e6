#pragma once

#include <cstdint>

namespace meridane {

inline constexpr std::int64_t kLineGroup = 4;   ///< lines of a left operand come in groups of this size
inline constexpr std::int64_t kCodeGroup = 16;  ///< and codes of a line

constexpr std::int64_t rounded_up(std::int64_t size, std::int64_t group) { return (size + group - 1) / group * group; }

}  // namespace meridane
