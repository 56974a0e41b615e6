#include "apps/tool/network_file.h"

#include <fstream>
#include <ios>
#include <sstream>
#include <string_view>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "meridane/error.h"

namespace sonivo::tool {

namespace {

const char* mime(NetworkForm form) { return form == NetworkForm::xml ? "text/xml" : "application/meridane-bin"; }

/// A document begins with a "<", behind blanks or a byte order mark; all else is taken for the binary form.
NetworkForm form_of(std::istream& stream) {
  constexpr std::string_view kBefore = "\xef\xbb\xbf \t\r\n";
  char first = ' ';
  while (stream.get(first) && kBefore.find(first) != kBefore.npos) {
  }
  const bool is_document = stream && first == '<';
  stream.clear();
  stream.seekg(0);
  return is_document ? NetworkForm::xml : NetworkForm::binary;
}

}  // namespace

NetworkFile read_network(const std::string& name) {
  require_file(name, "a network");
  std::ifstream file(name, std::ios_base::binary);
  if (!file) throw Failure("cannot open '" + name + "'; check its name and its permissions");
  const NetworkForm form = form_of(file);
  auto network = std::make_unique<meridane::NNParameter>();
  try {
    network->load(file, mime(form));
  } catch (const meridane::BaseRuntimeError& error) {
    throw Failure("'" + name + "' is no network: " + error.what());
  }
  return {form, std::move(network)};
}

std::string network_bytes(const meridane::NNParameter& network, NetworkForm form) {
  std::ostringstream bytes;
  network.dump(bytes, mime(form));
  return std::move(bytes).str();
}

}  // namespace sonivo::tool
