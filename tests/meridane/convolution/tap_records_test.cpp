// What both convolutions along time promise of their records, documents and states.

#include <limits>

#include "meridane/error.h"
#include "tap_layers.h"

namespace meridane::test {
namespace {

constexpr int kMost = std::numeric_limits<std::int32_t>::max();
constexpr int kLeast = std::numeric_limits<std::int32_t>::min();

/// A layer of 4 rows to 4 rows, so that one record suits both.
Taps sample(bool groups = false) {
  Dice dice(1);
  return taps_of(dice, {.groups = groups, .causal = true, .pad = 8, .dilation = 2, .stride = 1, .kernel = 3}, 4,
                 groups ? 1 : 4, 4);
}

class TapRecords : public testing::TestWithParam<std::string> {
 protected:
  const std::string& type() const { return GetParam(); }
  std::shared_ptr<NNLayer> layer(const Taps& taps) const { return layer_of(type(), taps.record(type())); }
  std::string document(const std::string& attributes, const std::string& children) const {
    return "<layer type='" + type() + "' id='a' " + attributes + ">" + children + "</layer>";
  }
};

INSTANTIATE_TEST_SUITE_P(Types, TapRecords,
                         testing::Values("TDNN", "CompressedTDNN", "TransposeTDNN", "CompressedTransposeTDNN"));

TEST_P(TapRecords, DumpTheBytesThatTheyWereLoadedFrom) {
  for (const bool groups : {false, true}) {
    for (const int dilation : {1, 2}) {
      Taps taps = sample(groups);
      taps.dilation = dilation;
      const auto loaded = layer(taps);
      EXPECT_EQ(binary_of(*loaded), taps.record(type()));
      const std::string text = xml_of(*loaded);
      EXPECT_EQ(binary_of(*layer_of_xml(type(), text)), taps.record(type()));
      EXPECT_EQ(xml_of(*layer_of_xml(type(), text)), text);
    }
  }
}

TEST_P(TapRecords, DumpTapsOfOneColumn) {
  for (const int dilation : {1, 2}) {
    const bool is_transpose = type().ends_with("TransposeTDNN");
    Dice dice(3);
    const Taps taps = taps_of(dice, {.dilation = dilation, .kernel = 5}, 19, 1, is_transpose ? 1 : 19);
    EXPECT_EQ(binary_of(*layer(taps)), taps.record(type()));
  }
}

TEST_P(TapRecords, ReadTheirDocument) {
  const std::string children = "<weight>1 2\n3 4\n5 6\n7 8</weight><bias>10\n20</bias>";
  const Matrix x = Matrix::Ones(2, 6);
  for (const char* yes : {"true", "True", "1", "7"}) {
    for (const char* no : {"false", "False", "0", "00"}) {
      const auto read =
          layer_of_xml(type(), document("input_size='2' kernel='2' stride='2' pad='1' dilation='3' causal='" +
                                            std::string(yes) + "' groups='" + no + "'",
                                        children));
      const Taps same{.causal = true,
                      .pad = 1,
                      .dilation = 3,
                      .stride = 2,
                      .kernel = 2,
                      .weight = (Matrix(4, 2) << 1, 2, 3, 4, 5, 6, 7, 8).finished(),
                      .bias = (Matrix(2, 1) << 10, 20).finished()};
      EXPECT_EQ(forward(*read, x), forward(*layer_of_xml(type(), xml_of(*read)), x));
      EXPECT_EQ(binary_of(*read), same.record(type()));
    }
  }
}

TEST_P(TapRecords, HaveDefaultsForAllButTheirKernel) {
  const std::string children = "<weight>0.5\n0.25</weight><bias>1</bias>";
  const Taps same{.kernel = 2, .weight = (Matrix(2, 1) << 0.5f, 0.25f).finished(), .bias = Matrix::Ones(1, 1)};
  EXPECT_EQ(binary_of(*layer_of_xml(type(), document("kernel='2'", children))), same.record(type()));
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml(type(), document("", children)); }),
            "Incorrect \"kernel\" for \"" + type() + "\"");
}

TEST_P(TapRecords, NameTheAttributeThatIsWrong) {
  const std::string children = "<weight>1 2\n3 4\n5 6\n7 8</weight><bias>10\n20</bias>";
  const auto expect_refused = [&](const std::string& name, const std::string& value) {
    const std::string kernel = name == "kernel" ? "" : "kernel='2' ";
    EXPECT_EQ(failure_of<BaseRuntimeError>(
                  [&] { layer_of_xml(type(), document(kernel + name + "='" + value + "'", children)); }),
              "Incorrect \"" + name + "\" for \"" + type() + "\"")
        << value;
  };
  for (const char* name : {"pad", "stride", "dilation", "kernel"}) {
    for (const char* value : {"", "x", "1.5", "2x", " 1", "-1", "-2147483648", "4294967297"})
      expect_refused(name, value);
    if (name != std::string("pad")) expect_refused(name, "0");
  }
  for (const char* name : {"causal", "groups"}) {
    for (const char* value : {"", "yes", "TRUE", "truee", "1.0"}) expect_refused(name, value);
  }
  for (const char* value : {"1", "3", "x", ""}) expect_refused("input_size", value);
}

TEST_P(TapRecords, NameTheElementThatIsMissing) {
  EXPECT_EQ(failure_of<MissingTagError>([&] { layer_of_xml(type(), document("kernel='1'", "")); }),
            "\"<weight>\" not found in a layer of type \"" + type() + "\" ");
  EXPECT_EQ(failure_of<MissingTagError>([&] { layer_of_xml(type(), document("kernel='1'", "<weight>1</weight>")); }),
            "\"<bias>\" not found in a layer of type \"" + type() + "\" ");
}

TEST_P(TapRecords, RefuseTheRecordAndTheDocumentOfAnother) {
  std::string other = sample().record(type());
  ++other[0];
  EXPECT_EQ(failure_of<InvalidFormat>([&] { layer_of(type(), other); }),
            "invalid format (expected \"" + type() + " Layer\")");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml(type(), "<layer type='Other' id='a'/>"); }),
            type() + "Layer::load_xml() has been called for a wrong layer type - indicating an implementation error");
}

TEST_P(TapRecords, RefuseARecordThatIsCutAnywhere) {
  const std::string record = sample().record(type());
  for (std::size_t length = 0; length < record.size(); ++length) {
    EXPECT_THROW(layer_of(type(), record.substr(0, length)), BaseRuntimeError) << length;
  }
}

TEST_P(TapRecords, RefuseNumbersThatNoLayerHas) {
  const auto refusal = [&](const auto& change) {
    Taps taps = sample();
    change(taps);
    return failure_of<BaseRuntimeError>([&] { layer(taps); });
  };
  const auto incorrect = [&](const std::string& name) { return "Incorrect \"" + name + "\" for \"" + type() + "\""; };
  for (const int value : {-1, kLeast}) EXPECT_EQ(refusal([=](Taps& t) { t.pad = value; }), incorrect("pad"));
  for (const int value : {0, -1, kLeast}) {
    EXPECT_EQ(refusal([=](Taps& t) { t.dilation = value; }), incorrect("dilation"));
    EXPECT_EQ(refusal([=](Taps& t) { t.stride = value; }), incorrect("stride"));
    EXPECT_EQ(refusal([=](Taps& t) { t.kernel = value; }), incorrect("kernel"));
  }
  // More than memory should be taken for.
  EXPECT_EQ(refusal([](Taps& t) { t.dilation = kMost; }), incorrect("dilation"));
  EXPECT_EQ(refusal([](Taps& t) { t.stride = kMost; }), incorrect("stride"));
  EXPECT_EQ(refusal([](Taps& t) { t.causal = false, t.pad = kMost; }), incorrect("pad"));
  // 2^22 values of padding, of 4 rows.
  EXPECT_EQ(refusal([](Taps& t) { t.causal = false, t.pad = 1 << 20; }), "nothing failed");
  EXPECT_EQ(refusal([](Taps& t) { t.causal = false, t.pad = (1 << 20) + 1; }), incorrect("pad"));
  const std::string format = "invalid format (expected \"" + type() + " Layer\")";
  for (const int value : {5, 7, kMost}) EXPECT_EQ(refusal([=](Taps& t) { t.kernel = value; }), format) << value;
  EXPECT_EQ(refusal([](Taps& t) { t.bias = Matrix::Zero(5, 1); }), format);
}

TEST_P(TapRecords, ChangeTheNumberOfFrames) { EXPECT_TRUE(layer(sample())->is_variable_length()); }

// 1024 frames for each frame of the stream and for eight before it.
TEST_P(TapRecords, MakeSoManyFramesAndNoMore) {
  constexpr int kTime = 3, kAll = 1024 * (kTime + 8);
  const Matrix x = Dice(6).matrix(1, kTime);
  const auto makes = [&](bool groups, int stride, int pad) {
    const auto loaded = layer({.groups = groups,
                               .pad = pad,
                               .stride = stride,
                               .kernel = 1,
                               .weight = Matrix::Constant(1, 1, 2),
                               .bias = Matrix::Constant(1, 1, 0.5f)});
    const auto state = loaded->create_state();
    const auto refusal = failure_of<BaseRuntimeError>([&] { loaded->forward({minibatch(x)}, state); });
    if (refusal != "nothing failed") return refusal;
    const Matrix y = forward(*loaded, x);
    EXPECT_EQ(y.sum() - 0.5f * static_cast<float>(y.cols()), 2 * x.sum());
    return std::to_string(y.cols());
  };
  const auto too_many = [](int frames) {
    return "Layer the layer makes too many frames: " + std::to_string(frames) + ", where 3 have gone into the network";
  };
  for (const bool groups : {false, true}) {
    if (type().ends_with("TransposeTDNN")) {
      EXPECT_EQ(makes(groups, kAll / kTime, 0), std::to_string(kAll / kTime * kTime));
      EXPECT_EQ(makes(groups, kAll / kTime + 1, 0), too_many((kAll / kTime + 1) * kTime));
    } else {
      EXPECT_EQ(makes(groups, 1, (kAll - kTime) / 2), std::to_string(kAll - 1));
      EXPECT_EQ(makes(groups, 1, (kAll - kTime) / 2 + 1), too_many(kAll + 1));
    }
  }
}

TEST_P(TapRecords, TakeAnyNumberOfFrames) {
  const auto loaded = layer({.kernel = 1, .weight = Matrix::Ones(1, 1), .bias = Matrix::Zero(1, 1)});
  LayerInputs held_back = {minibatch(Matrix::Ones(1, 9000))};
  held_back.set_fed(0);
  EXPECT_EQ(loaded->forward(held_back, loaded->create_state())->content(), Matrix::Ones(1, 9000));
}

TEST_P(TapRecords, CheckTheirInputs) {
  const auto loaded = layer(sample());
  const MinibatchPtr x = minibatch(Matrix::Zero(4, 9));
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] {
              loaded->forward({x, x});
            }),
            "Layer the layer does not accept multiple input streams");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { loaded->forward({nullptr}); }),
            "No data is being provided to layer the layer");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { loaded->forward(LayerInputs()); }),
            "No data is being provided to layer the layer");
}

TEST_P(TapRecords, TakeNoStateButTheirOwn) {
  struct Other : NNLayerState {
    std::shared_ptr<NNLayerState> clone() const override { return nullptr; }
  };
  Dice dice(8);
  const Taps larger = taps_of(dice, {.causal = true, .pad = 8, .dilation = 2, .kernel = 3}, 5, 5, 5);
  const std::string counterpart = type().ends_with("TransposeTDNN") ? "TDNN" : "TransposeTDNN";
  const std::shared_ptr<NNLayerState> others[] = {nullptr, std::make_shared<Other>(), layer(larger)->create_state(),
                                                  layer_of(counterpart, sample().record(counterpart))->create_state()};
  for (const auto& state : others) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer(sample())->forward({minibatch(Matrix::Zero(4, 9))}, state); }),
              "No state for layer the layer");
  }
}

TEST_P(TapRecords, GiveNoFramesForNoneAndGoOn) {
  const auto loaded = layer(sample());
  const Matrix x = Dice(2).matrix(4, 30);
  const Matrix whole = forward(*loaded, x);
  const auto state = loaded->create_state();
  const Matrix first = in_chunks(*loaded, x.leftCols(13), {13}, state);
  for (const Eigen::Index rows : {0, 4}) {
    EXPECT_EQ(loaded->forward({minibatch(Matrix(rows, 0))}, state)->content().cols(), 0);
  }
  const Matrix second = in_chunks(*loaded, x.rightCols(17), {17}, state);
  EXPECT_EQ(first, whole.leftCols(first.cols()));
  EXPECT_EQ(second, whole.rightCols(second.cols()));
}

TEST_P(TapRecords, CloneTheirStateDeeply) {
  for (const bool groups : {false, true}) {
    const auto loaded = layer(sample(groups));
    const Matrix a = Dice(3).matrix(4, 11), b = Dice(4).matrix(4, 14), c = Dice(5).matrix(4, 14);
    const auto state = loaded->create_state();
    in_chunks(*loaded, a, {4}, state);
    const auto copy = state->clone();
    const auto after = [&](const Matrix& x, const std::shared_ptr<NNLayerState>& of) {
      return in_chunks(*loaded, x, {3}, of);
    };
    const auto expected = [&](const Matrix& x) {
      Matrix both(4, a.cols() + x.cols());
      both << a, x;
      return forward(*loaded, both);
    };
    const Matrix y = after(b, state), z = after(c, copy);  // they part
    EXPECT_EQ(y, expected(b).rightCols(y.cols()));
    EXPECT_EQ(z, expected(c).rightCols(z.cols()));
    EXPECT_EQ(after(a, loaded->create_state()), forward(*loaded, a));  // a new stream has nothing of either
  }
}

TEST_P(TapRecords, WriteIntoMemoryOfAnOldResultAndNotIntoTheirInput) {
  const auto loaded = layer(sample());
  const Matrix x = Dice(6).matrix(4, 20);
  const MinibatchPtr input = minibatch(x);
  const Matrix fresh = loaded->forward({input})->content();
  LayerInputs inputs = {input};
  inputs.set_spare(minibatch(Matrix::Constant(7, 3, std::numeric_limits<float>::quiet_NaN())));
  EXPECT_EQ(loaded->forward(inputs)->content(), fresh);
  EXPECT_EQ(input->content(), x);
}

TEST_P(TapRecords, CountTheirNumbersAndProducts) {
  EXPECT_EQ(layer(sample())->size().parameters, 3u * 16u + 4u);
  EXPECT_EQ(layer(sample())->size().multiply_adds, 3u * 16u);
  EXPECT_EQ(layer(sample(true))->size().parameters, 3u * 4u + 4u);
}

// Whatever stands in a record, it's refused by the engine's own exception or makes a layer that runs.
TEST_P(TapRecords, SurviveAnyByteChanged) {
  const MinibatchPtr x = minibatch(Dice(9).matrix(4, 3));
  int runs = 0;
  for (const bool groups : {false, true}) {
    Taps taps = sample(groups);
    taps.causal = groups;
    const std::string record = taps.record(type());
    for (std::size_t at = 0; at < record.size(); ++at) {
      for (const int value : {0x00, 0x01, 0x40, 0x7f, 0x80, 0xff}) {
        std::string changed = record;
        changed[at] = static_cast<char>(value);
        try {
          const MinibatchPtr y = layer_of(type(), changed)->forward({x});
          EXPECT_EQ(y->content().rows(), 4);
          ++runs;
        } catch (const BaseRuntimeError&) {
        }
      }
    }
  }
  EXPECT_GT(runs, 0);
}

TEST(CompressedTaps, ComputeWithTheFloatsOfTheirHalves) {
  const Matrix x = Dice(7).matrix(4, 20);
  for (const std::string plain : {"TDNN", "TransposeTDNN"}) {
    const std::string half = "Compressed" + plain;
    EXPECT_EQ(forward(*layer_of(half, sample().record(half)), x), forward(*layer_of(plain, sample().record(plain)), x));
  }
}

}  // namespace
}  // namespace meridane::test
