#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "apps/tool/doctor_rules.h"

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo doctor` is asked to do.
struct DoctorOptions {
  std::string socket;
  bool json = false;
};

/// Declares the command; parsing fills `options`, which must outlive it.
CLI::App* add_doctor_command(CLI::App& app, DoctorOptions& options);

/// `sonivo doctor`: looks at all that can be wrong and says what is and what to do. Answers the exit code: 0 when all
/// is well, 4 when something isn't.
int run_doctor_command(const DoctorOptions& options, std::ostream& output);

/// As lines, without control characters whatever the names hold.
void print_findings(std::ostream& output, const std::vector<Finding>& findings);
/// As one JSON object.
void print_findings_json(std::ostream& output, const std::vector<Finding>& findings);

}  // namespace sonivo::tool
