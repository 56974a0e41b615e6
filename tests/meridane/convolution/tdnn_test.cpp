// TDNN, chunk by chunk and as a whole.

#include "meridane/error.h"
#include "tap_layers.h"

namespace meridane::test {
namespace {

/// One call of a fresh stream, in double precision.
Eigen::MatrixXd convolved(const Taps& taps, const Matrix& x) {
  const Eigen::Index zeros = taps.causal ? taps.overlap() : 2 * taps.pad;
  const Eigen::Index span = zeros + x.cols() - taps.width();
  const Eigen::Index frames = span < 0 ? 0 : span / taps.stride + 1;
  Eigen::MatrixXd y = taps.bias.cast<double>().replicate(1, frames);
  for (Eigen::Index f = 0; f < frames; ++f) {
    for (Eigen::Index k = 0; k < taps.kernel; ++k) {
      const Eigen::Index t = taps.place(f, k);
      if (t >= 0 && t < x.cols()) y.col(f) += taps.tap(k, f) * x.col(t).cast<double>();
    }
  }
  return y;
}

struct Case {
  Taps taps;
  Eigen::Index rows;
  std::shared_ptr<NNLayer> layer;
};

Case make_case(Taps numbers, Eigen::Index width = 1, Eigen::Index rows = 3) {
  Dice dice(static_cast<unsigned>(numbers.kernel + 10 * numbers.dilation + 100 * numbers.stride));
  const Eigen::Index out = 5, in = numbers.groups ? out : rows;
  const Taps taps = taps_of(dice, numbers, out, numbers.groups ? width : in, out);
  return {taps, in, layer_of("TDNN", taps.record("TDNN"))};
}

/// Every combination, with a pad that admits chunks of any length to causal ones.
std::vector<Case> cases(bool causal) {
  std::vector<Case> all;
  for (const bool groups : {false, true}) {
    for (const int dilation : {1, 2, 3}) {
      for (const int stride : {1, 2, 5}) {
        for (const int kernel : {1, 2, 3, 4}) {
          all.push_back(make_case({.groups = groups,
                                   .causal = causal,
                                   .pad = causal ? 16 : 0,
                                   .dilation = dilation,
                                   .stride = stride,
                                   .kernel = kernel},
                                  stride == 2 ? 3 : 1));
          if (groups) continue;
          // Samples: taps next to each other are multiplied at once.
          all.push_back(make_case(
              {.causal = causal, .pad = causal ? 16 : 0, .dilation = dilation, .stride = stride, .kernel = kernel}, 1,
              1));
        }
      }
    }
  }
  return all;
}

std::string name_of(const Taps& t) {
  std::ostringstream out;
  out << "groups " << t.groups << ", dilation " << t.dilation << ", stride " << t.stride << ", kernel " << t.kernel
      << ", pad " << t.pad;
  return out.str();
}

TEST(TDNN, IsTheSumOfItsTaps) {
  for (const bool causal : {false, true}) {
    for (const Case& each : cases(causal)) {
      SCOPED_TRACE(name_of(each.taps));
      for (const Eigen::Index frames : {10, 11, 31}) {
        const Matrix x = Dice(7).matrix(each.rows, frames);
        expect_exact(forward(*each.layer, x), convolved(each.taps, x));
      }
    }
  }
}

TEST(TDNN, ReadsZerosAroundACallThatIsNotCausal) {
  for (const bool groups : {false, true}) {
    for (const int pad : {1, 2, 7}) {
      for (const int stride : {1, 2, 3}) {
        const Case each = make_case({.groups = groups, .pad = pad, .dilation = 2, .stride = stride, .kernel = 3});
        SCOPED_TRACE(name_of(each.taps));
        for (const Eigen::Index frames : {5, 9}) {
          const Matrix x = Dice(8).matrix(each.rows, frames);
          expect_exact(forward(*each.layer, x), convolved(each.taps, x));
        }
      }
    }
  }
}

TEST(TDNN, GivesTheSameInAnyChunksIfItIsCausal) {
  for (const Case& each : cases(true)) {
    SCOPED_TRACE(name_of(each.taps));
    const Matrix x = Dice(9).matrix(each.rows, 210);
    const Matrix whole = forward(*each.layer, x);
    EXPECT_EQ(whole.cols(), 210 / each.taps.stride);
    for (const Eigen::Index length : {1, 2, 3, 5, 7, 50}) {
      EXPECT_EQ(in_chunks(*each.layer, x, {length * each.taps.stride}), whole) << length;
    }
    const Eigen::Index s = each.taps.stride;
    EXPECT_EQ(in_chunks(*each.layer, x, {s, 7 * s, 2 * s, 13 * s}), whole);
  }
}

// Without padding, a window that lies in two chunks is there as soon as its last frame is.
TEST(TDNN, GivesTheSameInChunksIfThereIsNoPadding) {
  for (const Case& each : cases(false)) {
    if (each.taps.width() < each.taps.stride) continue;
    SCOPED_TRACE(name_of(each.taps));
    const Eigen::Index first = each.taps.width(), s = each.taps.stride;
    const Matrix x = Dice(10).matrix(each.rows, first + 12 * s);
    const Matrix whole = forward(*each.layer, x);
    const auto state = each.layer->create_state();
    Matrix y(whole.rows(), 0);
    y = in_chunks(*each.layer, x.leftCols(first), {first}, state);
    const Matrix rest = in_chunks(*each.layer, x.rightCols(12 * s), {3 * s}, state);
    Matrix both(y.rows(), y.cols() + rest.cols());
    both << y, rest;
    EXPECT_EQ(both, whole);
  }
}

TEST(TDNN, PadsEachCallThatIsNotCausal) {
  for (const bool groups : {false, true}) {
    const Case each = make_case({.groups = groups, .pad = 1, .kernel = 3});
    const Matrix x = Dice(11).matrix(each.rows, 8);
    const auto state = each.layer->create_state();
    expect_exact(each.layer->forward({minibatch(x.leftCols(5))}, state)->content(),
                 convolved(each.taps, x.leftCols(5)));
    // The last two frames are kept, and there are zeros before them.
    expect_exact(each.layer->forward({minibatch(x.rightCols(3))}, state)->content(),
                 convolved(each.taps, x.rightCols(5)));
  }
}

TEST(TDNN, BeginsBehindZerosWithTwoFramesOfAKernelOfThree) {
  const Case each = make_case({.causal = true, .pad = 1, .kernel = 3});
  const Matrix x = Dice(12).matrix(each.rows, 3);
  const auto state = each.layer->create_state();
  const Matrix y = each.layer->forward({minibatch(x.leftCols(2))}, state)->content();
  ASSERT_EQ(y.cols(), 2);
  const Eigen::MatrixXd X = x.cast<double>(), b = each.taps.bias.cast<double>();
  expect_exact(y.col(0), b + each.taps.tap(2, 0) * X.col(0));
  expect_exact(y.col(1), b + each.taps.tap(1, 0) * X.col(0) + each.taps.tap(2, 0) * X.col(1));
  // Two frames are kept.
  expect_exact(each.layer->forward({minibatch(x.rightCols(1))}, state)->content(),
               b + each.taps.tap(0, 0) * X.col(0) + each.taps.tap(1, 0) * X.col(1) + each.taps.tap(2, 0) * X.col(2));
}

TEST(TDNN, RefusesWhatIsShorterThanItsKernel) {
  const Case each = make_case({.causal = true, .pad = 1, .dilation = 2, .kernel = 3});
  const auto state = each.layer->create_state();
  const auto feed = [&](Eigen::Index frames) {
    each.layer->forward({minibatch(Matrix::Zero(each.rows, frames))}, state);
  };
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { feed(3); }),
            "Input data size is less than kernel width in layer the layer: (input:3 + overlap:0 + pad:1) vs "
            "kernel_width:5");
  feed(4);  // after the failure as if it hadn't been
  feed(1);
  const Case halved = make_case({.causal = true, .dilation = 2, .stride = 2, .kernel = 3});
  const auto kept = halved.layer->create_state();
  const Matrix x = Dice(13).matrix(halved.rows, 8);
  const Matrix first = halved.layer->forward({minibatch(x.leftCols(6))}, kept)->content();
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { halved.layer->forward({minibatch(x.col(6))}, kept); }),
            "Input data size is less than kernel width in layer the layer: (input:1 + overlap:3 + pad:0) vs "
            "kernel_width:5");
  Matrix both(first.rows(), first.cols() + 1);
  both << first, halved.layer->forward({minibatch(x.rightCols(2))}, kept)->content();
  EXPECT_EQ(both, forward(*halved.layer, x));
  const Case valid = make_case({.kernel = 4});
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*valid.layer, Matrix::Zero(valid.rows, 3)); }),
            "Input data size is less than kernel width in layer the layer: (input:3 + overlap:0 + pad:0) vs "
            "kernel_width:4");
}

TEST(TDNN, ToleratesAChunkShorterThanItsStrideIfPadSaysSo) {
  const Case each = make_case({.causal = true, .pad = 2, .stride = 3, .kernel = 3});
  EXPECT_EQ(forward(*each.layer, Matrix::Zero(each.rows, 2)).cols(), 0);
  EXPECT_EQ(forward(*each.layer, Matrix::Zero(each.rows, 5)).cols(), 1);
}

TEST(TDNN, NamesBothSizesOfFramesThatDoNotFit) {
  const Case full = make_case({.kernel = 2}), grouped = make_case({.groups = true, .kernel = 2});
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { forward(*full.layer, Matrix::Zero(4, 9)); }),
            "Dimension mismatch in layer the layer: 4 vs 3");
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { forward(*grouped.layer, Matrix::Zero(4, 9)); }),
            "Dimension mismatch in layer the layer: 4 vs 5");
}

TEST(TDNN, TakesTheColumnOfAGroupedTapByTheNumberOfTheOutput) {
  Taps taps{.groups = true, .weight = (Matrix(2, 3) << 1, 2, 3, 10, 20, 30).finished(), .bias = Matrix::Zero(2, 1)};
  const auto layer = layer_of("TDNN", taps.record("TDNN"));
  const Matrix expected = (Matrix(2, 5) << 1, 2, 3, 1, 2, 10, 20, 30, 10, 20).finished();
  EXPECT_EQ(forward(*layer, Matrix::Ones(2, 5)), expected);
  EXPECT_EQ(in_chunks(*layer, Matrix::Ones(2, 5), {2}), expected);
}

}  // namespace
}  // namespace meridane::test
