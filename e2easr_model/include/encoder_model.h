#pragma once

#include <cstdio>
#include <istream>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <type_traits>

#include "e2easr_model/base.h"
#include "e2easr_model/container.h"
#include "e2easr_model/fe_manager.h"
#include "e2easr_model/node.h"
#include "e2easr_model/preprocessor.h"
#include "e2easr_model/result.h"
#include "meridane/io/xml.h"
#include "meridane/minibatch.h"

namespace sonivo::e2e {

using meridane::Matrix;

/// The runtime's global initialisation: run once in a process, however often it is called and by whichever thread.
/// Before the first model is made.
void initialize();
bool is_initialized();

/// The body of all models: an optional preprocessor, a network, and variables that a file may set. What goes wrong is
/// thrown with the place that found it. Not for several threads at once, but for variables that are set while another
/// thread runs the model.
class EncoderModelImpl : public Component {
 public:
  ~EncoderModelImpl() override;

  /// The network's result for the frames in the columns, `encoded`.
  virtual E2EResult execute(const Matrix& input);
  /// The network forgets its stream.
  virtual void reset();
  /// "モデルが読み込まれていない" without a network.
  virtual void check_loaded() const;
  virtual void load_bin(std::istream& stream, bool use_shared_memory);  ///< behind the magic
  virtual void load_xml(const meridane::XmlFile& document, bool use_shared_memory);
  /// No network, no preprocessor, and all variables at their defaults.
  virtual void unload();
  virtual void save_bin(std::ostream& stream) const;

  /// From the binary or the text form, told apart by the magic. All or nothing: what fails leaves the model unloaded,
  /// except that a loaded model stays and nothing is read.
  void load(std::istream& stream, bool use_shared_memory);
  void load(const std::string& path, bool use_shared_memory);
  void load(std::FILE* file, bool use_shared_memory);
  void load(const void* address, std::size_t size, bool use_shared_memory);

  bool is_loaded() const { return nn_ != nullptr; }
  const Symbols& symbols() const { return symbols_; }  ///< what the loaded file has set
  const Preprocessor* preprocessor() const { return preprocessor_.get(); }
  const meridane::NNParameter& network() const;

  /// The layer `prod1` gets the embedding, a vector, as its own. The network forgets its stream.
  void set_spk_embedding(const Matrix& embedding);

 protected:
  /// Declares the four variables of the file.
  EncoderModelImpl(const char* file_type, const char* magic_bin, const char* magic_xml);

  MeridaneNNNode& nn() { return *nn_; }

  void start_preprocessor();
  /// Appends the frame, or what the preprocessor makes of it.
  void preprocess(const std::vector<float>& frame, meridane::FrameSequence& frames);
  /// Appends what the preprocessor has held back.
  void finish_preprocessing(meridane::FrameSequence& frames);

  /// `feature-extractor-type` is none: the network's input is a waveform. Of models with a FEManager.
  bool takes_samples() const { return get<std::string>("feature-extractor-type") == "none"; }

 private:
  void load_preprocessor(const meridane::XmlElement& element);
  void load_encoder(const meridane::XmlElement& element, bool use_shared_memory);
  void add_symbol(const std::string& name, const std::string& value);

  std::shared_ptr<Preprocessor> preprocessor_;
  std::shared_ptr<MeridaneNNNode> nn_;
  Symbols symbols_;
};

/// The input of a network: a waveform's samples in one row, at full scale; other frames in columns. Throws where the
/// latter have several sizes.
Matrix network_input(std::span<const meridane::FrameValue> frames, bool is_waveform);
/// The columns of a matrix.
meridane::FrameSequence frames_of(const Matrix& columns);

/// A handle on a model. Copies are handles on the same one.
class EncoderModel {
 public:
  virtual ~EncoderModel() = default;

  /// Of a path, a stream, an open file (from its position on) or memory (address, size); the last argument is
  /// use_shared_memory of MeridaneNNNode.
  template <class... Source>
  void load(Source&&... source_and_flag) {
    impl_->load(std::forward<Source>(source_and_flag)...);
  }
  void unload() { impl_->unload(); }
  /// The binary form, which of a file that was saved is that file.
  void save(std::ostream& stream) const { impl_->save_bin(stream); }
  bool is_loaded() const { return impl_->is_loaded(); }

  template <class T>
  const T& get(const std::string& name) const {
    return impl_->get<T>(name);
  }
  template <class T>
  void set(const std::string& name, const std::type_identity_t<T>& value) {
    impl_->set<T>(name, value);
  }
  void set_from_text(const std::string& name, const std::string& text) { impl_->set_from_text(name, text); }
  const Component::Variables& variables() const { return impl_->variables(); }

  const Symbols& symbols() const { return impl_->symbols(); }
  const Preprocessor* preprocessor() const { return impl_->preprocessor(); }  ///< null where there is none
  const meridane::NNParameter& network() const { return impl_->network(); }

  /// "初期化処理が実行されていない" before initialize(), "話者埋め込みに対応したモデルではない" for a network without
  /// `prod1`, "話者埋め込みに失敗した(%s)" for an embedding of another size. Saving keeps it.
  void set_spk_embedding(const Matrix& embedding) { impl_->set_spk_embedding(embedding); }

 protected:
  explicit EncoderModel(std::shared_ptr<EncoderModelImpl> impl) : impl_(std::move(impl)) {}

 private:
  std::shared_ptr<EncoderModelImpl> impl_;
};

}  // namespace sonivo::e2e
