// LSTM and ULSTM in all their forms.

#include "lstm_reference.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index N = 5, D = 3;

struct Sample {
  std::string family;  // LSTM or ULSTM
  Form form;

  std::string type() const { return prefix_of(form) + family; }
  Direction parameters() const {
    Dice dice(7);
    Direction p(dice, N, D);
    p.has_lateral_bias = family == "ULSTM";
    p.in_codes = form == Form::codes;
    return p;
  }
  std::string record(const Direction& p) const {
    Record record(type());
    return add_direction(record, p, form).bytes();
  }
  std::shared_ptr<NNLayer> load(const Direction& p) const { return layer_in(form, type(), record(p)); }
  std::shared_ptr<NNLayer> load() const { return load(parameters()); }
};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.type(); }

class LSTMs : public testing::TestWithParam<Sample> {
 protected:
  const std::shared_ptr<NNLayer> layer_ = GetParam().load();
};

INSTANTIATE_TEST_SUITE_P(Forms, LSTMs,
                         testing::Values(Sample{"LSTM", Form::plain}, Sample{"LSTM", Form::half},
                                         Sample{"LSTM", Form::codes}, Sample{"ULSTM", Form::plain},
                                         Sample{"ULSTM", Form::half}, Sample{"ULSTM", Form::codes}),
                         [](const auto& each) { return each.param.type(); });

TEST_P(LSTMs, ComputeTheirFormula) {
  const Matrix x = Dice(1).matrix(D, 110, 2);
  ExactMemory memory(N);
  EXPECT_LT(distance(forward(*layer_, x), run(GetParam().parameters(), x.cast<double>(), memory)), kRounding);
}

TEST_P(LSTMs, GiveInChunksExactlyWhatOneCallGives) {
  const Matrix x = Dice(2).matrix(D, 120, 2);
  const Matrix whole = step(*layer_, x, layer_->create_state());
  EXPECT_EQ(whole, forward(*layer_, x));
  for (const Eigen::Index chunk : {1, 2, 3, 5, 7, 48, 50, 120}) {
    EXPECT_EQ(in_chunks(*layer_, x, chunk, layer_->create_state()), whole) << chunk;
  }
}

TEST_P(LSTMs, NameTheElementThatIsMissing) {
  const bool codes = GetParam().form == Form::codes;
  const std::string type = GetParam().type();
  std::vector<std::string> children = {"upward_weight", "upward_bias", "lateral_weight"};
  if (codes) children = {"upward_qweight"};
  if (GetParam().family == "ULSTM" && !codes) children.emplace_back("lateral_bias");
  std::string present;
  for (const std::string& child : children) {
    EXPECT_EQ(failure_of<MissingTagError>([&] {
                layer_in_xml(GetParam().form, type, "<layer type='" + type + "' id='a'>" + present + "</layer>");
              }),
              "\"<" + child + ">\" not found in a layer of type \"" + type + "\" ");
    present += "<" + child + ">1</" + child + ">";
  }
}

TEST_P(LSTMs, RefuseSizesThatContradictEachOther) {
  const auto failure = [](const Direction& p) { return failure_of<BaseRuntimeError>([&] { GetParam().load(p); }); };
  const std::string name = GetParam().form == Form::codes ? "lateral_qweight" : "lateral_weight";
  const std::string not_square =
      "\"<" + name + ">\" is not 4N x N matrix a layer of type \"" + GetParam().family + "\" ";
  Direction p = GetParam().parameters();
  p.lateral = Matrix::Ones(4 * N, N + 1);
  EXPECT_EQ(failure(p), not_square);
  p.lateral = Matrix::Ones(4 * N + 1, N);
  EXPECT_EQ(failure(p), not_square);
  p.lateral = Matrix::Ones(24, 6);
  EXPECT_EQ(failure(p), "Numbers of rows of upward_weight [20], upward_bias [20] and lateral_weight [24] do not match");
  p = GetParam().parameters();
  p.bias = Matrix::Ones(19, 1);
  EXPECT_EQ(failure(p), "Numbers of rows of upward_weight [20], upward_bias [19] and lateral_weight [20] do not match");
  p = GetParam().parameters();
  p.upward = Matrix::Ones(21, D);
  EXPECT_EQ(failure(p), "Numbers of rows of upward_weight [21], upward_bias [20] and lateral_weight [20] do not match");
  p = GetParam().parameters();
  p.lateral_bias = Matrix::Ones(18, 1);
  EXPECT_EQ(failure(p),
            p.has_lateral_bias ? "Size of upward_bias [20] and lateral_bias [18] do not match " : "nothing failed");
}

TEST_P(LSTMs, CountTheirNumbersAndProducts) {
  const bool two = GetParam().family == "ULSTM";
  EXPECT_EQ(layer_->size().multiply_adds, 4u * N * (D + N));
  EXPECT_EQ(layer_->size().parameters, 4u * N * (D + N) + 4u * N * (two ? 2 : 1));
  EXPECT_FALSE(layer_->is_variable_length());
}

TEST(LSTM, OfHalfPrecisionComputesWhatThePlainOneDoes) {
  const Matrix x = Dice(10).matrix(D, 20);
  for (const char* family : {"LSTM", "ULSTM"}) {
    EXPECT_EQ(forward(*Sample{family, Form::half}.load(), x), forward(*Sample{family, Form::plain}.load(), x));
  }
}

// Weights of nothing: z is the bias. The blocks are g, i, f, o.
TEST(LSTM, TakesItsGatesInTheOrderGIFO) {
  const auto one = [](float g, float i, float f, float o) {
    const Matrix bias = (Matrix(4, 1) << g, i, f, o).finished();
    return layer_of("LSTM", Record("LSTM").matrix(Matrix::Zero(4, 1)).matrix(bias).matrix(Matrix::Zero(4, 1)).bytes());
  };
  const Matrix x = Matrix::Zero(1, 2);
  const float on = 100, off = -100;
  EXPECT_FLOAT_EQ(forward(*one(0.5f, on, on, on), x)(1), std::tanh(2 * std::tanh(0.5f)));  // adds up
  EXPECT_FLOAT_EQ(forward(*one(0.5f, on, off, on), x)(1), std::tanh(std::tanh(0.5f)));     // forgets
  EXPECT_EQ(forward(*one(0.5f, off, on, on), x)(1), 0);                                    // takes nothing in
  EXPECT_EQ(forward(*one(0.5f, on, on, off), x)(1), 0);                                    // puts nothing out
}

}  // namespace
}  // namespace meridane::test
