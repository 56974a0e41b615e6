#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "lib/framescore/nnlayer/weight.h"
#include "meridane/framescore/nnlayer/nnlayer.h"
#include "meridane/io/matrix.h"
#include "meridane/quantized_matrix.h"

namespace meridane {

/// An integer that is a word in XML.
struct Words {
  std::int32_t (*value)(const std::optional<std::string>& word);  ///< of the attribute, which may be missing
  const char* (*word)(std::int32_t value);
};

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
  /// An integer that is at least `least`, and a bool, stored as one; "Incorrect \"NAME\" for \"TYPE\"" otherwise.
  virtual void whole(const char* name, std::int32_t& value, std::int32_t otherwise, std::int32_t least) = 0;
  virtual void flag(const char* name, bool& value, bool otherwise) = 0;
  /// A size of 8 bytes.
  virtual void size(const char* name, std::uint64_t& value, std::uint64_t otherwise) = 0;
  /// 4-byte integers, each at least `least`; one attribute holds them all, and `message` says that it doesn't. A single
  /// number stands for all of them where `one_for_all` says so.
  virtual void sizes(const char* name, std::span<std::int32_t> values, std::int32_t least, const char* message,
                     bool one_for_all = false) = 0;
  /// Things with parameters of their own, at least one: a 4-byte count, or an element for each. The names of the
  /// parameters of each begin with the prefix that `visit` is given.
  using VisitPart = std::function<void(ParameterVisitor& visitor, std::int32_t i, const std::string& prefix)>;
  virtual void parts(const char* name, std::int32_t& count, const VisitPart& visit) = 0;
  /// A size that follows from what was visited before. Only documents state it, and needn't.
  virtual void implied(const char* name, std::int64_t value) = 0;
  /// A size that only documents state; 0 where it isn't stated. For who compares it with more than one value.
  virtual void stated(const char* name, std::int32_t& value) = 0;
  /// An integer whose attribute must be there.
  virtual void mandatory(const char* name, std::int32_t& value) = 0;
  virtual void word(const char* name, std::int32_t& value, const Words& words) = 0;
  virtual void text(const char* name, std::string& value) = 0;
  virtual void mandatory_text(const char* name, std::string& value) = 0;

  /// What follows stands, in XML, in a child element of that name; `type`, if any, is the layer type that it is of.
  virtual void begin(const char*, const char* /*type*/) {}
  virtual void end() {}
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
  /// The class as error messages name it.
  virtual std::string class_name() const { return type() + "Layer"; }
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
  /// For a value that stands under this name and can't be.
  [[noreturn]] void raise_incorrect(const char* name) const;

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
