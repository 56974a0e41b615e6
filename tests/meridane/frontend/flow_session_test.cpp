#include "flow_samples.h"

namespace meridane {
namespace {

/// Windows of three vectors and the softmax of each, joined; two outputs.
const std::string kBranches =
    "<flow><node type=\"FrameWindowNode\" id=\"w\"><length>3</length><shift>1</shift>"
    "<headedge type=\"repeat\">2</headedge></node><node type=\"SoftmaxNode\" id=\"s\"/>"
    "<node type=\"MergeNode\" id=\"m\"><num>2</num></node><node type=\"BufferingNode\" "
    "id=\"b\"><frame>4</frame></node>" +
    link_text("_input", "w") + link_text("_input", "s") + link_text("w", "m") + link_text("s", "m") +
    link_text("m", "b") + link_text("b", "_output", "_output") + link_text("s", "_output", "flowout_soft") + "</flow>";

TEST(FlowSession, IsOpenFromStartToEnd) {
  const std::string where = "meridane::Flow::";
  Flow flow = flow_of(one_node("SoftmaxNode", ""));
  EXPECT_FALSE(flow.in_session());
  expect_error([&] { flow.feed(Vector(Vector::Zero(2))); }, "is not in session", "meridane::Flow::feed");
  expect_error([&] { flow.end(); }, "is not in session", where + "end");
  flow.start();
  EXPECT_TRUE(flow.in_session());
  expect_error([&] { flow.start(); }, "is in session already", where + "start");
  flow.end();
  EXPECT_FALSE(flow.in_session());
  expect_error([&] { flow.feed(Matrix(2, 0)); }, "is not in session", "meridane::Flow::feed");
}

TEST(FlowSession, HowTheStreamIsCutMakesNoDifference) {
  const Matrix x = numbered(2, 23) / 1000;
  Flow flow = flow_of(kBranches);
  const Matrix whole = run(flow, x);
  const Matrix soft = flow.take("flowout_soft");
  ASSERT_EQ(whole.rows(), 8);
  ASSERT_EQ(whole.cols(), 23);
  ASSERT_EQ(soft.cols(), 23);
  EXPECT_EQ(whole.bottomRows(2), soft);
  EXPECT_EQ(whole.middleRows(4, 2), x);
  for (const Eigen::Index step : {1, 2, 5, 22}) {
    std::vector<Matrix> parts, soft_parts;
    flow.start();
    for (Eigen::Index at = 0; at < x.cols(); at += step) {
      flow.feed(Matrix(x.middleCols(at, std::min(step, x.cols() - at))));
      parts.push_back(flow.take());
      if (at % 3 == 0) soft_parts.push_back(flow.take("flowout_soft"));
    }
    flow.end();
    parts.push_back(flow.take());
    soft_parts.push_back(flow.take("flowout_soft"));
    EXPECT_EQ(joined(parts), whole) << step;
    EXPECT_EQ(joined(soft_parts), soft) << step;
  }
}

TEST(FlowSession, ResetForgetsAllOfIt) {
  Flow flow = flow_of(kBranches);
  const Matrix x = numbered(2, 7) / 1000;
  const Matrix whole = run(flow, x);
  flow.start();
  flow.feed(numbered(2, 6));
  flow.reset();
  EXPECT_FALSE(flow.in_session());
  EXPECT_EQ(flow.take().size(), 0);
  EXPECT_EQ(flow.take("flowout_soft").size(), 0);
  EXPECT_EQ(run(flow, x), whole);
}

TEST(FlowSession, AFailureEndsIt) {
  Flow flow = flow_of(one_node("ReorderNode", "<mask>2</mask>"));
  flow.start();
  flow.feed(Vector(Vector::Zero(3)));
  EXPECT_THROW(flow.feed(Vector(Vector::Zero(2))), DimensionMismatchError);
  EXPECT_FALSE(flow.in_session());
  EXPECT_EQ(flow.take().cols(), 0);
  EXPECT_EQ(run(flow, numbered(3, 2)).cols(), 2);
}

TEST(FlowSession, AVectorThatTheInputRefusesEndsIt) {
  Flow flow = flow_of(one_node("SoftmaxNode", ""));
  flow.start();
  expect_error([&] { flow.feed(Vector(Vector::Zero((1 << 24) + 1))); }, "More than 16777216 values wait in the flow",
               "meridane::FlowBudget::take");
  EXPECT_FALSE(flow.in_session());
  EXPECT_EQ(run(flow, numbered(3, 2)).cols(), 2);
}

TEST(FlowSession, AListenerThatThrowsEndsIt) {
  Flow flow = flow_of(kBranches);
  bool fails = true;
  std::vector<Matrix> heard;
  flow.output("flowout_soft")
      .add_handlers([](const PackInfo&) {},
                    [&](const FlowData& data) {
                      if (fails) throw std::runtime_error("no more");
                      heard.emplace_back(std::get<Vector>(data));
                    });
  const Matrix x = numbered(2, 7) / 1000;
  flow.start();
  EXPECT_THROW(flow.feed(x), std::runtime_error);
  EXPECT_FALSE(flow.in_session());
  fails = false;
  const Matrix out = run(flow, x);
  ASSERT_EQ(out.cols(), 7);
  EXPECT_EQ(joined(heard), out.bottomRows(2));
}

TEST(FlowSession, PacksTellWhereItBeginsAndEnds) {
  Flow flow =
      flow_of(one_node("FrameWindowNode", "<length>2</length><shift>1</shift><tailedge type=\"zero\">1</tailedge>"));
  std::vector<std::string> heard;
  for (const std::string who : {"a", "b"}) {
    flow.output().add_handlers(
        [&heard, who](const PackInfo& pack) {
          heard.push_back(who + (pack.kind == PackInfo::Kind::start ? " start " : " end ") +
                          std::to_string(pack.frames));
        },
        [&heard, who](const FlowData& data) {
          heard.push_back(who + " " + std::to_string(std::get<Vector>(data)(0)));
        });
  }
  flow.start();
  EXPECT_THAT(heard, testing::ElementsAre("a start 0", "b start 0"));
  heard.clear();
  flow.feed((Matrix(1, 2) << 1, 2).finished());
  EXPECT_THAT(heard, testing::ElementsAre("a 1.000000", "b 1.000000"));
  heard.clear();
  flow.end();
  EXPECT_THAT(heard, testing::ElementsAre("a 2.000000", "b 2.000000", "a end 2", "b end 2"));
  EXPECT_EQ(flow.take().cols(), 0) << "what was heard isn't there to take";
}

TEST(FlowSession, WhatNobodyTakesCanBeDropped) {
  Flow flow = flow_of(kBranches);
  const Matrix x = numbered(2, 7) / 1000;
  const Matrix whole = run(flow, x);
  EXPECT_EQ(flow.take("flowout_soft").cols(), 7);
  flow.keep_only();
  EXPECT_EQ(run(flow, x), whole);
  EXPECT_EQ(flow.take("flowout_soft").cols(), 0);
}

TEST(FlowSession, OutputsHaveNames) {
  Flow flow = flow_of(kBranches);
  EXPECT_EQ(flow.output("flowout_soft").name(), "flowout_soft");
  expect_error<InvalidOutportError>([&] { flow.take("flowout_none"); }, "output buffer flowout_none is not found",
                                    "meridane::Flow::output");
  expect_error<InvalidOutportError>([] { flow_of("<flow/>").take(); }, "output buffer _output is not found",
                                    "meridane::Flow::output");
}

TEST(FlowSession, TheInputMayBeTheOutput) {
  Flow flow = flow_of("<flow>" + link_text("_input", "_output", "_output") + "</flow>");
  EXPECT_EQ(run(flow, numbered(3, 4)), numbered(3, 4));
  flow.start();
  flow.feed(Vector(Vector::Zero(2)));
  flow.feed(Vector(Vector::Zero(3)));
  expect_error([&] { flow.take(); }, "number of dimentions of input data does not accord",
               "meridane::OutputBuffer::take");
  flow.feed(Vector(Vector::Ones(3)));
  EXPECT_EQ(flow.take(), Matrix::Ones(3, 1)) << "what could not be taken is gone";
}

TEST(FlowSession, AFlowThatMovesGoesOn) {
  Flow first = flow_of(kBranches);
  const Matrix x = numbered(2, 9) / 1000;
  const Matrix whole = run(first, x);
  first.start();
  first.feed(Matrix(x.leftCols(5)));
  Flow second = std::move(first);
  second.feed(Matrix(x.rightCols(4)));
  second.end();
  EXPECT_EQ(second.take(), whole);
}

TEST(FlowSession, HoldsNoMoreThanItsBudget) {
  const std::string message = "More than 16777216 values wait in the flow";
  const std::string where = "meridane::FlowBudget::take";
  Flow held = flow_of(one_node("BufferingNode", "<frame>2147483647</frame>"));
  held.start();
  expect_error(
      [&] {
        for (int i = 0; i < 100; ++i) held.feed(Vector(Vector::Zero(1 << 20)));
      },
      message, where);
  EXPECT_EQ(run(held, numbered(1, 3)), numbered(1, 3)) << "the budget is given back";

  Flow padded = flow_of(one_node("FrameWindowNode",
                                 "<length>2147483647</length><shift>1</shift>"
                                 "<headedge type=\"repeat\">2147483646</headedge>"));
  padded.start();
  expect_error([&] { padded.feed(Vector(Vector::Zero(1))); }, message, where);

  std::string doubling = "<flow>";
  constexpr int kDoubled = 40;
  for (int i = 0; i < kDoubled; ++i) {
    const std::string id = std::to_string(i);
    doubling += "<node type=\"MergeNode\" id=\"" + id + "\"><num>2</num></node>";
  }
  for (int i = 0; i < kDoubled; ++i) {
    const std::string before = i == 0 ? "_input" : std::to_string(i - 1);
    doubling += link_text(before, std::to_string(i)) + link_text(before, std::to_string(i));
  }
  Flow doubled = flow_of(doubling + "</flow>");
  doubled.start();
  expect_error([&] { doubled.feed(Vector(Vector::Zero(1))); }, message, where);
}

TEST(FlowSession, WhatWaitsToBeTakenIsNotLimited) {
  Flow flow = flow_of("<flow>" + link_text("_input", "_output", "_output") + "</flow>");
  flow.start();
  for (int i = 0; i < 20; ++i) flow.feed(Vector(Vector::Zero(1 << 20)));
  EXPECT_EQ(flow.take().size(), 20 << 20);
}

TEST(OutputBuffer, TakesDataInSessionAlone) {
  OutputBuffer buffer("port", PortType::vector, nullptr);
  const std::string where = "meridane::OutputBuffer::put";
  expect_error([&] { buffer.put(Vector(Vector::Zero(1))); }, "is not in session", where);
  buffer.start();
  buffer.put(Vector(Vector::Ones(2)));
  buffer.put(Matrix(Matrix::Ones(2, 3)));
  buffer.end();
  expect_error([&] { buffer.put(Vector(Vector::Zero(1))); }, "is not in session", where);
  std::uint64_t frames = 0;
  buffer.add_handlers([&](const PackInfo& pack) { frames = pack.frames; }, [](const FlowData&) {});
  buffer.deliver();
  EXPECT_EQ(frames, 4);
}

}  // namespace
}  // namespace meridane
