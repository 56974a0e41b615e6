#pragma once

#include <string>

#include "meridane/io/matrix.h"
#include "meridane/io/streamable.h"

namespace meridane {

/// First bytes of a binary restricted Boltzmann machine.
inline constexpr char kRBMMagic[] = "MeRBMpar";

/// A restricted Boltzmann machine of V visible and H hidden units: P(h = 1 | v) = 1 / (1 + exp(-(weight v + hbias))),
/// P(v = 1 | h) likewise with weight' h + vbias. The stored form is told in docs/network-files.md.
class RBMParameter : public BinaryStreamableImpl<RBMParameter>, public XmlStorableImpl<RBMParameter> {
 public:
  /// mime: "text/xml" for a document, anything else for the binary form; what follows a semicolon doesn't count.
  void load(std::istream& stream, const std::string& mime);
  void dump(std::ostream& stream, const std::string& mime) const;

  const RowMatrix& weight() const { return weight_; }  ///< H x V
  const Vector& vbias() const { return vbias_; }       ///< V
  const Vector& hbias() const { return hbias_; }       ///< H
  /// P(h = 1 | v) of each hidden unit. Throws "number of dimentions of input data does not accord".
  Vector hidden(const Vector& visible) const;

 private:
  friend struct BinaryStreamTraits<RBMParameter>;
  friend struct XmlStoreTraits<RBMParameter>;

  void set(RowMatrix weight, const RowMatrix& vbias, const RowMatrix& hbias);

  RowMatrix weight_;
  Vector vbias_;
  Vector hbias_;
};

template <>
struct BinaryStreamTraits<RBMParameter> {
  static void load(RBMParameter& parameter, std::istream& stream);
  static void dump(const RBMParameter& parameter, std::ostream& stream);
};

template <>
struct XmlStoreTraits<RBMParameter> {
  static void load(RBMParameter& parameter, const XmlFile& file);
  static void dump(const RBMParameter& parameter, XmlFile& file);
};

}  // namespace meridane
