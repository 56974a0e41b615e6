#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "meridane/io/streamable.h"
#include "meridane/minibatch.h"

namespace meridane {

/// What a stateful layer carries from call to call. Owned by the scorer, never by the layer.
class NNLayerState {
 public:
  virtual ~NNLayerState() = default;
  virtual std::shared_ptr<NNLayerState> clone() const = 0;  ///< deep
  virtual std::uint64_t bytes() const { return 0; }         ///< of memory that its numbers take now
};

/// What a layer is given: one minibatch per incoming link, and maybe the memory of an old result.
class LayerInputs {
 public:
  LayerInputs() = default;
  LayerInputs(std::initializer_list<MinibatchPtr> streams) : streams_(streams) {}

  std::size_t size() const { return streams_.size(); }
  const MinibatchPtr& operator[](std::size_t i) const { return streams_[i]; }
  const std::vector<MinibatchPtr>& streams() const { return streams_; }

  /// A minibatch of that form to write a result into; its content isn't set. Takes the spare one where there is one.
  MinibatchPtr result(std::span<const std::uint64_t> shape, Eigen::Index frames) const;
  MinibatchPtr result(Eigen::Index rows, Eigen::Index frames) const;  ///< of one axis
  MinibatchPtr result() const;                                        ///< of any form: the caller gives it one

  /// Whether the stream ends here: a layer that has held frames back gives what it makes of them.
  bool is_last() const { return is_last_; }
  void set_last(bool is_last) { is_last_ = is_last; }

  /// Frames of the stream that have gone into the network until now, this step's included. Where nobody says so, those
  /// of the first input.
  std::uint64_t fed() const {
    return fed_.value_or(streams_.empty() || streams_.front() == nullptr ? 0 : streams_.front()->size());
  }
  void set_fed(std::uint64_t frames) { fed_ = frames; }

  void clear() {
    streams_.clear();
    spare_.reset();
    is_last_ = false;
    fed_.reset();
  }
  void add(MinibatchPtr stream) { streams_.push_back(std::move(stream)); }
  /// Gives a minibatch that nobody else holds: the next result may be written into it.
  void set_spare(MinibatchPtr spare) { spare_ = std::move(spare); }

 private:
  std::vector<MinibatchPtr> streams_;
  mutable MinibatchPtr spare_;
  bool is_last_ = false;
  std::optional<std::uint64_t> fed_;
};

/// How large a layer is, for those who look at a network.
struct LayerSize {
  std::uint64_t parameters = 0;     ///< stored numbers
  std::uint64_t multiply_adds = 0;  ///< for one frame of output, as far as weights are concerned
};

/// A node of a network. After loading it never changes, but for set_bias(), and may serve any number of streams on any
/// threads: what streams lives in the state.
class NNLayer : public BinaryStreamableImpl<NNLayer>, public XmlStorableImpl<NNLayer> {
 public:
  NNLayer(std::string id, std::string type) : id_(std::move(id)), type_(std::move(type)) {}
  NNLayer(const NNLayer&) = delete;
  NNLayer& operator=(const NNLayer&) = delete;

  const std::string& id() const { return id_; }
  const std::string& type() const { return type_; }

  /// The state of a new stream; null for layers without.
  virtual std::shared_ptr<NNLayerState> create_state() const { return nullptr; }
  virtual void load_binary(std::istream& stream) = 0;
  virtual void dump_binary(std::ostream& stream) const = 0;
  virtual void load_xml(const XmlElement& element) = 0;
  virtual void dump_xml(XmlElement& parent, XmlDocument& document) const = 0;
  /// One step of a stream. A layer without state takes no notice of it.
  virtual MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const;
  virtual MinibatchPtr forward(const LayerInputs& inputs) const = 0;
  virtual void backward();
  virtual void update();
  /// Whether the layer changes the number of frames.
  virtual bool is_variable_length() const { return false; }
  /// The one change to a loaded layer, for layers with a bias. Not while a scorer runs, on any thread: the layer reads
  /// its bias without a lock. One in shared memory is changed for all processes that are attached to it, so none of
  /// them may run the layer meanwhile.
  virtual void set_bias(const Vector& bias);

  virtual LayerSize size() const { return {}; }

 protected:
  /// The input of a layer that takes one. Throws for several and for none.
  const MinibatchPtr& only_input(const LayerInputs& inputs) const;
  /// Of a layer that takes several: throws where there is none and where one is missing.
  void expect_inputs(const LayerInputs& inputs) const;
  /// Throws unless the frames have that many rows; an input without frames fits everywhere.
  void expect_rows(const Minibatch& input, Eigen::Index rows) const;
  [[noreturn]] void raise_dimension_mismatch() const;

 private:
  std::string id_;
  std::string type_;
};

template <>
struct BinaryStreamTraits<NNLayer> {
  static void load(NNLayer& layer, std::istream& stream) { layer.load_binary(stream); }
  static void dump(const NNLayer& layer, std::ostream& stream) { layer.dump_binary(stream); }
};

/// The document's root is the layer's element.
template <>
struct XmlStoreTraits<NNLayer> {
  static void load(NNLayer& layer, const XmlFile& file);
  static void dump(const NNLayer& layer, XmlFile& file);
};

}  // namespace meridane
