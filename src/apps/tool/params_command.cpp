#include "apps/tool/params_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>

#include "apps/tool/failure.h"
#include "apps/tool/output_file.h"
#include "apps/tool/wav_file.h"
#include "classic/blob_file.h"
#include "classic/par_listing.h"
#include "classic/par_reader.h"
#include "classic/param_check.h"

namespace sonivo::tool {

namespace {

using classic::BeamFormingKeyCancelParam;
using classic::BlobFileResult;
using classic::KeyCancelParam;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/// A file is read more than once, so pipes are no use.
void require_file(const std::string& path, const std::string& what) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (std::filesystem::is_directory(status)) throw Failure("'" + path + "' is a folder; give " + what);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw Failure("'" + path + "' is a pipe or a device; give " + what);
  }
  if (::access(path.c_str(), R_OK) != 0) {
    throw Failure("cannot open '" + path + "': " + std::strerror(errno) + "; check its name and its permissions");
  }
}

template <typename Param>
void write_blob(OutputFile& file, const Param& param) {
  const std::unique_ptr<std::FILE, CloseFile> stream(::fdopen(::dup(file.descriptor()), "wb"));
  if (!stream || classic::store_blob(stream.get(), param) != BlobFileResult::done) {
    throw Failure("cannot write '" + file.name() + "': " + std::strerror(errno) +
                  "; make room or choose another folder");
  }
}

template <typename Param>
void build(const ParamsOptions& options, std::ostream& output) {
  require_file(options.par_file, "a parameter file");
  refuse_same_file(options.par_file, options.blob);
  OutputFile file(options.blob);
  const auto param = classic::MakeParams<Param>(options.par_file, output);
  if (!param) throw Failure("'" + options.par_file + "' makes no blob; mend the keys named on standard output");
  if (const auto fault = classic::first_fault(*param)) {
    throw Failure("no chain can run on '" + options.par_file + "': " + *fault + "; mend the keys that say so");
  }
  write_blob(file, *param);
  file.commit();
}

template <typename Param>
void show(const std::string& path, std::ostream& output) {
  const auto param = std::make_unique<Param>();
  if (classic::load_blob(path, *param) != BlobFileResult::done) {
    throw Failure("cannot read '" + path + "'; make or copy it again");
  }
  classic::list_fields(output, *param);
}

void show(const std::string& path, std::ostream& output) {
  require_file(path, "a parameter blob");
  std::error_code error;
  switch (const auto size = std::filesystem::file_size(path, error)) {
    case sizeof(KeyCancelParam):
      return show<KeyCancelParam>(path, output);
    case sizeof(BeamFormingKeyCancelParam):
      return show<BeamFormingKeyCancelParam>(path, output);
    default:
      throw Failure("'" + path + "' holds " + std::to_string(size) +
                    " bytes; give a blob of 15808 (keycancel) or 32636 (beamforming)");
  }
}

BlobKind parse_kind(const std::string& text) {
  if (text == "keycancel") return BlobKind::keycancel;
  if (text == "beamforming") return BlobKind::beamforming;
  throw UsageError("KIND takes keycancel or beamforming, not '" + text + "'");
}

}  // namespace

void add_params_commands(CLI::App& command, ParamsOptions& options) {
  command.require_subcommand(1);
  command.footer(
      "Example:\n"
      "  sonivo params build keycancel tuning.par tuning.blob\n"
      "  sonivo params show tuning.blob\n");

  CLI::App* const build =
      command.add_subcommand("build",
                             "Turns a parameter file, lines of \"key = value\", into the blob of a chain.\n"
                             "Every key that is missing or malformed is named on standard output.");
  build->footer("Example:\n  sonivo params build keycancel tuning.par tuning.blob\n");
  build
      ->add_option_function<std::string>(
          "KIND", [&options](const std::string& text) { options.kind = parse_kind(text); }, "keycancel or beamforming")
      ->type_name("KIND")
      ->required();
  build->add_option("FILE", options.par_file, "parameter file; filter files lie in its folder")
      ->type_name("FILE")
      ->required();
  build->add_option("BLOB", options.blob, "blob to write")->type_name("FILE")->required();
  build->callback([&options] { options.action = ParamsOptions::Action::build; });

  CLI::App* const show = command.add_subcommand(
      "show", "Lists every field of a blob: byte offset, name, value. Windows and filter spectra show their ends.");
  show->footer("Example:\n  sonivo params show tuning.blob | grep vds\n");
  show->add_option("BLOB", options.blob, "blob of 15808 (keycancel) or 32636 bytes (beamforming)")
      ->type_name("FILE")
      ->required();
  show->callback([&options] { options.action = ParamsOptions::Action::show; });
}

void run_params_command(const ParamsOptions& options, std::ostream& output) {
  switch (options.action) {
    case ParamsOptions::Action::none:
      break;
    case ParamsOptions::Action::build:
      if (options.kind == BlobKind::keycancel) return build<KeyCancelParam>(options, output);
      return build<BeamFormingKeyCancelParam>(options, output);
    case ParamsOptions::Action::show:
      return show(options.blob, output);
  }
}

}  // namespace sonivo::tool
