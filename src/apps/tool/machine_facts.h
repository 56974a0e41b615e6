#pragma once

#include <string>

#include "apps/tool/doctor_rules.h"

namespace sonivo::tool {

/// Looks at the machine that the program runs on, the driver at `socket` (the usual one when empty) included. Takes a
/// few seconds at most: whoever does not answer in time counts as one that does not answer.
MachineFacts gather_facts(const std::string& socket);

}  // namespace sonivo::tool
