#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>

namespace sonivo::tool {

/// Writes a value with two blanks an indent and a newline at the end. What is no UTF-8 is replaced.
void write_json(std::ostream& output, const nlohmann::ordered_json& json);

}  // namespace sonivo::tool
