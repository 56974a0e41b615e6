#include "apps/tool/model_command.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>

#include "apps/tool/failure.h"
#include "apps/tool/file_kind.h"
#include "apps/tool/file_name.h"
#include "apps/tool/network_file.h"
#include "apps/tool/network_listing.h"
#include "apps/tool/output_file.h"
#include "apps/tool/printable.h"
#include "apps/tool/settings_option.h"
#include "e2easr_model/container.h"
#include "e2easr_model/se_model.h"
#include "e2easr_model/spkenc_model.h"
#include "e2easr_model/vad_model.h"
#include "meridane/io/xml.h"

namespace sonivo::tool {

namespace {

using e2e::EncoderModel;

struct ModelKind {
  const char* name;
  const char* title;
  std::function<std::unique_ptr<EncoderModel>()> make;
};

const std::array<ModelKind, 3>& model_kinds() {
  static const std::array<ModelKind, 3> kinds{{
      {"se", "speech enhancement", [] { return std::make_unique<e2e::SEModel>(); }},
      {"spkenc", "speaker encoder", [] { return std::make_unique<e2e::SpkEncModel>(); }},
      {"vad", "voice activity", [] { return std::make_unique<e2e::VADModel>(); }},
  }};
  return kinds;
}

struct ModelFile {
  const ModelKind* kind;
  bool is_text;
  std::string version;
  std::unique_ptr<EncoderModel> model;
};

/// What the file says; the model has the version that its class writes.
std::string version_of(std::istream& file, bool is_text) {
  file.clear();
  file.seekg(e2e::kMagicSize);
  if (!is_text) return e2e::read_version(file);
  const meridane::XmlFile document(file);
  return meridane::fetch_attribute(*document.root(), "version");
}

/// Its first bytes say of which kind and form it is.
ModelFile read_model(const std::string& name) {
  require_file(name, "a model");
  std::ifstream file(name, std::ios_base::binary);
  if (!file) throw Failure("cannot open '" + name + "'; check its name and its permissions");
  std::array<char, e2e::kMagicSize> first{};
  file.read(first.data(), first.size());
  const std::string magic(first.data(), static_cast<std::size_t>(file.gcount()));
  file.clear();
  file.seekg(0);
  for (const ModelKind& kind : model_kinds()) {
    std::unique_ptr<EncoderModel> model = kind.make();
    const bool is_text = magic == model->get<std::string>("magic-number-xml");
    if (!is_text && magic != model->get<std::string>("magic-number-bin")) continue;
    try {
      model->load(file, false);
    } catch (const std::runtime_error& error) {
      throw Failure("'" + name + "' is no model: " + error.what());
    }
    return {&kind, is_text, version_of(file, is_text), std::move(model)};
  }
  throw Failure("'" + name + "' is no model: " + why_no_model(name, "?", "it begins with the magic of none"));
}

std::string flow_document(const std::string& name) {
  require_file(name, "a flow");
  std::ifstream file(name, std::ios_base::binary);
  if (!file) throw Failure("cannot open '" + name + "'; check its name and its permissions");
  try {
    std::ostringstream document;
    e2e::Preprocessor(file).dump(document);
    return std::move(document).str();
  } catch (const std::exception& error) {
    throw Failure("'" + name + "' is no flow: " + error.what());
  }
}

std::string preprocessor_document(const EncoderModel& model) {
  std::ostringstream document;
  model.preprocessor()->dump(document);
  return std::move(document).str();
}

void build(const ModelOptions& options) {
  check_file_name("--nn", options.network, "standard input");
  if (options.flow) check_file_name("--flow", *options.flow, "standard input");
  check_file_name("OUT", options.output, "standard output");
  refuse_same_file(options.network, options.output);
  if (options.flow) refuse_same_file(*options.flow, options.output);
  OutputFile file(options.output);

  const auto& kinds = model_kinds();
  const auto kind =
      std::find_if(kinds.begin(), kinds.end(), [&](const auto& each) { return each.name == options.kind; });
  const std::unique_ptr<EncoderModel> declared = kind->make();
  e2e::Container container;
  for (const auto& [name, value] : options.settings) {
    try {
      declared->set_from_text(name, value);
    } catch (const std::exception& error) {
      throw Failure("--set " + name + "=" + value + ": " + error.what());
    }
    container.symbols[name] = value;
  }
  container.magic = declared->get<std::string>("magic-number-bin");
  container.version = declared->get<std::string>("file-version");
  if (options.flow) container.preprocessor = flow_document(*options.flow);
  container.network = network_bytes(*read_network(options.network).network, NetworkForm::binary);

  std::stringstream bytes;
  try {
    e2e::write_container(bytes, container);
    kind->make()->load(bytes, false);  // what is written loads
  } catch (const std::exception& error) {
    throw Failure(std::string("these parts make no model: ") + error.what());
  }
  file.write(bytes.str());
  file.commit();
}

void info(const ModelOptions& options, std::ostream& output) {
  check_file_name("M", options.model, "standard input");
  const ModelFile file = read_model(options.model);
  const EncoderModel& model = *file.model;
  output << "kind            " << file.kind->name << "  (" << file.kind->title << ")\n"
         << "form            " << (file.is_text ? "xml" : "binary") << '\n'
         << "version         " << printable(file.version) << '\n'
         << "settings        " << model.symbols().size() << '\n';
  for (const auto& [name, value] : model.symbols()) output << "  " << printable(name + "=" + value) << '\n';
  output << "preprocessor    " << (model.preprocessor() == nullptr ? "no" : "yes") << '\n';
  list_network(model.network(), output);
}

void write_file(const std::filesystem::path& path, const std::string& bytes) {
  OutputFile file(path.string());
  file.write(bytes);
  file.commit();
}

void unpack(const ModelOptions& options) {
  check_file_name("M", options.model, "standard input");
  check_file_name("DIR", options.output, "standard output");
  const ModelFile file = read_model(options.model);
  const EncoderModel& model = *file.model;
  const std::filesystem::path folder = options.output;
  for (const char* const name : {"network.nn", "flow.xml", "settings.txt"}) {
    refuse_same_file(options.model, (folder / name).string());
  }
  std::error_code error;
  std::filesystem::create_directory(folder, error);
  if (!std::filesystem::is_directory(folder)) {
    throw Failure("cannot create the folder '" + options.output + "'; choose another name");
  }
  std::string settings;
  for (const auto& [name, value] : model.symbols()) settings += printable(name + "=" + value) + "\n";
  write_file(folder / "network.nn", network_bytes(model.network(), NetworkForm::binary));
  if (model.preprocessor() != nullptr) {
    write_file(folder / "flow.xml", preprocessor_document(model));
  } else {
    std::filesystem::remove(folder / "flow.xml", error);  // of another model, which this one must not be built with
    if (error) throw Failure("cannot remove '" + (folder / "flow.xml").string() + "'; check its permissions");
  }
  write_file(folder / "settings.txt", settings);
}

void add_build(CLI::App& command, ModelOptions& options) {
  CLI::App* const build = command.add_subcommand(
      "build", "Makes a model file of a network, a flow ahead of it if there is one, and values of its\nvariables.");
  build->footer(
      "Example:\n  sonivo model build se --nn net.nn --set frame-length=10 --set is-switching-se=true model.bin\n");
  build->add_option("KIND", options.kind, "se: speech enhancement, spkenc: speaker encoder, vad: voice activity")
      ->type_name("se|spkenc|vad")
      ->check(CLI::IsMember({"se", "spkenc", "vad"}).description(""))
      ->required();
  build->add_option("--nn", options.network, "network, binary or XML")->type_name("FILE")->required();
  build->add_option("--flow", options.flow, "flow that frames go through first, XML")->type_name("FILE");
  add_settings_option(*build, options.settings, "value of a variable, read-only or not; may be given several times");
  build->add_option("OUT", options.output, "model to write")->type_name("FILE")->required();
  build->callback([&options] { options.action = ModelOptions::Action::build; });
}

}  // namespace

void add_model_commands(CLI::App& command, ModelOptions& options) {
  command.require_subcommand(1);
  command.footer(
      "Example:\n"
      "  sonivo model build se --nn net.nn --set frame-length=10 model.bin\n"
      "  sonivo model info model.bin\n");
  add_build(command, options);

  CLI::App* const info = command.add_subcommand("info", "Lists what a model file sets, and its network.");
  info->footer("Example:\n  sonivo model info model.bin\n");
  info->add_option("M", options.model, "model, binary or XML")->type_name("FILE")->required();
  info->callback([&options] { options.action = ModelOptions::Action::info; });

  CLI::App* const unpack = command.add_subcommand(
      "unpack",
      "Writes the parts of a model into a folder: network.nn, flow.xml if there is a flow, and\n"
      "settings.txt with a line NAME=VALUE for each variable that the model sets. A flow.xml of\n"
      "another model is removed if there is no flow.");
  unpack->footer("Example:\n  sonivo model unpack model.bin parts\n");
  unpack->add_option("M", options.model, "model, binary or XML")->type_name("FILE")->required();
  unpack->add_option("DIR", options.output, "folder to write into, made if it isn't there")
      ->type_name("DIR")
      ->required();
  unpack->callback([&options] { options.action = ModelOptions::Action::unpack; });
}

void run_model_command(const ModelOptions& options, std::ostream& output) {
  e2e::initialize();
  switch (options.action) {
    case ModelOptions::Action::none:
      break;
    case ModelOptions::Action::build:
      return build(options);
    case ModelOptions::Action::info:
      return info(options, output);
    case ModelOptions::Action::unpack:
      return unpack(options);
  }
}

}  // namespace sonivo::tool
