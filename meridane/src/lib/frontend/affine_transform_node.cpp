#include "lib/frontend/affine_transform_node.h"

#include "lib/framescore/parameter_file.h"
#include "lib/frontend/settings.h"

namespace meridane {

std::string AffineTransformNode::info() const {
  std::string text = "y = ";
  if (scale_) text += "scale o ";
  if (matrix_) {
    text += formatted("matrix(%d x %d) ", static_cast<int>(matrix_->rows()), static_cast<int>(matrix_->cols()));
  }
  text += ibias_ ? "(x + ibias)" : "x";
  if (obias_) text += " + obias";
  return text;
}

void AffineTransformNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"matrix", "ibias", "obias", "scale"});
  if (find_child(element, "matrix") != nullptr) {
    matrix_ = matrix_setting(element, "matrix", "Error loading <matrix> element");
  }
  if (find_child(element, "ibias") != nullptr) {
    ibias_ = vector_setting(element, "ibias", "Error loading <ibias> element",
                            "Only 1xN or Nx1 matrix can be stored as ibias");
  }
  if (find_child(element, "obias") != nullptr) {
    obias_ = vector_setting(element, "obias", "Error loading <obias> element",
                            "Only 1xN or Nx1 matrix can be stored as obias");
  }
  if (find_child(element, "scale") != nullptr) {
    scale_ = vector_setting(element, "scale", "Error loading <scale> element",
                            "Only 1xN or Nx1 matrix can be stored as scale");
  }
  std::optional<Eigen::Index> output_size;
  const auto agree = [](std::optional<Eigen::Index>& size, Eigen::Index other) {
    if (size.value_or(other) != other) raise<DimensionMismatchError>("Sizes of matrix, ibias, obias and scale differ");
    size = other;
  };
  if (matrix_) agree(input_size_, matrix_->cols());
  if (matrix_) agree(output_size, matrix_->rows());
  if (ibias_) agree(input_size_, ibias_->size());
  std::optional<Eigen::Index>& behind = matrix_ ? output_size : input_size_;
  if (obias_) agree(behind, obias_->size());
  if (scale_) agree(behind, scale_->size());
}

void AffineTransformNode::dump(XmlElement& element, XmlDocument& document) const {
  if (matrix_) append_matrix(element, document, "matrix", *matrix_);
  if (ibias_) append_matrix(element, document, "ibias", *ibias_);
  if (obias_) append_matrix(element, document, "obias", *obias_);
  if (scale_) append_matrix(element, document, "scale", *scale_);
}

void AffineTransformNode::feed(const Vector& x, std::size_t /*sender*/) {
  if (input_size_) expect_size(x, *input_size_);
  Vector y = x;
  if (ibias_) y += values_of(*ibias_);
  if (matrix_) y = *matrix_ * y;
  if (scale_) y.array() *= values_of(*scale_).array();
  if (obias_) y += values_of(*obias_);
  send(std::move(y));
}

}  // namespace meridane
