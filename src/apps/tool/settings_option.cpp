#include "apps/tool/settings_option.h"

#include <CLI/CLI.hpp>

#include "apps/tool/failure.h"

namespace sonivo::tool {

void add_settings_option(CLI::App& command, NamedValues& settings, const std::string& description) {
  const auto add = [&settings](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
      const std::size_t sign = text.find('=');
      if (sign == 0 || sign == text.npos) throw UsageError("--set takes NAME=VALUE, not '" + text + "'");
      settings.emplace_back(text.substr(0, sign), text.substr(sign + 1));
    }
  };
  command.add_option_function<std::vector<std::string>>("--set", add, description)
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
}

}  // namespace sonivo::tool
