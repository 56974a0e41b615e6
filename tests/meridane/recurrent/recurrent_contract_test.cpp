// What every recurrent layer promises, in each of its forms.

#include "bidirectional_reference.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index N = 4, D = 3;

struct Sample {
  std::string family;
  Form form;
  std::int32_t sum = 0;  // of those of two directions

  bool is_cut() const { return family == "LCBLSTM"; }  // gives frames later than it gets them
  Eigen::Index rows() const { return family.ends_with("BLSTM") && sum == 0 ? 2 * N : N; }
  std::string type() const { return prefix_of(form) + family; }
  std::string record() const { return record_in(form); }
  std::string record_in(Form other) const {
    BothDirections p(41, N, D);
    p.forward.has_lateral_bias = family != "LSTM";
    if (family == "BLSTM") return bidirectional_record(family, other, p, {sum});
    if (family == "LCBLSTM") return bidirectional_record(family, other, p, {3, 2, 1, sum});
    Record record(prefix_of(other) + family);
    return add_direction(record, p.forward, other).bytes();
  }
  std::shared_ptr<NNLayer> load(const std::string& bytes) const { return layer_in(form, type(), bytes); }
};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.type(); }

std::vector<Sample> samples() {
  std::vector<Sample> all;
  for (const Form form : {Form::plain, Form::half, Form::codes}) {
    for (const char* family : {"LSTM", "ULSTM", "BLSTM", "LCBLSTM"}) all.push_back({family, form});
    for (const char* family : {"BLSTM", "LCBLSTM"}) all.push_back({family, form, 1});
  }
  return all;
}

class RecurrentLayers : public testing::TestWithParam<Sample> {
 protected:
  const std::shared_ptr<NNLayer> layer_ = GetParam().load(GetParam().record());
};

INSTANTIATE_TEST_SUITE_P(Forms, RecurrentLayers, testing::ValuesIn(samples()),
                         [](const auto& each) { return each.param.type() + (each.param.sum != 0 ? "Sum" : ""); });

TEST_P(RecurrentLayers, StartFromZerosWithoutAState) {
  const Matrix x = Dice(2).matrix(D, 9);
  const Matrix whole = forward(*layer_, x);
  EXPECT_EQ(whole.rows(), GetParam().rows());
  EXPECT_EQ(whole.cols(), 9);
  step(*layer_, x, layer_->create_state());
  EXPECT_EQ(forward(*layer_, x), whole);
  const Matrix served = step(*layer_, x, layer_->create_state());
  EXPECT_EQ(served, whole.leftCols(served.cols()));
}

TEST_P(RecurrentLayers, HaveStatesWhoseClonesGoTheirOwnWay) {
  Dice dice(3);
  const Matrix first = dice.matrix(D, 8), second = dice.matrix(D, 8), third = dice.matrix(D, 8);
  const auto state = layer_->create_state();
  step(*layer_, first, state);
  const auto clone = state->clone();
  const Matrix here = step(*layer_, second, state);
  step(*layer_, third, state);
  EXPECT_EQ(step(*layer_, second, clone), here);
  EXPECT_NE(step(*layer_, second, state), here);
}

TEST_P(RecurrentLayers, GiveNoFramesForNoneAndKeepTheirState) {
  if (GetParam().is_cut()) return;  // no frames are the end of its stream
  Dice dice(4);
  const Matrix first = dice.matrix(D, 3), second = dice.matrix(D, 5);
  const auto state = layer_->create_state(), undisturbed = layer_->create_state();
  step(*layer_, first, state);
  step(*layer_, first, undisturbed);
  for (const Eigen::Index rows : {Eigen::Index{0}, D}) {
    const Matrix none = step(*layer_, Matrix(rows, 0), state);
    EXPECT_EQ(none.rows(), GetParam().rows());
    EXPECT_EQ(none.cols(), 0);
  }
  EXPECT_EQ(step(*layer_, second, state), step(*layer_, second, undisturbed));
}

TEST_P(RecurrentLayers, CheckTheirInputAndLeaveTheStateUntouched) {
  const auto state = layer_->create_state();
  const Matrix x = Dice(6).matrix(D, 8), wrong = Matrix::Ones(D + 1, 2);
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { forward(*layer_, wrong); }),
            "Dimension mismatch in layer the layer");
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { step(*layer_, wrong, state); }),
            "Dimension mismatch in layer the layer");
  const auto failure = [&](const LayerInputs& inputs) { return failure_of([&] { layer_->forward(inputs, state); }); };
  EXPECT_EQ(failure({minibatch(x), minibatch(x)}), "Layer the layer does not accept multiple input streams");
  EXPECT_EQ(failure({nullptr, nullptr}), "Layer the layer does not accept multiple input streams");
  EXPECT_EQ(failure({nullptr}), "No data is being provided to layer the layer");
  EXPECT_EQ(failure(LayerInputs()), "No data is being provided to layer the layer");
  EXPECT_EQ(step(*layer_, x, state), step(*layer_, x, layer_->create_state()));
}

TEST_P(RecurrentLayers, RefuseAStateThatIsNotTheirs) {
  struct Other : NNLayerState {
    std::shared_ptr<NNLayerState> clone() const override { return nullptr; }
  };
  Dice dice(8);
  Record larger("ULSTM");
  const auto other_size = layer_of("ULSTM", add_direction(larger, Direction(dice, N + 1, D), Form::plain).bytes());
  const std::shared_ptr<NNLayerState> others[] = {nullptr, std::make_shared<Other>(), other_size->create_state()};
  for (const auto& state : others) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { step(*layer_, Matrix::Ones(D, 1), state); }),
              "Layer the layer has been given no state of its own");
  }
}

TEST_P(RecurrentLayers, WriteIntoOldMemoryAndNotIntoTheirInput) {
  const Matrix x = Dice(9).matrix(D, 9);
  const MinibatchPtr input = minibatch(x);
  LayerInputs inputs = {input};
  inputs.set_spare(minibatch(Matrix::Constant(2, 3, std::nanf(""))));
  EXPECT_EQ(layer_->forward(inputs)->content(), forward(*layer_, x));
  EXPECT_EQ(input->content(), x);
}

TEST_P(RecurrentLayers, KeepTheirBytesFromBinaryToXmlToBinary) {
  EXPECT_EQ(binary_of(*layer_), GetParam().record());
  const std::string document = xml_of(*layer_);
  const auto again = layer_in_xml(GetParam().form, GetParam().type(), document);
  EXPECT_EQ(binary_of(*again), GetParam().record());
  EXPECT_EQ(xml_of(*again), document);
}

TEST_P(RecurrentLayers, RefuseARecordThatIsCutAnywhereOrAnothers) {
  std::string record = GetParam().record();
  for (std::size_t length = 0; length < record.size(); ++length) {
    EXPECT_THROW(GetParam().load(record.substr(0, length)), BaseRuntimeError) << length;
  }
  ++record[0];
  EXPECT_EQ(failure_of<InvalidFormat>([&] { GetParam().load(record); }),
            "invalid format (expected \"" + GetParam().type() + " Layer\")");
}

TEST_P(RecurrentLayers, RefuseTheDocumentOfAnother) {
  EXPECT_EQ(failure_of([&] { layer_in_xml(GetParam().form, GetParam().type(), "<layer type='Other' id='a'/>"); }),
            GetParam().type() +
                "Layer::load_xml() has been called for a wrong layer type - indicating an implementation error");
}

TEST_P(RecurrentLayers, AreQuantizedAsTheyAreLoadedFromAFloatForm) {
  if (GetParam().form != Form::codes) return;
  const std::string plain = GetParam().record_in(Form::plain);
  const auto quantized = layer_of<QuantizedNNLayerBuilder>(GetParam().family, plain);
  EXPECT_EQ(quantized->type(), GetParam().type());
  EXPECT_EQ(binary_of(*quantized), GetParam().record());
  EXPECT_EQ(xml_of(*quantized), xml_of(*layer_));
  EXPECT_EQ(
      failure_of([&] { layer_of_xml<QuantizedNNLayerBuilder>(GetParam().family, "<layer type='Other' id='a'/>"); }),
      GetParam().type() +
          "Layer::load_xml() has been called for a wrong layer type - indicating an implementation error");
}

}  // namespace
}  // namespace meridane::test
