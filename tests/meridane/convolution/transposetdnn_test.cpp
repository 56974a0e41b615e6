// TransposeTDNN: the transpose of TDNN on whole signals, and the same in any chunks.

#include "meridane/error.h"
#include "tap_layers.h"

namespace meridane::test {
namespace {

struct Pair {
  Taps taps;
  Eigen::Index rows;  ///< of what TDNN reads
  std::shared_ptr<NNLayer> layer;
  std::shared_ptr<NNLayer> transpose;  ///< of the same record, but for the bias
};

Pair make_pair(Taps numbers, bool with_bias, Eigen::Index width = 1) {
  Dice dice(static_cast<unsigned>(numbers.kernel + 10 * numbers.dilation + 100 * numbers.stride));
  const Eigen::Index out = 5, in = numbers.groups ? out : 3;
  Taps taps = taps_of(dice, numbers, out, numbers.groups ? width : in, in);
  if (!with_bias) taps.bias.setZero();
  Taps forward_taps = taps;
  forward_taps.bias = Matrix::Zero(out, 1);
  return {taps, in, layer_of("TDNN", forward_taps.record("TDNN")),
          layer_of("TransposeTDNN", taps.record("TransposeTDNN"))};
}

std::vector<Pair> pairs(bool with_bias) {
  std::vector<Pair> all;
  for (const bool groups : {false, true}) {
    for (const int mode : {-1, 0, 1, 2, 9}) {  // causal, or a pad
      for (const int dilation : {1, 3}) {
        for (const int stride : {1, 2, 5}) {
          for (const int kernel : {1, 2, 4}) {
            all.push_back(make_pair({.groups = groups,
                                     .causal = mode < 0,
                                     .pad = mode < 0 ? 16 : mode,
                                     .dilation = dilation,
                                     .stride = stride,
                                     .kernel = kernel},
                                    with_bias, stride == 2 ? 3 : 1));
          }
        }
      }
    }
  }
  return all;
}

std::string name_of(const Taps& t) {
  std::ostringstream out;
  out << "groups " << t.groups << ", causal " << t.causal << ", pad " << t.pad << ", dilation " << t.dilation
      << ", stride " << t.stride << ", kernel " << t.kernel;
  return out.str();
}

/// The first frames that may be given, after `n` frames.
Eigen::Index given(const Taps& t, Eigen::Index n) {
  const Eigen::Index done = n * t.stride;
  if (t.causal) return std::max<Eigen::Index>(done - t.overlap(), 0);
  return std::max<Eigen::Index>(std::min(done - t.pad, done + t.overlap() - 2 * t.pad), 0);
}

TEST(TransposeTDNN, AddsTheTransposedTapsOfEachFrame) {
  for (const Pair& each : pairs(true)) {
    SCOPED_TRACE(name_of(each.taps));
    const Matrix x = Dice(3).matrix(5, 12);
    Eigen::MatrixXd expected = each.taps.bias.cast<double>().replicate(1, given(each.taps, 12));
    for (Eigen::Index f = 0; f < x.cols(); ++f) {
      for (Eigen::Index k = 0; k < each.taps.kernel; ++k) {
        const Eigen::Index t = each.taps.place(f, k);
        if (t >= 0 && t < expected.cols()) {
          expected.col(t) += each.taps.tap(k, f).transpose() * x.col(f).cast<double>();
        }
      }
    }
    expect_exact(forward(*each.transpose, x), expected);
  }
}

/// <TDNN x, y> = <x, TransposeTDNN y>, with zeros behind y until all that x can meet is given.
TEST(TransposeTDNN, IsTheTransposeOfTDNN) {
  for (const Pair& each : pairs(false)) {
    SCOPED_TRACE(name_of(each.taps));
    const Matrix x = Dice(4).matrix(each.rows, 40);
    const Matrix convolved = forward(*each.layer, x);
    ASSERT_GT(convolved.cols(), 0);
    Matrix y = Matrix::Zero(5, convolved.cols() + 60);
    y.leftCols(convolved.cols()) = Dice(5).matrix(5, convolved.cols());
    const Matrix transposed = forward(*each.transpose, y);
    ASSERT_GE(transposed.cols(), x.cols());
    const auto product = [](const Matrix& a, const Matrix& b) {
      return a.cast<double>().cwiseProduct(b.cast<double>()).sum();
    };
    const double left = product(convolved, y.leftCols(convolved.cols()));
    // Each value of either side is exact or off by 2^-20; there are 200 of them at most, with factors below 1.
    EXPECT_NEAR(left, product(x, transposed.leftCols(x.cols())), 400 * 0x1p-20);
  }
}

TEST(TransposeTDNN, GivesTheSameInAnyChunks) {
  for (const Pair& each : pairs(true)) {
    SCOPED_TRACE(name_of(each.taps));
    const Matrix x = Dice(6).matrix(5, 60);
    const Matrix whole = forward(*each.transpose, x);
    for (const Eigen::Index length : {1, 2, 3, 5, 7, 50}) {
      EXPECT_EQ(in_chunks(*each.transpose, x, {length}), whole) << length;
    }
    EXPECT_EQ(in_chunks(*each.transpose, x, {1, 11, 2, 30}), whole);
  }
}

TEST(TransposeTDNN, GivesAFrameAsSoonAsNothingIsAddedToIt) {
  for (const Pair& each : pairs(true)) {
    SCOPED_TRACE(name_of(each.taps));
    const auto state = each.transpose->create_state();
    Eigen::Index frames = 0;
    for (Eigen::Index n = 1; n < 20; ++n) {
      frames += each.transpose->forward({minibatch(Matrix::Ones(5, 1))}, state)->content().cols();
      EXPECT_EQ(frames, given(each.taps, n)) << n;
    }
  }
}

TEST(TransposeTDNN, NamesBothSizesOfFramesThatDoNotFit) {
  const Pair each = make_pair({.kernel = 2}, true);
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { forward(*each.transpose, Matrix::Zero(4, 9)); }),
            "Dimension mismatch in layer the layer: 4 vs 5");
}

}  // namespace
}  // namespace meridane::test
