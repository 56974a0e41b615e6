#pragma once

#include <string>

#include "lib/framescore/nnlayer/weight.h"
#include "meridane/framescore/nnlayer/nnlayer.h"
#include "meridane/io/matrix.h"
#include "meridane/quantized_matrix.h"

namespace meridane {

/// Goes through the parameters of a layer in the order of its record: to load, to dump or to count them.
class ParameterVisitor {
 public:
  virtual ~ParameterVisitor() = default;
  virtual void weight(const char* name, Weight& weight) = 0;
  /// A vector, stored as a matrix. One with columns other than 1 is read as a row vector (its row 0).
  virtual void vector(const char* name, StoredVector& vector) = 0;
  /// The same, but of one column only: `message`, with the layer's id for its %s, otherwise.
  virtual void column(const char* name, StoredVector& vector, const char* message) = 0;
  virtual void quantized(const char* name, QuantizedMatrix& matrix) = 0;
  /// Numbers; in XML attributes that may be missing.
  virtual void number(const char* name, float& value, float otherwise) = 0;
  virtual void integer(const char* name, std::int32_t& value, std::int32_t otherwise) = 0;
  virtual void text(const char* name, std::string& value) = 0;
};

/// A layer whose record is its type tag and its parameters. It names them once; both stored forms follow from that.
class ParameterLayer : public NNLayer {
 public:
  using NNLayer::NNLayer;

  void load_binary(std::istream& stream) override;
  void dump_binary(std::ostream& stream) const override;
  void load_xml(const XmlElement& element) override;
  void dump_xml(XmlElement& parent, XmlDocument& document) const override;
  LayerSize size() const override;

  /// Memory for a parameter of rows x cols floats.
  virtual std::shared_ptr<float> alloc_param(const std::string& name, Eigen::Index rows, Eigen::Index cols);

 protected:
  /// The first bytes of the record and the `type` of the element.
  virtual std::string tag() const = 0;
  /// What InvalidFormat expects.
  virtual std::string description() const { return tag() + " Layer"; }
  virtual MatrixCoding coding() const { return MatrixCoding::dense; }
  virtual void parameters(ParameterVisitor& visitor) = 0;
  /// Called when all parameters are there: the place to check them against each other and to pack.
  virtual void loaded() {}
  /// Packs a weight, unless others read its rows too.
  virtual void pack(Weight& weight) { weight.pack(); }
  /// For a record that isn't this layer's, or whose sizes contradict each other.
  [[noreturn]] void raise_invalid_format() const;

 private:
  /// Shows the parameters to a visitor that changes none.
  void show(ParameterVisitor& visitor) const;
};

/// A layer whose record stores its matrices in half precision, under a tag of its own. In memory it's the plain one.
template <class Layer>
class Compressed : public Layer {
 public:
  using Layer::Layer;

 protected:
  std::string tag() const override { return "Compressed" + Layer::tag(); }
  std::string description() const override { return tag() + " Layer"; }
  MatrixCoding coding() const override { return MatrixCoding::half; }
};

}  // namespace meridane
