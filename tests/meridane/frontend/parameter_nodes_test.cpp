#include <cmath>

#include "../../support/temporary_folder.h"
#include "flow_samples.h"
#include "meridane/framescore/multigmm.h"
#include "meridane/framescore/rbm.h"

namespace meridane {
namespace {

/// Two mixtures, of one Gaussian about (0, 0) and one about (4, 4), both with variance 1.
const std::string kMixtures =
    "<GMM magic=\"MeGMMpar\"><mean>0 0</mean><mean>4 4</mean><chol>1 0\n0 1</chol>"
    "<gaussians><gaussian mean=\"0\" chol=\"0\"/><gaussian mean=\"1\" chol=\"0\"/></gaussians>"
    "<mixture><entry gaussian=\"0\" logweight=\"0\"/></mixture>"
    "<mixture><entry gaussian=\"1\" logweight=\"0\"/></mixture></GMM>";
const std::string kMachine =
    "<RBM magic=\"MeRBMpar\"><weight>1 2 3\n-4 5 6</weight><vbias>7 8 9</vbias><hbias>0.5\n-1</hbias></RBM>";

std::string parameter(const std::string& document) { return "<parameter>" + document + "</parameter>"; }

/// A node with the parameter `document` inside it writes the same whether it's inside, in a file, or in a binary file.
template <class Parameter>
void expect_same_from_files(const std::string& type, const std::string& document) {
  Parameter parameters;
  std::istringstream stream(document);
  parameters.load(stream, "text/xml");
  std::ostringstream binary;
  parameters.dump(binary, "application/meridane-bin");
  const sonivo::test::TemporaryFolder folder;
  const std::string text_file = folder.write("text", document);
  const std::string binary_file = folder.write("binary", binary.str());
  const std::string inlined = document_of(flow_of(one_node(type, parameter(document))));
  for (const std::string& attributes : {"ref=\"${'" + text_file + "'}\"", "type=\"text/xml\" ref=\"" + text_file + "\"",
                                        "type=\"application/meridane-bin\" ref=\"" + binary_file + "\"",
                                        "type=\"${'application/' + 'meridane-bin'}\" ref=\"" + binary_file + "\""}) {
    EXPECT_EQ(document_of(flow_of(one_node(type, "<parameter " + attributes + "/>"))), inlined) << attributes;
  }
  const auto expect = [&](const std::string& attributes, const std::string& format) {
    const std::string setting = "<parameter " + attributes + ">" + document + "</parameter>";
    expect_load_error(one_node(type, setting), "\"" + format + "\" format does not support",
                      "meridane::load_parameter");
  };
  expect("type=\"text/plain\" ref=\"" + text_file + "\"", "text/plain");
  expect("type=\"\"", "");
  expect("type=\"application/meridane-bin\"", "application/meridane-bin");
}

TEST(GMMQuantizeNode, TellsWhichMixtureIsDensest) {
  Matrix x(2, 5);
  x << 0, 4, 1.9f, 2.1f, 2,  //
      0, 4, 2, 2, 2;
  // Nearest mean; at (2, 2) both are as near.
  EXPECT_EQ(run_node("GMMQuantizeNode", parameter(kMixtures), x), (Matrix(1, 5) << 0, 1, 0, 1, 0).finished());
}

TEST(GMMQuantizeNode, RefusesWhatItCannotUse) {
  expect_error<DimensionMismatchError>([] { run_node("GMMQuantizeNode", parameter(kMixtures), numbered(3, 1)); },
                                       "number of dimentions of input data does not accord", "meridane::expect_size");
  expect_load_error(one_node("GMMQuantizeNode", ""), "couldn't find \"parameter\" tag", "meridane::expect_child");
  expect_load_error(one_node("GMMQuantizeNode", parameter("")), "couldn't find \"GMM\" tag", "meridane::expect_root");
  expect_load_error(one_node("GMMQuantizeNode", parameter(kMachine)), "couldn't find \"GMM\" tag",
                    "meridane::expect_root");
  expect_load_error(
      one_node("GMMQuantizeNode", parameter("<GMM magic=\"MeGMMpar\"><mean>1</mean><chol>1</chol><gaussians/></GMM>")),
      "There is no mixture to quantize to", "meridane::GMMQuantizeNode::load_settings");
  const std::string missing = "<parameter ref=\"/nowhere/at/all\"/>";
  expect_load_error(one_node("GMMQuantizeNode", missing), "resource not found: /nowhere/at/all",
                    "meridane::RefInput::RefInput");
}

TEST(GMMQuantizeNode, TakesItsParameterFromAFileToo) {
  expect_same_from_files<MultiGMMParameter>("GMMQuantizeNode", kMixtures);
}

TEST(RBMSampleNode, TakesItsParameterFromAFileToo) { expect_same_from_files<RBMParameter>("RBMSampleNode", kMachine); }

TEST(RBMSampleNode, ExpectsItsHiddenUnits) {
  const Matrix x = (Vector(3) << 1, 0, 1).finished();
  const Matrix y = run_node("RBMSampleNode", parameter(kMachine) + "<use_expectation>true</use_expectation>", x);
  EXPECT_FLOAT_EQ(y(0, 0), static_cast<float>(1 / (1 + std::exp(-4.5))));  // 1 + 3 + 0.5
  EXPECT_FLOAT_EQ(y(1, 0), static_cast<float>(1 / (1 + std::exp(-1.0))));  // -4 + 6 - 1
}

TEST(RBMSampleNode, DrawsItsHiddenUnitsAsOftenAsTheyAreExpected) {
  const std::string document =
      "<RBM magic=\"MeRBMpar\"><weight>1\n-2\n0\n100\n-200</weight><vbias>0</vbias><hbias>0 0 0 0 0</hbias></RBM>";
  constexpr Eigen::Index kFrames = 40000;
  for (const std::string setting : {"", "<use_expectation>false</use_expectation>"}) {
    Flow flow = flow_of(one_node("RBMSampleNode", parameter(document) + setting));
    const Matrix y = run(flow, Matrix::Ones(1, kFrames));
    EXPECT_TRUE(((y.array() == 0) || (y.array() == 1)).all());
    const double expected[] = {1 / (1 + std::exp(-1.0)), 1 / (1 + std::exp(2.0)), 0.5, 1, 0};
    for (Eigen::Index i = 0; i < 5; ++i) {
      const double p = expected[i];
      const double deviation = std::sqrt(p * (1 - p) / static_cast<double>(kFrames));
      EXPECT_NEAR(y.row(i).mean(), p, 5 * deviation) << i;  // five standard deviations of the mean
    }
    EXPECT_EQ(run(flow, Matrix::Ones(1, kFrames)), y) << "a session draws the same again";
  }
}

TEST(RBMSampleNode, RefusesWhatItCannotUse) {
  const std::string where = "meridane::RBMSampleNode::load_settings";
  for (const std::string text : {"", "1", "yes"}) {
    expect_load_error(
        one_node("RBMSampleNode", parameter(kMachine) + "<use_expectation>" + text + "</use_expectation>"),
        "use_expectation tag is not well formed", where);
  }
  expect_load_error(one_node("RBMSampleNode", ""), "couldn't find \"parameter\" tag", "meridane::expect_child");
  expect_load_error(one_node("RBMSampleNode", parameter(kMixtures)), "couldn't find \"RBM\" tag",
                    "meridane::expect_root");
  expect_error([] { run_node("RBMSampleNode", parameter(kMachine), numbered(2, 1)); },
               "number of dimentions of input data does not accord", "meridane::RBMParameter::hidden");
}

}  // namespace
}  // namespace meridane
