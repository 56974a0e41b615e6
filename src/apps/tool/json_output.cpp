#include "apps/tool/json_output.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace sonivo::tool {

void write_json(std::ostream& output, const nlohmann::ordered_json& json) {
  constexpr int kIndent = 2;
  output << json.dump(kIndent, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

}  // namespace sonivo::tool
