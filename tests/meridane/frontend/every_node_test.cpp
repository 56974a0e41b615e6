// What holds for every node.

#include <algorithm>
#include <limits>

#include "flow_samples.h"

namespace meridane {
namespace {

struct NodeSample {
  std::string type;
  std::string settings;
  bool takes_words = false;
};

void PrintTo(const NodeSample& sample, std::ostream* out) { *out << sample.type; }

/// All take vectors of two values.
const std::vector<NodeSample> kNodeSamples = {
    {"AffineTransformNode", "<matrix>1 2\n3 4\n5 6</matrix><obias>1 2 3</obias>"},
    {"BufferingNode", "<frame>3</frame>"},
    {"FrameWindowNode",
     "<length>3</length><shift>2</shift><headedge type=\"repeat\">2</headedge><tailedge type=\"drop\">1</tailedge>"},
    {"GMMQuantizeNode",
     "<parameter><GMM magic=\"MeGMMpar\"><mean>0 0</mean><mean>1 1</mean><chol>1 0\n0 1</chol>"
     "<gaussians><gaussian mean=\"0\" chol=\"0\"/><gaussian mean=\"1\" chol=\"0\"/></gaussians>"
     "<mixture><entry gaussian=\"0\" logweight=\"0\"/></mixture>"
     "<mixture><entry gaussian=\"1\" logweight=\"0\"/></mixture></GMM></parameter>"},
    {"MergeNode", "<num>1</num>"},
    {"RBMSampleNode",
     "<parameter><RBM magic=\"MeRBMpar\"><weight>1 -1\n0.5 0\n0 0</weight><vbias>0 0</vbias><hbias>0 0 0</hbias></RBM>"
     "</parameter>"},
    {"ReorderNode", "<mask>1 0 1</mask>"},
    {"ScalarFuncNode", "<func>tanh</func>"},
    {"SoftmaxNode", ""},
    {"WordEmbeddingNode",
     "<mapping charset=\"UTF-8\" dim=\"2\" entrysize=\"1\"><entry word=\"a\"><vec>1 2</vec></entry></mapping>", true},
};

class EveryNode : public testing::TestWithParam<NodeSample> {
 protected:
  static constexpr Eigen::Index kFrames = 23;

  static Flow make() { return flow_of(one_node(GetParam().type, GetParam().settings)); }

  /// Frames from..to of a stream.
  static void feed(Flow& flow, Eigen::Index from, Eigen::Index to) {
    if (!GetParam().takes_words) return flow.feed(Matrix((numbered(2, to) / 1000).rightCols(to - from)));
    for (Eigen::Index t = from; t < to; ++t) flow.feed(std::string(t % 3 == 0 ? "a" : "b"));
  }

  static Matrix run_frames(Flow& flow, Eigen::Index frames) {
    flow.start();
    feed(flow, 0, frames);
    flow.end();
    return flow.take();
  }
};

TEST_P(EveryNode, IsWrittenAsADocumentThatDoesTheSame) {
  Flow flow = make();
  Flow again = flow_of(document_of(flow));
  EXPECT_EQ(document_of(again), document_of(flow));
  const Matrix out = run_frames(flow, kFrames);
  EXPECT_GT(out.cols(), 0);
  EXPECT_EQ(run_frames(again, kFrames), out);
}

TEST_P(EveryNode, TakesAStreamInPiecesOfAnySize) {
  Flow flow = make();
  const Matrix whole = run_frames(flow, kFrames);
  for (const Eigen::Index step : {1, 2, 5, 22}) {
    std::vector<Matrix> parts;
    flow.start();
    for (Eigen::Index at = 0; at < kFrames; at += step) {
      feed(flow, at, std::min(at + step, kFrames));
      parts.push_back(flow.take());
    }
    flow.end();
    parts.push_back(flow.take());
    EXPECT_EQ(joined(parts), whole) << step;
  }
}

TEST_P(EveryNode, BeginsEachSessionAnew) {
  Flow flow = make();
  const Matrix first = run_frames(flow, kFrames);
  EXPECT_EQ(run_frames(flow, kFrames), first);
  flow.start();
  feed(flow, 5, 12);
  flow.reset();
  EXPECT_EQ(run_frames(flow, kFrames), first) << "after a reset in the middle of another";
}

TEST_P(EveryNode, SharesNothingWithAnotherOfItsDocument) {
  Flow flow = make(), other = make();
  const Matrix alone = run_frames(flow, kFrames);
  flow.start();
  other.start();
  for (Eigen::Index t = 0; t < kFrames; ++t) {
    feed(flow, t, t + 1);
    feed(other, t / 2, t / 2 + 1);
  }
  other.end();
  flow.end();
  EXPECT_EQ(flow.take(), alone);
}

TEST_P(EveryNode, MayHaveASessionOfNoneOrOne) {
  Flow flow = make();
  EXPECT_EQ(run_frames(flow, 0).cols(), 0);
  EXPECT_LE(run_frames(flow, 1).cols(), 1);
}

TEST_P(EveryNode, KeepsNothingOfWhatIsNoNumberOrWord) {
  Flow flow = make();
  const Matrix out = run_frames(flow, kFrames);
  const Matrix frames = Matrix::Constant(2, 4, std::numeric_limits<float>::quiet_NaN());
  const FlowData data = GetParam().takes_words ? FlowData(std::string("\xff")) : FlowData(frames);
  flow.start();
  flow.feed(data);
  flow.end();
  flow.take();
  EXPECT_EQ(run_frames(flow, kFrames), out);
}

TEST(EveryNodeThere, IsAmongTheSamples) {
  ensure_node_table();
  std::vector<std::string> types;
  for (const NodeSample& sample : kNodeSamples) types.push_back(sample.type);
  EXPECT_EQ(types, NodeBuilder::names());
}

INSTANTIATE_TEST_SUITE_P(Nodes, EveryNode, testing::ValuesIn(kNodeSamples),
                         [](const auto& sample) { return sample.param.type; });

}  // namespace
}  // namespace meridane
