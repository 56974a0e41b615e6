#include "flow_samples.h"

namespace meridane {
namespace {

TEST(AffineTransformNode, ScalesTheProductAndAddsTheBiases) {
  const Matrix frames = numbered(3, 4) / 7;
  const Matrix out = run_node("AffineTransformNode",
                              "<matrix>1 2 3\n-4 5 0.5</matrix><ibias>0.25 -1 3</ibias>"
                              "<obias>10\n20</obias><scale>0.5 -2</scale>",
                              frames);
  ASSERT_EQ(out.rows(), 2);
  ASSERT_EQ(out.cols(), 4);
  const double matrix[2][3] = {{1, 2, 3}, {-4, 5, 0.5}};
  const double ibias[] = {0.25, -1, 3}, obias[] = {10, 20}, scale[] = {0.5, -2};
  for (Eigen::Index t = 0; t < 4; ++t) {
    for (Eigen::Index i = 0; i < 2; ++i) {
      double sum = 0;
      for (Eigen::Index k = 0; k < 3; ++k) sum += matrix[i][k] * (double{frames(k, t)} + ibias[k]);
      EXPECT_NEAR(out(i, t), scale[i] * sum + obias[i], 1e-4);
    }
  }
}

TEST(AffineTransformNode, WhatIsNotSetDoesNothing) {
  const Matrix frames = numbered(2, 3);
  const Vector bias = Vector::LinSpaced(2, 1, 2);
  const Matrix scaled = Vector::LinSpaced(2, 2, 4).asDiagonal() * frames;
  EXPECT_EQ(run_node("AffineTransformNode", "", frames), frames);
  EXPECT_EQ(run_node("AffineTransformNode", "<ibias>1 2</ibias>", frames), frames.colwise() + bias);
  EXPECT_EQ(run_node("AffineTransformNode", "<obias>1 2</obias>", frames), frames.colwise() + bias);
  EXPECT_EQ(run_node("AffineTransformNode", "<scale>2\n4</scale>", frames), scaled);
  EXPECT_EQ(run_node("AffineTransformNode", "<matrix>0 1</matrix>", frames), frames.row(1));
}

TEST(AffineTransformNode, TellsWhatCannotBeStored) {
  const std::string where = "meridane::AffineTransformNode::load_settings";
  for (const std::string name : {"matrix", "ibias", "obias", "scale"}) {
    for (const std::string text : {"", "1 2\n3", "x"}) {
      expect_load_error(one_node("AffineTransformNode", "<" + name + ">" + text + "</" + name + ">"),
                        "Error loading <" + name + "> element", where);
    }
    expect_load_error(one_node("AffineTransformNode", "<" + name + " ref=\"/nowhere/at/all\"/>"),
                      "Error loading <" + name + "> element", where);
    if (name == "matrix") continue;
    expect_load_error(one_node("AffineTransformNode", "<" + name + ">1 2\n3 4</" + name + ">"),
                      "Only 1xN or Nx1 matrix can be stored as " + name, where);
  }
}

TEST(AffineTransformNode, RefusesSizesThatDiffer) {
  const std::string message = "Sizes of matrix, ibias, obias and scale differ";
  const std::string matrix = "<matrix>1 2 3\n4 5 6</matrix>";
  for (const std::string& settings :
       {matrix + "<ibias>1 2</ibias>", matrix + "<obias>1 2 3</obias>", matrix + "<scale>1 2 3</scale>",
        std::string("<ibias>1 2</ibias><obias>1</obias>"), std::string("<ibias>1 2</ibias><scale>1</scale>"),
        std::string("<obias>1 2</obias><scale>1</scale>")}) {
    expect_load_error<DimensionMismatchError>(one_node("AffineTransformNode", settings), message,
                                              "meridane::AffineTransformNode::load_settings");
  }
  for (const std::string& settings : {matrix, std::string("<ibias>1 2 3</ibias>"), std::string("<obias>1 2 3</obias>"),
                                      std::string("<scale>1 2 3</scale>")}) {
    expect_error<DimensionMismatchError>([&] { run_node("AffineTransformNode", settings, numbered(2, 1)); },
                                         "number of dimentions of input data does not accord", "meridane::expect_size");
  }
}

}  // namespace
}  // namespace meridane
