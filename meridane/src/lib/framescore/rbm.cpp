#include "meridane/framescore/rbm.h"

#include "lib/framescore/parameter_file.h"
#include "meridane/error.h"

namespace meridane {

constexpr const char* kRBMDescription = "RBM parameter";

void RBMParameter::load(std::istream& stream, const std::string& mime) {
  if (is_xml(mime)) {
    load_xml_stream(stream);
  } else {
    load_binary_stream(stream);
  }
}

void RBMParameter::dump(std::ostream& stream, const std::string& mime) const {
  if (is_xml(mime)) {
    dump_xml_stream(stream);
  } else {
    dump_binary_stream(stream);
  }
}

void RBMParameter::set(RowMatrix weight, const RowMatrix& vbias, const RowMatrix& hbias) {
  Vector visible = vector_of(vbias), hidden = vector_of(hbias);
  const bool is_finite = weight.allFinite() && visible.allFinite() && hidden.allFinite();
  if (visible.size() != weight.cols() || hidden.size() != weight.rows() || !is_finite) {
    raise<InvalidFormat>("invalid format (expected \"%s\")", kRBMDescription);
  }
  weight_ = std::move(weight);
  vbias_ = std::move(visible);
  hbias_ = std::move(hidden);
}

Vector RBMParameter::hidden(const Vector& visible) const {
  if (visible.size() != weight_.cols()) raise("number of dimentions of input data does not accord");
  const Vector activation = weight_ * visible + hbias_;
  return (1 + (-activation.array()).exp()).inverse();
}

void BinaryStreamTraits<RBMParameter>::load(RBMParameter& parameter, std::istream& stream) {
  expect_magic(stream, kRBMMagic, kRBMDescription);
  RowMatrix weight = load_matrix_bin(stream);
  const RowMatrix vbias = load_matrix_bin(stream);
  parameter.set(std::move(weight), vbias, load_matrix_bin(stream));
}

void BinaryStreamTraits<RBMParameter>::dump(const RBMParameter& parameter, std::ostream& stream) {
  write_magic(stream, kRBMMagic);
  dump_matrix_bin(stream, parameter.weight_);
  dump_matrix_bin(stream, parameter.vbias_);
  dump_matrix_bin(stream, parameter.hbias_);
}

void XmlStoreTraits<RBMParameter>::load(RBMParameter& parameter, const XmlFile& file) {
  const XmlElement& root = expect_root(file, "RBM", kRBMMagic);
  RowMatrix weight = load_matrix_xml(expect_child(root, "weight"));
  const RowMatrix vbias = load_matrix_xml(expect_child(root, "vbias"));
  parameter.set(std::move(weight), vbias, load_matrix_xml(expect_child(root, "hbias")));
}

void XmlStoreTraits<RBMParameter>::dump(const RBMParameter& parameter, XmlFile& file) {
  XmlElement& root = append_root(file, "RBM", kRBMMagic);
  append_matrix(root, file.document(), "weight", parameter.weight_);
  append_matrix(root, file.document(), "vbias", parameter.vbias_);
  append_matrix(root, file.document(), "hbias", parameter.hbias_);
}

}  // namespace meridane
