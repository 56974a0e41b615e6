#include "flow_samples.h"

namespace meridane {
namespace {

const std::string kLoadWindow = "meridane::FrameWindowNode::load_settings";

std::string window_settings(int length, int shift, const std::string& others = "") {
  return "<length>" + std::to_string(length) + "</length><shift>" + std::to_string(shift) + "</shift>" + others;
}

struct Edges {
  std::string type;
  int head, tail;
};

/// From the definition: the stream with its edges, cut at every shift.
Matrix windows_of(const Matrix& x, int length, int shift, int groups, const Edges& edges) {
  std::vector<Vector> stream;
  const bool is_drop = edges.type == "drop";
  const auto edge_of = [&](Eigen::Index t) -> Vector {
    return edges.type == "repeat" ? Vector(x.col(t)) : Vector::Zero(x.rows());
  };
  const Eigen::Index first = is_drop ? edges.head : 0;
  const Eigen::Index end = is_drop ? x.cols() - edges.tail : x.cols();
  if (!is_drop && x.cols() > 0) stream.insert(stream.end(), static_cast<std::size_t>(edges.head), edge_of(0));
  for (Eigen::Index t = first; t < end; ++t) stream.emplace_back(x.col(t));
  if (!is_drop && x.cols() > 0)
    stream.insert(stream.end(), static_cast<std::size_t>(edges.tail), edge_of(x.cols() - 1));

  std::vector<Vector> windows;
  const Eigen::Index d = x.rows() / groups;
  for (std::size_t start = 0; start + static_cast<std::size_t>(length) <= stream.size();
       start += static_cast<std::size_t>(shift)) {
    Vector y(length * x.rows());
    for (Eigen::Index g = 0; g < groups; ++g) {
      for (Eigen::Index t = 0; t < length; ++t) {
        for (Eigen::Index i = 0; i < d; ++i) {
          y((g * length + t) * d + i) = stream[start + static_cast<std::size_t>(t)](g * d + i);
        }
      }
    }
    windows.push_back(y);
  }
  Matrix all(windows.empty() ? 0 : length * x.rows(), static_cast<Eigen::Index>(windows.size()));
  for (Eigen::Index t = 0; t < all.cols(); ++t) all.col(t) = windows[static_cast<std::size_t>(t)];
  return all;
}

TEST(FrameWindowNode, WindowsStandOneBehindTheOther) {
  const Matrix out = run_node("FrameWindowNode", window_settings(2, 1), numbered(2, 3));
  Matrix expected(4, 2);
  expected << 101, 201,  //
      102, 202,          //
      201, 301,          //
      202, 302;
  EXPECT_EQ(out, expected);
}

TEST(FrameWindowNode, PartsOfVectorsStandTogether) {
  const Matrix out = run_node("FrameWindowNode", window_settings(2, 1, "<partition>2</partition>"), numbered(4, 2));
  EXPECT_EQ(out, (Vector(8) << 101, 102, 201, 202, 103, 104, 203, 204).finished());
}

TEST(FrameWindowNode, CutsAsDefined) {
  for (const Eigen::Index frames : {0, 1, 2, 3, 7, 20}) {
    const Matrix x = numbered(6, frames);
    for (const int length : {1, 2, 3, 5}) {
      for (const int shift : {1, 2, 3, 7}) {
        for (const int groups : {1, 2, 3}) {
          for (const Edges& edges : {Edges{"drop", 0, 0}, Edges{"drop", 2, 1}, Edges{"drop", 0, 3}, Edges{"zero", 0, 4},
                                     Edges{"zero", 1, 1}, Edges{"repeat", 2, 2}, Edges{"repeat", 4, 0}}) {
            if (edges.type != "drop" && (edges.head >= length || edges.tail >= length)) continue;
            const std::string others = "<partition>" + std::to_string(groups) + "</partition><headedge type=\"" +
                                       edges.type + "\">" + std::to_string(edges.head) +
                                       "</headedge><tailedge type=\"" + edges.type + "\">" +
                                       std::to_string(edges.tail) + "</tailedge>";
            EXPECT_EQ(run_node("FrameWindowNode", window_settings(length, shift, others), x),
                      windows_of(x, length, shift, groups, edges))
                << frames << " frames, " << length << " every " << shift << " in " << groups << ", " << edges.type;
          }
        }
      }
    }
  }
}

TEST(FrameWindowNode, GivesEachWindowAsSoonAsItIsThere) {
  Flow flow = flow_of(one_node("FrameWindowNode", window_settings(3, 2,
                                                                  "<headedge type=\"repeat\">1</headedge>"
                                                                  "<tailedge type=\"zero\">2</tailedge>")));
  const Matrix x = numbered(1, 4);
  flow.start();
  std::vector<Eigen::Index> came;
  for (Eigen::Index t = 0; t < 4; ++t) {
    flow.feed(Vector(x.col(t)));
    came.push_back(flow.take().cols());
  }
  flow.end();
  came.push_back(flow.take().cols());
  EXPECT_THAT(came, testing::ElementsAre(0, 1, 0, 1, 1));  // 1 1 2 | 2 3 4 | 4 0 0
}

TEST(FrameWindowNode, TheEdgesOfSessionsAreTheirOwn) {
  Flow flow = flow_of(one_node("FrameWindowNode", window_settings(3, 2,
                                                                  "<headedge type=\"repeat\">1</headedge>"
                                                                  "<tailedge type=\"drop\">1</tailedge>")));
  const Matrix first = run(flow, numbered(2, 9));
  run(flow, numbered(3, 4));
  EXPECT_EQ(run(flow, numbered(2, 9)), first);
}

TEST(FrameWindowNode, TellsWhatIsWrongWithItsSettings) {
  const auto expect = [](const std::string& settings, const std::string& message) {
    expect_load_error(one_node("FrameWindowNode", settings), message, kLoadWindow);
  };
  for (const std::string text : {"", "x", "1.5", "1 2", "99999999999"}) {
    expect("<length>" + text + "</length><shift>1</shift>", "length tag is not well formed");
    expect("<length>1</length><shift>" + text + "</shift>", "shift tag is not well formed");
    expect(window_settings(1, 1, "<partition>" + text + "</partition>"), "partition tag is not well formed");
    expect(window_settings(1, 1, "<headedge type=\"zero\">" + text + "</headedge>"), "headedge tag is not well formed");
    expect(window_settings(1, 1, "<tailedge type=\"zero\">" + text + "</tailedge>"), "tailedge tag is not well formed");
  }
  expect("<shift>1</shift>", "length tag is not well formed");
  expect("<length>1</length>", "shift tag is not well formed");
  for (const int number : {0, -1}) {
    expect(window_settings(number, 1), "length is illegal");
    expect(window_settings(1, number), "shift is illegal");
    expect(window_settings(1, 1, "<partition>" + std::to_string(number) + "</partition>"),
           "partition should be a positive integer");
  }
  expect(window_settings(2, 1, "<headedge>1</headedge>"), "headedge tag is not well formed");
  expect(window_settings(2, 1, "<tailedge>1</tailedge>"), "tailedge tag is not well formed");
  expect(window_settings(2, 1, "<headedge type=\"mirror\">1</headedge>"), "Unknown edge handling type (mirror)");
  expect(window_settings(2, 1, "<tailedge type=\"\">1</tailedge>"), "Unknown edge handling type ()");
  expect(window_settings(2, 1, "<headedge type=\"drop\">-1</headedge>"), "haed drop is illegal");
  expect(window_settings(2, 1, "<tailedge type=\"drop\">-1</tailedge>"), "tailedge tag is not well formed");
  for (const std::string type : {"zero", "repeat"}) {
    for (const std::string count : {"-1", "2"}) {
      expect(window_settings(2, 1, "<headedge type=\"" + type + "\">" + count + "</headedge>"),
             "headedge tag is not well formed");
      expect(window_settings(2, 1, "<tailedge type=\"" + type + "\">" + count + "</tailedge>"),
             "tailedge tag is not well formed");
    }
  }
}

TEST(FrameWindowNode, RefusesVectorsThatItsGroupsDoNotDivide) {
  expect_error([] { run_node("FrameWindowNode", window_settings(2, 1, "<partition>3</partition>"), numbered(4, 1)); },
               "vector length is not a multiple of number of groups", "meridane::FrameWindowNode::feed");
}

TEST(FrameWindowNode, RefusesVectorsOfAnotherSize) {
  Flow flow = flow_of(one_node("FrameWindowNode", window_settings(3, 1)));
  flow.start();
  flow.feed(Vector(Vector::Zero(2)));
  expect_error<DimensionMismatchError>([&] { flow.feed(Vector(Vector::Zero(3))); },
                                       "number of dimentions of input data does not accord", "meridane::expect_size");
}

TEST(FrameWindowNode, VectorsThatAreDroppedHaveTheSizeOfTheOthers) {
  Flow flow = flow_of(one_node("FrameWindowNode", window_settings(1, 1, "<headedge type=\"drop\">1</headedge>")));
  flow.start();
  flow.feed(Vector(Vector::Zero(2)));
  expect_error<DimensionMismatchError>([&] { flow.feed(Vector(Vector::Zero(3))); },
                                       "number of dimentions of input data does not accord", "meridane::expect_size");
  EXPECT_EQ(run(flow, numbered(3, 2)), numbered(3, 2).rightCols(1));
}

}  // namespace
}  // namespace meridane
