// Any bytes are a layer or an error, as the file that a document refers to and in 8 bits. The first line is a digit,
// which chooses what the rest stands for, and the type of the layer. Of what is a layer, both forms give it again, and
// it runs.

#include <sys/mman.h>
#include <unistd.h>

#include <string_view>

#include "meridane/framescore/nnlayer/builders.h"
#include "run_network.h"

namespace {

using namespace meridane;

/// A file in memory with these bytes.
std::string file_with(std::string_view bytes) {
  static const int file = ::memfd_create("layer", 0);
  if (::ftruncate(file, 0) != 0 || ::pwrite(file, bytes.data(), bytes.size(), 0) < 0) std::abort();
  return formatted("/proc/self/fd/%d", file);
}

void read_network(const std::string& layer) {
  const std::string document = "<NN magic='MerNNpar' ninput='2' noutput='2'><layers>" + layer +
                               "</layers><links><link from_id='_input' to_id='a'/><link from_id='a' to_id='_output'/>"
                               "</links></NN>";
  const auto network = fuzz::network_of(document, fuzz::kDocument);
  fuzz::check_forms(*network);
  fuzz::run(*network);
}

std::shared_ptr<NNLayer> in_8_bits(const std::string& type, const std::string& bytes, bool is_document) {
  std::istringstream stream(bytes);
  if (!is_document) return QuantizedNNLayerBuilder::build(type, "a", nullptr, stream);
  const XmlFile file(stream);
  if (file.root() == nullptr) raise("no element");
  return QuantizedNNLayerBuilder::build(type, "a", file.root(), stream);
}

template <class Dump>
std::string written(Dump dump) {
  std::ostringstream stream;
  dump(stream);
  return stream.str();
}

void read_in_8_bits(const std::string& type, const std::string& bytes, bool is_document) {
  const auto layer = in_8_bits(type, bytes, is_document);
  for (const Eigen::Index rows : {1, 2, 3, 6}) {
    try {
      layer->forward({std::make_shared<Minibatch>(Matrix(Matrix::Ones(rows, 3)))}, layer->create_state());
    } catch (const BaseRuntimeError&) {
    }
  }
  const auto binary = [](const NNLayer& of) { return written([&](std::ostream& to) { of.dump_binary(to); }); };
  const auto document = [](const NNLayer& of) { return written([&](std::ostream& to) { of.dump_xml_stream(to); }); };
  const std::string record = binary(*layer), element = document(*layer);
  if (binary(*in_8_bits(layer->type(), record, false)) != record) std::abort();
  const auto again = in_8_bits(layer->type(), element, true);
  if (document(*again) != element) std::abort();
  if (!fuzz::same_but_nans(binary(*again), record, element)) std::abort();
}

void read(char form, const std::string& type, const std::string& bytes) {
  enum Form : char {
    kLayerDocument = '0',
    kLayerRecord,
    kMatrixText,
    kMatrixRecord,
    kQuantizedRecord,
    kQuantizedDocument
  };
  switch (form) {
    case kLayerDocument:
    case kLayerRecord:
      read_network("<layer id='a' type='" + type + "' ref='" + file_with(bytes) +
                   (form == kLayerRecord ? "' format='application/meridane-bin'/>" : "'/>"));
      return;
    case kMatrixText:
    case kMatrixRecord:
      read_network("<layer id='a' type='Bias'><bias ref='" + file_with(bytes) +
                   (form == kMatrixRecord ? "' type='application/octet-stream'/></layer>" : "'/></layer>"));
      return;
    case kQuantizedRecord:
    case kQuantizedDocument:
      ensure_layer_tables();
      read_in_8_bits(type, bytes, form == kQuantizedDocument);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  log_threshold() = kLogError;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t line = bytes.find('\n');
  if (line == std::string::npos || line == 0) return 0;
  if (bytes.find("ref") != std::string::npos) return 0;  // that would have any file of this machine read
  try {
    read(bytes[0], bytes.substr(1, line - 1), bytes.substr(line + 1));
  } catch (const BaseRuntimeError&) {
  }
  return 0;
}
