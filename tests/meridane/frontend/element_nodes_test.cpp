#include <cmath>
#include <functional>
#include <limits>

#include "flow_samples.h"

namespace meridane {
namespace {

TEST(ReorderNode, PicksElementsByIndex) {
  const Matrix x = numbered(3, 2);
  Matrix expected(4, 2);
  expected << x.row(2), x.row(0), x.row(0), x.row(1);
  EXPECT_EQ(run_node("ReorderNode", "<mask>2 0 0 1</mask>", x), expected);
  EXPECT_EQ(run_node("ReorderNode", "<mask>2\n0\n0\n1</mask>", x), expected);
}

TEST(ReorderNode, TellsWhatIsNoMask) {
  const std::string where = "meridane::ReorderNode::load_settings";
  const auto expect = [&](const std::string& settings, const std::string& message) {
    expect_load_error(one_node("ReorderNode", settings), message, where);
  };
  expect("<mask>0 1\n1 0</mask>", "Only 1xN or Nx1 matrix can be stored as mask");
  expect("", "Error loading <mask> element");
  expect("<mask>a</mask>", "Error loading <mask> element");
  expect("<mask>0 -1</mask>", "-1 in mask is not an index");
  expect("<mask>0.5</mask>", "0.5 in mask is not an index");
  expect("<mask>nan</mask>", "nan in mask is not an index");
  expect("<mask>16777216</mask>", "16777216 in mask is not an index");
}

TEST(ReorderNode, RefusesVectorsThatAreTooShort) {
  expect_error<DimensionMismatchError>([] { run_node("ReorderNode", "<mask>0 3</mask>", numbered(3, 1)); },
                                       "number of dimentions of input data does not accord", "meridane::expect_size");
}

struct Function {
  std::string name;
  std::function<double(double x, double alpha)> value;
};

const std::vector<Function> kReferences = {
    {"abs", [](double x, double) { return std::fabs(x); }},
    {"add", [](double x, double alpha) { return x + alpha; }},
    {"exp", [](double x, double) { return std::exp(x); }},
    {"log", [](double x, double) { return std::log(x); }},
    {"max", [](double x, double alpha) { return std::max(x, alpha); }},
    {"min", [](double x, double alpha) { return std::min(x, alpha); }},
    {"mul", [](double x, double alpha) { return x * alpha; }},
    {"pow", [](double x, double alpha) { return std::pow(x, alpha); }},
    {"relu", [](double x, double) { return x > 0 ? x : 0; }},
    {"sigmoid", [](double x, double alpha) { return 1 / (1 + std::exp(-alpha * x)); }},
    {"sqrt", [](double x, double) { return std::sqrt(x); }},
    {"tanh", [](double x, double alpha) { return std::tanh(alpha * x); }},
};

TEST(ScalarFuncNode, IsItsFunctionInEachElement) {
  const Vector x = (Vector(7) << -3.25f, -1, -0.125f, 0, 0.5f, 1, 4.75f).finished();
  for (const auto& [name, value] : kReferences) {
    for (const double alpha : {1.0, -0.75, 2.0}) {
      const std::string setting = alpha == 1 ? "" : "<alpha>" + std::to_string(alpha) + "</alpha>";
      const Matrix y = run_node("ScalarFuncNode", "<func>" + name + "</func>" + setting, x);
      ASSERT_EQ(y.rows(), x.size());
      for (Eigen::Index i = 0; i < x.size(); ++i) {
        const double expected = value(x(i), alpha);
        const float tolerance = std::isfinite(expected) ? 4e-7f * static_cast<float>(std::fabs(expected)) : 0;
        EXPECT_THAT(y(i, 0), testing::NanSensitiveFloatNear(static_cast<float>(expected), tolerance))
            << name << "(" << x(i) << ", " << alpha << ")";
      }
    }
  }
}

TEST(ScalarFuncNode, LeavesWhatIsNoNumber) {
  const Vector nan = Vector::Constant(1, std::numeric_limits<float>::quiet_NaN());
  for (const auto& [name, value] : kReferences) {
    EXPECT_TRUE(std::isnan(run_node("ScalarFuncNode", "<func>" + name + "</func>", nan)(0, 0))) << name;
  }
  EXPECT_EQ(run_node("ScalarFuncNode", "<func>pow</func><alpha>0</alpha>", nan)(0, 0), 1) << "but for this one";
}

TEST(ScalarFuncNode, TellsWhatIsWrongWithItsSettings) {
  const std::string where = "meridane::ScalarFuncNode::load_settings";
  const auto expect = [&](const std::string& settings, const std::string& message) {
    expect_load_error(one_node("ScalarFuncNode", settings), message, where);
  };
  expect("<func>cube</func>", "unknown type string (cube)");
  expect("", "unknown type string ()");
  for (const std::string alpha : {"", "x", "1 2"}) {
    expect("<func>mul</func><alpha>" + alpha + "</alpha>", "alpha tag is not well formed");
  }
}

TEST(SoftmaxNode, IsTheShareOfEachExponential) {
  const Vector x = (Vector(4) << 1000, 999.5f, 0, 1001).finished();
  const Matrix y = run_node("SoftmaxNode", "", x);
  double sum = 0;
  for (const float each : x) sum += std::exp(double{each} - 1001);
  for (Eigen::Index i = 0; i < 4; ++i) EXPECT_NEAR(y(i, 0), std::exp(double{x(i)} - 1001) / sum, 1e-7);
  EXPECT_EQ(run_node("SoftmaxNode", "", Matrix::Constant(5, 1, -7)), Matrix::Constant(5, 1, 0.2f));
  EXPECT_EQ(run_node("SoftmaxNode", "", Matrix(0, 3)).cols(), 3);
}

TEST(BufferingNode, HoldsVectorsAndSendsThemAtOnce) {
  Flow flow = flow_of(one_node("BufferingNode", "<frame>3</frame>"));
  const Matrix x = numbered(2, 8);
  flow.start();
  std::vector<Eigen::Index> came;
  std::vector<Matrix> out;
  const auto take = [&] {
    out.push_back(flow.take());
    came.push_back(out.back().cols());
  };
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    flow.feed(Vector(x.col(t)));
    take();
  }
  flow.end();
  take();
  EXPECT_THAT(came, testing::ElementsAre(0, 0, 3, 0, 0, 3, 0, 0, 2));
  EXPECT_EQ(joined(out), x);
}

TEST(BufferingNode, SendsOneMatrix) {
  Flow flow = flow_of(one_node("BufferingNode", "<frame>2</frame>"));
  std::vector<std::string> heard;
  flow.output().add_handlers(
      [](const PackInfo&) {},
      [&](const FlowData& data) { heard.push_back(std::holds_alternative<Matrix>(data) ? "matrix" : "vector"); });
  flow.start();
  flow.feed(numbered(1, 3));
  flow.end();
  EXPECT_THAT(heard, testing::ElementsAre("matrix", "matrix"));
}

TEST(BufferingNode, TellsWhatIsWrongWithItsSetting) {
  const std::string where = "meridane::BufferingNode::load_settings";
  for (const std::string frame : {"", "<frame/>", "<frame>x</frame>"}) {
    expect_load_error(one_node("BufferingNode", frame), "frame tag is not well formed", where);
  }
  expect_load_error(one_node("BufferingNode", "<frame>0</frame>"), "frame is illegal", where);
  expect_load_error(one_node("BufferingNode", "<frame>-1</frame>"), "frame is illegal", where);
}

TEST(BufferingNode, RefusesVectorsOfAnotherSize) {
  Flow flow = flow_of(one_node("BufferingNode", "<frame>3</frame>"));
  flow.start();
  flow.feed(Vector(Vector::Zero(2)));
  expect_error<DimensionMismatchError>([&] { flow.feed(Vector(Vector::Zero(3))); },
                                       "number of dimentions of input data does not accord", "meridane::expect_size");
}

}  // namespace
}  // namespace meridane
