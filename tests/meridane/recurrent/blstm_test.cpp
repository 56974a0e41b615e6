#include "bidirectional_reference.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index N = 4, D = 3;

struct Sample {
  Form form;
  bool sum;

  std::string type() const { return prefix_of(form) + "BLSTM"; }
  BothDirections parameters() const {
    BothDirections p(11, N, D);
    p.forward.in_codes = p.backward.in_codes = form == Form::codes;
    return p;
  }
  std::string record(const BothDirections& p) const { return bidirectional_record("BLSTM", form, p, {sum}); }
  std::shared_ptr<NNLayer> load(const BothDirections& p) const { return layer_in(form, type(), record(p)); }
};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.type(); }

class BLSTMs : public testing::TestWithParam<Sample> {
 protected:
  const std::shared_ptr<NNLayer> layer_ = GetParam().load(GetParam().parameters());
};

INSTANTIATE_TEST_SUITE_P(Forms, BLSTMs,
                         testing::Values(Sample{Form::plain, false}, Sample{Form::plain, true},
                                         Sample{Form::half, false}, Sample{Form::half, true},
                                         Sample{Form::codes, false}, Sample{Form::codes, true}),
                         [](const auto& each) { return each.param.type() + (each.param.sum ? "Sum" : "Concat"); });

TEST_P(BLSTMs, RunInBothDirectionsAndCarryTheStatesOfBoth) {
  const BothDirections p = GetParam().parameters();
  ExactMemory forward(N), backward(N);
  const auto state = layer_->create_state();
  Dice dice(1);
  for (const Eigen::Index frames : {7, 1, 100}) {
    const Matrix x = dice.matrix(D, frames, 2);
    const Exact along = run(p.forward, x.cast<double>(), forward);
    const Exact back = run_reversed(p.backward, x.cast<double>(), backward);
    EXPECT_LT(distance(step(*layer_, x, state), joined(along, back, GetParam().sum)), 2 * kRounding) << frames;
  }
}

TEST_P(BLSTMs, RefuseAnOutputFormatThatIsNone) {
  for (const std::int32_t format : {-1, 2, 256}) {
    const std::string record = bidirectional_record("BLSTM", GetParam().form, GetParam().parameters(), {format});
    EXPECT_EQ(failure_of([&] { layer_in(GetParam().form, GetParam().type(), record); }),
              "Invalid value for attribute output_format.");
  }
}

TEST_P(BLSTMs, RefuseDirectionsThatContradictThemselves) {
  const auto failure = [](const BothDirections& p) {
    return failure_of<BaseRuntimeError>([&] { GetParam().load(p); });
  };
  const std::string name = GetParam().form == Form::codes ? "lateral_qweight" : "lateral_weight";
  BothDirections p = GetParam().parameters();
  p.forward.lateral = Matrix::Ones(4 * N, N - 1);
  EXPECT_EQ(failure(p), "\"<forward_" + name + ">\" is not 4N x N matrix a layer of type \"LSTM\" ");
  p = GetParam().parameters();
  p.backward.lateral = Matrix::Ones(4 * N, N - 1);
  EXPECT_EQ(failure(p), "\"<backward_" + name + ">\" is not 4N x N matrix a layer of type \"LSTM\" ");
  p = GetParam().parameters();
  p.backward.upward = Matrix::Ones(12, D);
  EXPECT_EQ(failure(p), "Numbers of rows of upward_weight [12], upward_bias [16] and lateral_weight [16] do not match");
  p = GetParam().parameters();
  p.forward.lateral_bias = Matrix::Ones(17, 1);
  EXPECT_EQ(failure(p), "Size of upward_bias [16] and lateral_bias [17] do not match ");
}

TEST_P(BLSTMs, RefuseDirectionsThatContradictEachOther) {
  Dice dice(5);
  BothDirections fewer_cells = GetParam().parameters(), fewer_rows = fewer_cells;
  fewer_cells.backward = Direction(dice, N - 1, D);
  fewer_rows.backward = Direction(dice, N, D - 1);
  for (const BothDirections& p : {fewer_cells, fewer_rows}) {
    EXPECT_EQ(failure_of<InvalidFormat>([&] { GetParam().load(p); }),
              "invalid format (expected \"" + GetParam().type() + " Layer\")");
  }
}

// The directions alike, and one frame: what both give is the same.
TEST(BLSTM, OfOneFrameRunsReversedAsItRunsForward) {
  BothDirections p(12, N, D);
  p.backward = p.forward;
  const auto layer = Sample{Form::plain, false}.load(p);
  const Matrix one = forward(*layer, Matrix::Ones(D, 1));
  EXPECT_EQ(one.topRows(N), one.bottomRows(N));
  const Matrix x = Dice(1).matrix(D, 8);
  const Matrix y = forward(*layer, x), mirrored = forward(*layer, x.rowwise().reverse());
  EXPECT_EQ(y.bottomRows(N), mirrored.topRows(N).rowwise().reverse());
}

TEST(BLSTM, NamesItsFormatInXml) {
  const BothDirections p(13, N, D);
  const std::string concat = xml_of(*Sample{Form::plain, false}.load(p));
  const std::string sum = xml_of(*Sample{Form::plain, true}.load(p));
  EXPECT_THAT(concat, testing::HasSubstr(" output_format=\"concat\""));
  EXPECT_THAT(sum, testing::HasSubstr(" output_format=\"sum\""));
  std::string other = sum, none = sum;
  const std::string attribute = " output_format=\"sum\"";
  other.replace(other.find(attribute), attribute.size(), " output_format=\"Sum\"");
  none.erase(none.find(attribute), attribute.size());
  EXPECT_EQ(failure_of([&] { layer_of_xml("BLSTM", other); }), "Invalid value for attribute output_format.");
  EXPECT_EQ(xml_of(*layer_of_xml("BLSTM", none)), concat);
}

TEST(BLSTM, NamesTheElementThatIsMissing) {
  std::string present;
  for (const char* direction : {"forward", "backward"}) {
    for (const char* part : {"_upward_weight", "_upward_bias", "_lateral_weight", "_lateral_bias"}) {
      const std::string child = std::string(direction) + part;
      EXPECT_EQ(failure_of<MissingTagError>(
                    [&] { layer_of_xml("BLSTM", "<layer type='BLSTM' id='a'>" + present + "</layer>"); }),
                "\"<" + child + ">\" not found in a layer of type \"BLSTM\" ");
      present += "<" + child + ">1</" + child + ">";
    }
  }
}

TEST(QuantizedBLSTM, KeepsEachDirectionInAnElementOfItsOwn) {
  const Sample sample{Form::codes, false};
  const std::string document = xml_of(*sample.load(sample.parameters()));
  const auto changed = [&](const std::string& from, const std::string& to) {
    std::string text = document;
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
      text.replace(at, from.size(), to);
    }
    return failure_of([&] { layer_of_xml<QuantizedNNLayerBuilder>("QuantizedBLSTM", text); });
  };
  const auto missing = [](const std::string& name, const std::string& type) {
    return "\"<" + name + ">\" not found in a layer of type \"" + type + "\" ";
  };
  EXPECT_EQ(changed("forward>", "x>"), missing("forward", "QuantizedBLSTM"));
  EXPECT_EQ(changed("backward>", "x>"), missing("backward", "QuantizedBLSTM"));
  EXPECT_EQ(changed("lateral_bias>", "x>"), missing("lateral_bias", "QuantizedBLSTM"));
  EXPECT_EQ(changed("upward_bias>", "x>"), missing("upward_bias", "QuantizedLSTM"));
  EXPECT_EQ(changed("upward_qweight", "x"), missing("upward_qweight", "QuantizedLSTM"));
  EXPECT_EQ(changed("lateral_qweight", "x"), missing("lateral_qweight", "QuantizedLSTM"));
  EXPECT_EQ(
      changed("\"QuantizedLSTM\"", "\"LSTM\""),
      "QuantizedLSTMLayer::load_xml() has been called for a wrong layer type - indicating an implementation error");
  EXPECT_EQ(changed(" type=\"QuantizedLSTM\"", ""), "\"type\" i mandatory in layer");
}

}  // namespace
}  // namespace meridane::test
