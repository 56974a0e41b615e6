#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>

namespace sonivo::tool {

/// As commands print JSON: indented, with an end of line, and what is no UTF-8 replaced.
void write_json(std::ostream& output, const nlohmann::ordered_json& json);

}  // namespace sonivo::tool
