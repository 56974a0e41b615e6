#include "apps/tool/params_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <sstream>
#include <type_traits>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/output_file.h"
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

template <typename Param>
void write_blob(OutputFile& file, const Param& param) {
  const std::unique_ptr<std::FILE, CloseFile> stream(::fdopen(::dup(file.descriptor()), "wb"));
  if (!stream || classic::store_blob(stream.get(), param) != BlobFileResult::done) {
    throw Failure("cannot write '" + file.name() + "': " + std::strerror(errno) +
                  "; make room or choose another folder");
  }
}

/// The blob must not take the place of a filter that it was made from.
template <typename Param>
void refuse_filter_file(const ParamsOptions& options) {
  if constexpr (std::is_same_v<Param, BeamFormingKeyCancelParam>) {
    std::ostringstream silence;  // the reader has said all that there is to say
    classic::ParFile file(options.par_file, silence);
    constexpr std::size_t kInputs = classic::kBeams;
    for (std::size_t i = 0; i < kInputs * classic::kBeams; ++i) {
      const auto filter = file.referenced_path(classic::indexed("fd_fbf_ain_flt[%d][%d]", i / kInputs, i % kInputs));
      if (filter) refuse_same_file(*filter, options.blob, "a filter file of the parameters");
    }
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
  refuse_filter_file<Param>(options);
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
