#include "apps/tool/json_output.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace sonivo::tool {

namespace {

constexpr int kJsonIndent = 2;

}  // namespace

void write_json(std::ostream& output, const nlohmann::ordered_json& json) {
  output << json.dump(kJsonIndent, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

}  // namespace sonivo::tool
