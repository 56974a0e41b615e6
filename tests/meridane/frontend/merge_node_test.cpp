#include "flow_samples.h"

namespace meridane {
namespace {

std::string merge(const std::string& num) { return "<node type=\"MergeNode\" id=\"m\">" + num + "</node>"; }

const std::string kWindow =
    "<node type=\"FrameWindowNode\" id=\"w\"><length>2</length><shift>1</shift><headedge type=\"zero\">1</headedge>"
    "</node>";
const std::string kLate = "<node type=\"BufferingNode\" id=\"b\"><frame>3</frame></node>";
const std::string kReversed = "<node type=\"ReorderNode\" id=\"r\"><mask>1 0</mask></node>";

TEST(MergeNode, JoinsItsInputsInTheOrderOfTheLinks) {
  Flow flow = flow_of("<flow>" + merge("<num>3</num>") + kWindow + kReversed + link_text("_input", "w") +
                      link_text("_input", "r") + link_text("r", "m") + link_text("w", "m") + link_text("_input", "m") +
                      link_text("m", "_output", "_output") + "</flow>");
  Matrix expected(8, 2);
  expected << 102, 202,  // reversed
      101, 201,          //
      0, 101,            // window
      0, 102,            //
      101, 201,          //
      102, 202,          //
      101, 201,          // input
      102, 202;
  EXPECT_EQ(run(flow, numbered(2, 2)), expected);
}

TEST(MergeNode, WaitsForTheLatestInput) {
  Flow flow = flow_of("<flow>" + merge("<num>2</num>") + kLate + link_text("_input", "b") + link_text("_input", "m") +
                      link_text("b", "m") + link_text("m", "_output", "_output") + "</flow>");
  const Matrix x = numbered(1, 5);
  flow.start();
  flow.feed(Matrix(x.leftCols(2)));
  EXPECT_EQ(flow.take().cols(), 0);
  flow.feed(Matrix(x.middleCols(2, 2)));
  EXPECT_EQ(flow.take(), x.leftCols(3).replicate(2, 1));
  flow.feed(Vector(x.col(4)));
  flow.end();
  EXPECT_EQ(flow.take(), x.rightCols(2).replicate(2, 1));
}

TEST(MergeNode, TellsWhatIsWrongWithItsSetting) {
  const std::string where = "meridane::MergeNode::load_settings";
  for (const std::string num : {"", "<num/>", "<num>x</num>", "<num>1.5</num>"}) {
    expect_load_error("<flow>" + merge(num) + "</flow>", "num tag is not well formed", where);
  }
  for (const std::string num : {"0", "-3"}) {
    expect_load_error("<flow>" + merge("<num>" + num + "</num>") + "</flow>", "num is illegal", where);
  }
}

TEST(MergeNode, RefusesOneLinkTooMany) {
  expect_load_error("<flow>" + merge("<num>2</num>") + link_text("_input", "m") + link_text("_input", "m") +
                        link_text("_input", "m") + "</flow>",
                    "number of from nodes exceeds the setting [2]", "meridane::MergeNode::add_sender");
}

TEST(MergeNode, TellsWhatIsLeftWhenTheSessionEnds) {
  // One vector more comes by way of the window.
  const std::string window =
      "<node type=\"FrameWindowNode\" id=\"w\"><length>2</length><shift>1</shift><headedge type=\"zero\">1</headedge>"
      "<tailedge type=\"zero\">1</tailedge></node>";
  const std::string nodes = "<flow>" + merge("<num>2</num>") + window + link_text("_input", "w");
  const std::string out = link_text("m", "_output", "_output") + "</flow>";
  Flow second = flow_of(nodes + link_text("_input", "m") + link_text("w", "m") + out);
  expect_error([&] { run(second, numbered(2, 3)); }, "1 vectors remain in buffer[1] after the end of session",
               "meridane::MergeNode::flush");
  Flow first = flow_of(nodes + link_text("w", "m") + link_text("_input", "m") + out);
  expect_error([&] { run(first, numbered(2, 3)); }, "1 vectors remain in buffer[0] after the end of session",
               "meridane::MergeNode::flush");
}

TEST(MergeNode, NeverJoinsFewerThanItsSetting) {
  Flow flow = flow_of("<flow>" + merge("<num>2</num>") + link_text("_input", "m") +
                      link_text("m", "_output", "_output") + "</flow>");
  expect_error([&] { run(flow, numbered(2, 3)); }, "3 vectors remain in buffer[0] after the end of session",
               "meridane::MergeNode::flush");
}

TEST(MergeNode, RefusesVectorsOfAnotherSizeWithinASession) {
  Flow flow = flow_of(one_node("MergeNode", "<num>1</num>"));
  flow.start();
  flow.feed(Vector(Vector::Zero(3)));
  expect_error<DimensionMismatchError>([&] { flow.feed(Vector(Vector::Zero(2))); },
                                       "The expected number of input dimensions(3) in the MergeNode does not match the "
                                       "actual number of input dimensions(2).",
                                       "meridane::MergeNode::feed");
  EXPECT_EQ(run(flow, numbered(2, 1)), numbered(2, 1));
}

TEST(MergeNode, EachInputHasASizeOfItsOwn) {
  Flow flow = flow_of("<flow>" + merge("<num>2</num>") + kWindow + link_text("_input", "w") + link_text("_input", "m") +
                      link_text("w", "m") + link_text("m", "_output", "_output") + "</flow>");
  EXPECT_EQ(run(flow, numbered(2, 1)), (Vector(6) << 101, 102, 0, 0, 101, 102).finished());
  EXPECT_EQ(run(flow, numbered(1, 1)), (Vector(3) << 101, 0, 101).finished()) << "and in each session";
}

}  // namespace
}  // namespace meridane
