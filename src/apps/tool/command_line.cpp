#include "apps/tool/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <new>
#include <ostream>
#include <string_view>
#include <vector>

#include "apps/tool/classic_command.h"
#include "apps/tool/doctor_command.h"
#include "apps/tool/enhance_command.h"
#include "apps/tool/enroll_command.h"
#include "apps/tool/events_command.h"
#include "apps/tool/failure.h"
#include "apps/tool/features_command.h"
#include "apps/tool/model_command.h"
#include "apps/tool/nn_command.h"
#include "apps/tool/params_command.h"
#include "apps/tool/printable.h"
#include "apps/tool/quality_command.h"
#include "apps/tool/relay_command.h"
#include "apps/tool/relay_options.h"
#include "apps/tool/settings_command.h"
#include "apps/tool/setup_command.h"
#include "apps/tool/status_command.h"

namespace sonivo::tool {

namespace {

constexpr int kSuccess = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

int report(std::ostream& errors, std::string_view text, int exit_code) {
  errors << "error: " << printable(text) << '\n';
  return exit_code;
}

/// The exit code of a command that did what it should.
int parse_and_run(std::vector<std::string> arguments, CLI::App& app, std::ostream& output, std::ostream& errors) {
  RelayOptions relay;
  ClassicOptions classic;
  EnhanceOptions enhance;
  EnrollOptions enroll;
  QualityOptions quality;
  const CLI::App* const relay_command = add_relay_command(app, relay);
  const CLI::App* const classic_command = add_classic_command(app, classic);
  const CLI::App* const enhance_command = add_enhance_command(app, enhance);
  const CLI::App* const enroll_command = add_enroll_command(app, enroll);
  const CLI::App* const quality_command = add_quality_command(app, quality);
  ParamsOptions params;
  add_params_commands(*app.add_subcommand("params", "Makes parameter blobs of the classic chains and lists them."),
                      params);
  NNOptions nn;
  add_nn_commands(*app.add_subcommand("nn", "Runs, lists and converts network files."), nn);
  FeaturesOptions features;
  const CLI::App* const features_command = add_features_command(app, features);
  ModelOptions model;
  add_model_commands(*app.add_subcommand("model", "Makes, lists and takes apart model files."), model);
  SettingsOptions settings;
  add_settings_commands(*app.add_subcommand("settings", "Lists, reads and changes the settings that the driver holds."),
                        settings);
  EventsOptions events;
  const CLI::App* const events_command = add_events_command(app, events);
  StatusOptions status;
  const CLI::App* const status_command = add_status_command(app, status);
  SetupOptions setup;
  const CLI::App* const setup_command = add_setup_command(app, setup);
  DoctorOptions doctor;
  const CLI::App* const doctor_command = add_doctor_command(app, doctor);

  std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
  app.parse(std::move(arguments));
  if (relay_command->parsed()) run_relay_command(relay, output, errors);
  if (classic_command->parsed()) run_classic_command(classic, errors);
  if (enhance_command->parsed()) run_enhance_command(enhance, output, errors);
  if (enroll_command->parsed()) run_enroll_command(enroll, output, errors);
  if (quality_command->parsed()) run_quality_command(quality, output);
  run_params_command(params, output);
  run_nn_command(nn, output, errors);
  if (features_command->parsed()) run_features_command(features, errors);
  run_model_command(model, output);
  run_settings_command(settings, output, errors);
  if (events_command->parsed()) run_events_command(events, output);
  if (setup_command->parsed()) run_setup_command(setup, output);
  if (doctor_command->parsed()) return run_doctor_command(doctor, output);
  return status_command->parsed() ? run_status_command(status, output) : kSuccess;
}

}  // namespace

int run_command_line(std::span<const std::string> arguments, std::ostream& output, std::ostream& errors) {
  CLI::App app("Carries audio between a virtual endpoint pair and the physical endpoints of a notebook.", "sonivo");
  app.set_version_flag("--version", "sonivo " SONIVO_VERSION);
  app.footer("sonivo COMMAND --help shows the options of a command and an example.");
  app.require_subcommand(1);
  try {
    return parse_and_run({arguments.begin(), arguments.end()}, app, output, errors);
  } catch (const CLI::Success& request) {
    app.exit(request, output, errors);
    return kSuccess;
  } catch (const CLI::ParseError& error) {
    return report(errors, error.what(), kWrongUsage);
  } catch (const UsageError& error) {
    return report(errors, error.what(), kWrongUsage);
  } catch (const std::bad_alloc&) {
    return report(errors, "not enough memory for this file; cut it into shorter ones", kFailed);
  } catch (const std::exception& error) {
    return report(errors, error.what(), kFailed);
  }
}

}  // namespace sonivo::tool
