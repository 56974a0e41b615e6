#include "e2easr_model/encoder_model.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <mutex>
#include <new>
#include <sstream>
#include <utility>
#include <variant>

#include "e2easr_model/rex_stream.h"
#include "e2easr_model/waveform.h"
#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/frontend/flow_node.h"

namespace sonivo::e2e {

using meridane::find_attribute;
using meridane::find_child;
using meridane::Vector;
using meridane::XmlElement;

namespace {

std::atomic<bool> the_runtime_is_initialized = false;

constexpr const char* kEmbeddingLayer = "prod1";

/// A failure whose text tells the step of loading.
struct StepError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Runs a step of loading. What fails in it, unless it tells its own step, is told as a failure of this one.
template <class Step>
auto in_step(meridane::Format text, const Step& step) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const StepError&) {
    throw;
  } catch (const std::exception& error) {
    e2e::raise<StepError>(text, error.what());
  }
}

template <class Step>
auto in_network_step(const Step& step) {
  return in_step("meridaneモデル読み込み中にエラーが発生した(%s). in %s %d", [&] {
    try {
      return step();
    } catch (const meridane::BuilderNotFound& error) {
      raise<StepError>("現バージョンでは対応していないレイヤを含むモデルはロードできない(%s). in %s %d", error.what());
    }
  });
}

/// All of it must be the network.
void load_network(MeridaneNNNode& node, std::istream& stream) {
  node.load(stream);
  if (stream.peek() != std::istream::traits_type::eof()) {
    throw std::runtime_error("more follows the network than its section may hold");
  }
}

void append_columns(const Matrix& columns, meridane::FrameSequence& frames) {
  for (Eigen::Index i = 0; i < columns.cols(); ++i) frames.emplace_back(Vector(columns.col(i)));
}

void open_binary(std::ifstream& file, const std::string& path) {
  file.open(path, std::ios_base::binary);
  if (!file) raise("ファイル(%s)が開けない. in %s %d", path.c_str());
}

}  // namespace

void initialize() {
  static std::once_flag once;
  std::call_once(once, [] {
    meridane::ensure_layer_tables();
    meridane::ensure_parameter_table();
    meridane::ensure_node_table();
    the_runtime_is_initialized = true;
  });
}

bool is_initialized() { return the_runtime_is_initialized; }

EncoderModelImpl::EncoderModelImpl(const char* file_type, const char* magic_bin, const char* magic_xml) {
  const auto declare = [this](const char* name, const char* value, const char* description) {
    add_variable<std::string>(name, value, true, description, VariableAny());
  };
  declare("file-type", file_type, "root of the text form");
  declare("file-version", "20231004", "version of the file");
  declare("magic-number-bin", magic_bin, "first bytes of the binary form");
  declare("magic-number-xml", magic_xml, "first bytes of the text form");
}

EncoderModelImpl::~EncoderModelImpl() = default;

E2EResult EncoderModelImpl::execute(const Matrix& input) {
  check_loaded();
  E2EResult result;
  result.add<Matrix>("encoded", nn_->process(input));
  return result;
}

void EncoderModelImpl::reset() {
  check_loaded();
  nn_->reset();
}

void EncoderModelImpl::check_loaded() const {
  if (nn_ == nullptr) raise("モデルが読み込まれていない. in %s %d");
}

const meridane::NNParameter& EncoderModelImpl::network() const {
  check_loaded();
  return nn_->network();
}

void EncoderModelImpl::unload() {
  preprocessor_.reset();
  nn_.reset();
  symbols_.clear();
  restore_defaults();
}

void EncoderModelImpl::load(std::istream& stream, bool use_shared_memory) {
  if (nn_ != nullptr) raise("モデルが既に読み込まれている. in %s %d");
  try {
    const std::string magic = read_text(stream, kMagicSize);
    if (magic == get<std::string>("magic-number-bin")) {
      load_bin(stream, use_shared_memory);
    } else if (magic == get<std::string>("magic-number-xml")) {
      load_xml(meridane::XmlFile(stream), use_shared_memory);
    } else {
      raise("E2E用モデルではない(%s). in %s %d", magic.c_str());
    }
    start_preprocessor();  // a stream that runs goes on with it
  } catch (const std::bad_alloc&) {
    unload();
    raise("メモリ不足 in %s %d");
  } catch (const std::exception& error) {
    const std::string cause = error.what();
    unload();
    raise("%s. in %s %d", cause.c_str());
  }
}

void EncoderModelImpl::load(const std::string& path, bool use_shared_memory) {
  std::ifstream file;
  open_binary(file, path);
  load(file, use_shared_memory);
}

void EncoderModelImpl::load(std::FILE* file, bool use_shared_memory) {
  if (file == nullptr) raise("ファイルポインタが不正です. in %s %d");
  RexInputFPStream stream(file);
  load(stream, use_shared_memory);
}

void EncoderModelImpl::load(const void* address, std::size_t size, bool use_shared_memory) {
  try {
    RexInputMemStream stream(address, address == nullptr ? 0 : size);
    load(stream, use_shared_memory);
  } catch (const std::exception& error) {
    raise("指定したメモリ領域が不正です(%s). in %s %d", error.what());
  }
}

void EncoderModelImpl::load_bin(std::istream& stream, bool use_shared_memory) {
  in_step("モデルの読み込みに失敗した(%s). in %s %d", [&] {
    const bool has_symbols = has_symbol_table(read_version(stream));
    if (read_integer(stream) != 0) {
      const std::uint32_t kind = read_integer(stream);
      if (kind != kPreprocessorKind) raise("モデルに不明な構成要素(%u)が格納されている. in %s %d", kind);
      std::istringstream document(read_sized_text(stream));
      in_step("Flowノード読み込み中にエラーが発生した(%s). in %s %d",
              [&] { preprocessor_ = std::make_shared<Preprocessor>(document); });
    }
    if (read_integer(stream) != kNetworkKind) raise("モデルに不明な構成要素が格納されている. in %s %d");
    const std::string bytes = read_sized_text(stream);
    auto node = std::make_shared<MeridaneNNNode>(use_shared_memory);
    in_network_step([&] {
      RexInputMemStream network(bytes.data(), bytes.size());
      load_network(*node, network);
    });
    nn_ = std::move(node);
    if (!has_symbols) return;
    in_step("シンボルテーブル読み込み中にエラーが発生した(%s). in %s %d", [&] {
      const std::uint32_t count = read_integer(stream);
      for (std::uint32_t i = 0; i < count; ++i) {
        const std::string name = read_sized_text(stream);
        add_symbol(name, read_sized_text(stream));
      }
    });
  });
}

void EncoderModelImpl::load_xml(const meridane::XmlFile& document, bool use_shared_memory) {
  const XmlElement* const root = document.root();
  if (root == nullptr || meridane::element_name(*root) != get<std::string>("file-type")) {
    raise("不正なモデルファイルを読み込もうとした. in %s %d");
  }
  if (!find_attribute(*root, "version")) raise("モデルフォーマットが不正. in %s %d");
  if (const XmlElement* const preproc = find_child(*root, "preproc")) load_preprocessor(*preproc);
  const XmlElement* const encoder = find_child(*root, "encoder");
  if (encoder == nullptr) raise("モデルフォーマットが不正. in %s %d");
  load_encoder(*encoder, use_shared_memory);
  for (const XmlElement* option = find_child(*root, "option"); option != nullptr;
       option = meridane::next_of_name(*option)) {
    const auto name = find_attribute(*option, "name");
    const auto value = find_attribute(*option, "value");
    if (!name || !value) raise("モデルフォーマットが不正. in %s %d");
    add_symbol(*name, *value);
  }
}

void EncoderModelImpl::load_preprocessor(const XmlElement& element) {
  const auto in_flow_step = [](const auto& step) {
    in_step("Flowノード読み込み中にエラーが発生した(%s). in %s %d", step);
  };
  if (const XmlElement* const ref = find_child(element, "ref")) {
    const std::string format = find_attribute(*ref, "format").value_or("text/xml");
    if (format != "text/xml") {
      throw std::runtime_error(meridane::formatted("Flowのファイル形式が未対応.(%s)", format.c_str()));
    }
    std::ifstream file;
    open_binary(file, meridane::element_text(*ref));
    in_flow_step([&] { preprocessor_ = std::make_shared<Preprocessor>(file); });
  } else if (const XmlElement* const flow = find_child(element, "flow")) {
    in_flow_step([&] { preprocessor_ = std::make_shared<Preprocessor>(*flow); });
  } else {
    raise("モデルフォーマットが不正. in %s %d");
  }
}

void EncoderModelImpl::load_encoder(const XmlElement& element, bool use_shared_memory) {
  auto node = std::make_shared<MeridaneNNNode>(use_shared_memory);
  if (const XmlElement* const ref = find_child(element, "ref")) {
    const std::string format = find_attribute(*ref, "format").value_or("text/xml");
    std::ifstream file;
    open_binary(file, meridane::element_text(*ref));
    in_network_step([&] {
      if (format == "application/meridane-bin") {
        load_network(*node, file);
      } else if (format == "text/xml") {
        const meridane::XmlFile document(file);
        if (document.root() == nullptr) throw std::runtime_error("Failed to parse xml");
        node->load(*document.root());
      } else {
        throw std::runtime_error("\"" + format + "\" format does not support");
      }
    });
  } else if (const XmlElement* const network = find_child(element, "NN")) {
    in_network_step([&] { node->load(*network); });
  } else {
    raise("モデルフォーマットが不正. in %s %d");
  }
  nn_ = std::move(node);
}

void EncoderModelImpl::add_symbol(const std::string& name, const std::string& value) {
  set_from_text(name, value);
  symbols_.insert_or_assign(name, value);
}

void EncoderModelImpl::save_bin(std::ostream& stream) const {
  check_loaded();
  Container container{.magic = get<std::string>("magic-number-bin"),
                      .version = get<std::string>("file-version"),
                      .preprocessor = std::nullopt,
                      .network = {},
                      .symbols = symbols_};
  if (preprocessor_ != nullptr) {
    std::ostringstream document;
    preprocessor_->dump(document);
    container.preprocessor = std::move(document).str();
  }
  std::ostringstream network;
  meridane::BinaryStreamTraits<meridane::NNParameter>::dump(nn_->network(), network);
  container.network = std::move(network).str();
  write_container(stream, container);
}

void EncoderModelImpl::set_spk_embedding(const Matrix& embedding) {
  if (!is_initialized()) raise("初期化処理が実行されていない. in %s %d");
  check_loaded();
  const auto& layers = nn_->network().layers();
  const auto named = [](const auto& layer) { return layer->id() == kEmbeddingLayer; };
  if (std::none_of(layers.begin(), layers.end(), named)) {
    raise("話者埋め込みに対応したモデルではない. in %s %d");
  }
  try {
    if (embedding.rows() != 1 && embedding.cols() != 1) throw std::runtime_error("the embedding is no vector");
    nn_->set_vector(kEmbeddingLayer, embedding.reshaped());
  } catch (const std::exception& error) {
    raise("話者埋め込みに失敗した(%s). in %s %d", error.what());
  }
}

void EncoderModelImpl::start_preprocessor() {
  if (preprocessor_ != nullptr) preprocessor_->start();
}

void EncoderModelImpl::preprocess(const std::vector<float>& frame, meridane::FrameSequence& frames) {
  Vector vector = Eigen::Map<const Vector>(frame.data(), static_cast<Eigen::Index>(frame.size()));
  if (preprocessor_ == nullptr) {
    frames.emplace_back(std::move(vector));
  } else {
    append_columns(preprocessor_->process(vector), frames);
  }
}

void EncoderModelImpl::finish_preprocessing(meridane::FrameSequence& frames) {
  if (preprocessor_ != nullptr) append_columns(preprocessor_->finish(), frames);
}

meridane::FrameSequence frames_of(const Matrix& columns) {
  meridane::FrameSequence frames;
  append_columns(columns, frames);
  return frames;
}

Matrix network_input(std::span<const meridane::FrameValue> frames, bool is_waveform) {
  Matrix input;
  if (is_waveform) {
    Eigen::Index samples = 0;
    for (const auto& frame : frames) samples += std::get<Vector>(frame).size();
    input.resize(1, samples);
    float* out = input.data();
    for (const auto& frame : frames) {
      const auto& x = std::get<Vector>(frame);
      out = std::transform(x.data(), x.data() + x.size(), out, full_scale);
    }
  } else if (!frames.empty()) {
    input.resize(std::get<Vector>(frames.front()).size(), static_cast<Eigen::Index>(frames.size()));
    for (Eigen::Index i = 0; i < input.cols(); ++i) {
      const auto& frame = std::get<Vector>(frames[static_cast<std::size_t>(i)]);
      if (frame.size() != input.rows()) raise("frames of one step differ in size. in %s %d");
      input.col(i) = frame;
    }
  }
  return input;
}

}  // namespace sonivo::e2e
