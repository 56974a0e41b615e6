#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "meridane/builder.h"
#include "meridane/framescore/frame_scorer.h"
#include "meridane/framescore/nngraph.h"

namespace meridane {

/// A network: its layers, their links, and the order of evaluation that follows from them. Once loaded it never changes
/// and may serve any number of scorers on any threads.
class NNParameter : public FrameScoreParameter,
                    public BinaryStreamableImpl<NNParameter>,
                    public XmlStorableImpl<NNParameter> {
 public:
  using Link = std::pair<std::string, std::string>;  ///< from, to

  /// mode: 0 by the builder table, 1 plain, 2 quantized.
  explicit NNParameter(int mode = 0) : mode_(mode) {}
  NNParameter(const NNParameter&) = delete;
  NNParameter& operator=(const NNParameter&) = delete;

  std::string type() const override { return "NN"; }
  std::shared_ptr<FrameScorer> create_scorer() const override;
  void load(std::istream& stream, const std::string& mime) override;
  /// What is written loads again, as the same network. Throws for one that only the binary form can hold: without
  /// layers, with a link from or to an empty id, from "_output" or to "_input", or with a character 0 in a text. Of a
  /// NaN, a document keeps the sign.
  void dump(std::ostream& stream, const std::string& mime) const override;

  /// The same network with another bias, or scale, in the layer of that id: NNLayer::set_bias() on a copy of it. All
  /// other layers are those of this one.
  std::shared_ptr<NNParameter> with_bias(const std::string& id, const Vector& bias) const;

  std::uint64_t ninput() const { return ninput_; }
  std::uint64_t noutput() const { return noutput_; }
  const std::vector<std::shared_ptr<NNLayer>>& layers() const { return layers_; }  ///< in the order of the file
  const std::vector<Link>& links() const { return links_; }                        ///< in the order of the file
  const NNGraph& graph() const { return graph_; }
  const NNGraph::Layers& forward_path() const { return forward_path_; }

 protected:
  friend struct BinaryStreamTraits<NNParameter>;
  friend struct XmlStoreTraits<NNParameter>;

  void set_sizes(std::uint64_t ninput, std::uint64_t noutput);
  void add_layer(std::shared_ptr<NNLayer> layer);
  /// The link to "_output" marks the terminal node; there can be one.
  void add_link(std::string from, std::string to);
  void fix() { forward_path_ = graph_.get_forward_path(); }
  /// The layer at the next place, from its element, or from the stream where the element is null.
  virtual std::shared_ptr<NNLayer> build_layer(const std::string& type, const std::string& id,
                                               const XmlElement* element, std::istream& stream) const;
  /// The layer of an element of a document, or of the file that it refers to.
  std::shared_ptr<NNLayer> build_layer(const XmlElement& element) const;

 private:
  std::uint64_t ninput_ = 0;
  std::uint64_t noutput_ = 0;
  std::vector<std::shared_ptr<NNLayer>> layers_;
  std::vector<Link> links_;
  NNGraph graph_;
  NNGraph::Layers forward_path_;
  bool has_terminal_ = false;
  int mode_;
};

template <>
struct BinaryStreamTraits<NNParameter> {
  static void load(NNParameter& parameter, std::istream& stream);
  static void dump(const NNParameter& parameter, std::ostream& stream);
};

template <>
struct XmlStoreTraits<NNParameter> {
  static void load(NNParameter& parameter, const XmlFile& file);
  static void dump(const NNParameter& parameter, XmlFile& file);
};

/// First bytes of a binary network.
inline constexpr char kNNMagic[] = "MerNNpar";

using FrameScoreParameterFactory =
    std::function<std::shared_ptr<FrameScoreParameter>(std::istream& stream, const std::string& mime)>;
/// From the magic that a binary file begins with to what loads it.
using FrameScoreParameterBuilder =
    Builder<struct FrameScoreParameterTag, FrameScoreParameter, FrameScoreParameterFactory>;
/// Does nothing but make sure that the program holds the table's contents: call it before the first look-up.
void ensure_parameter_table();

}  // namespace meridane
