#include <limits>

#include "bidirectional_reference.h"
#include "meridane/error.h"
#include "meridane/framescore/nn.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index N = 4, D = 3;
constexpr std::int32_t kConcat = 0, kSum = 1;

struct Sample {
  Form form = Form::plain;
  std::int32_t chunk = 3, future = 2, store = 1, format = kConcat;

  std::string type() const { return prefix_of(form) + "LCBLSTM"; }
  BothDirections parameters() const {
    BothDirections p(21, N, D);
    p.forward.in_codes = p.backward.in_codes = form == Form::codes;
    return p;
  }
  std::string record() const {
    return bidirectional_record("LCBLSTM", form, parameters(), {chunk, future, store, format});
  }
  std::shared_ptr<NNLayer> load() const { return layer_in(form, type(), record()); }

  Eigen::Index unit() const { return chunk + future; }
  /// The whole stream: chunks of that many frames, the backward direction from the end of what is seen behind each.
  Exact expected(const Matrix& frames) const {
    const BothDirections p = parameters();
    const Exact x = frames.cast<double>();
    const Eigen::Index step = store != 0 ? chunk : unit();
    ExactMemory memory(N);
    const Exact along = run(p.forward, x, memory);
    Exact back(N, x.cols());
    for (Eigen::Index t = 0; t < x.cols(); t += step) {
      const Eigen::Index seen = std::min(unit(), x.cols() - t), used = std::min(step, seen);
      ExactMemory fresh(N);
      back.middleCols(t, used) = run_reversed(p.backward, x.middleCols(t, seen), fresh).leftCols(used);
    }
    return joined(along, back, format == kSum);
  }
};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.type(); }

Matrix flushed(const NNLayer& layer, const std::shared_ptr<NNLayerState>& state) {
  return step(layer, Matrix(0, 0), state);
}

/// In chunks, and what the empty call at the end serves.
Matrix streamed(const NNLayer& layer, const Matrix& x, Eigen::Index chunk) {
  const auto state = layer.create_state();
  const Matrix before = in_chunks(layer, x, chunk, state), rest = flushed(layer, state);
  Matrix y(before.rows(), before.cols() + rest.cols());
  y << before, rest;
  EXPECT_EQ(flushed(layer, state).cols(), 0);
  return y;
}

class LCBLSTMs : public testing::TestWithParam<Sample> {
 protected:
  const std::shared_ptr<NNLayer> layer_ = GetParam().load();
};

std::vector<Sample> samples() {
  std::vector<Sample> all;
  for (const Form form : {Form::plain, Form::half, Form::codes}) {
    for (const std::int32_t store : {0, 1}) {
      all.push_back({.form = form, .store = store});
      all.push_back({.form = form, .store = store, .format = kSum});
    }
  }
  all.push_back({.chunk = 2, .future = 5});
  all.push_back({.chunk = 1, .future = 0});
  all.push_back({.chunk = 50, .future = 3});
  return all;
}

INSTANTIATE_TEST_SUITE_P(Forms, LCBLSTMs, testing::ValuesIn(samples()), [](const auto& each) {
  const Sample& s = each.param;
  return s.type() + "Of" + std::to_string(s.chunk) + "And" + std::to_string(s.future) +
         (s.format == kSum ? "Sum" : "Concat") + (s.store != 0 ? "Stored" : "");
});

TEST_P(LCBLSTMs, ServeAWholeStreamInOneCall) {
  for (const Eigen::Index frames : {1, 3, 5, 6, 7, 8, 9, 64, 113}) {
    const Matrix x = Dice(1).matrix(D, frames, 2);
    EXPECT_LT(distance(forward(*layer_, x), GetParam().expected(x)), 2 * kRounding) << frames;
    const auto state = layer_->create_state();
    const Matrix y = step(*layer_, x, state);
    if (frames > GetParam().unit()) {
      EXPECT_EQ(y, forward(*layer_, x)) << frames;
      EXPECT_EQ(flushed(*layer_, state).cols(), 0) << frames;
    }
  }
}

TEST_P(LCBLSTMs, GiveInChunksAndAtTheFlushExactlyWhatOneCallGives) {
  const Matrix x = Dice(2).matrix(D, 101, 2);
  const Matrix whole = forward(*layer_, x);
  for (const Eigen::Index chunk : {1, 2, 3, 4, 5, 7, 50, 53, 101}) {
    const bool uncut = chunk <= GetParam().unit() || chunk >= x.cols();
    if (GetParam().store != 0 ? uncut : chunk % GetParam().unit() == 0) {
      EXPECT_EQ(streamed(*layer_, x, chunk), whole) << chunk;
    }
  }
}

TEST_P(LCBLSTMs, PutOutAChunkAsSoonAsItsUnitIsThere) {
  const Eigen::Index unit = GetParam().unit();
  const auto state = layer_->create_state();
  const Matrix x = Dice(3).matrix(D, unit);
  if (GetParam().store == 0) {
    EXPECT_EQ(step(*layer_, x, state).cols(), unit);
    return;
  }
  EXPECT_EQ(step(*layer_, x.leftCols(unit - 1), state).cols(), 0);
  EXPECT_EQ(step(*layer_, x.rightCols(1), state).cols(), GetParam().chunk);
  EXPECT_EQ(step(*layer_, Dice(4).matrix(D, GetParam().chunk), state).cols(), GetParam().chunk);
  EXPECT_EQ(flushed(*layer_, state).cols(), GetParam().future);
}

TEST_P(LCBLSTMs, GoOnAfterAFlushWithTheForwardStateAlone) {
  Dice dice(5);
  const Matrix first = dice.matrix(D, 60), second = dice.matrix(D, 60);
  const auto state = layer_->create_state();
  step(*layer_, first, state);
  const BothDirections p = GetParam().parameters();
  ExactMemory memory(N);
  run(p.forward, first.cast<double>(), memory);
  const Exact along = run(p.forward, second.cast<double>(), memory);
  Exact expected = GetParam().expected(second);
  ExactMemory fresh(N);
  const Exact from_zeros = run(p.forward, second.cast<double>(), fresh);
  expected.topRows(N) += along - from_zeros;
  EXPECT_LT(distance(step(*layer_, second, state), expected), 2 * kRounding);
}

TEST_P(LCBLSTMs, HaveStatesWhoseClonesHoldTheWaitingFramesToo) {
  Dice dice(6);
  const Eigen::Index frames = std::max<Eigen::Index>(GetParam().unit() - 1, 1);
  const Matrix first = dice.matrix(D, frames), second = dice.matrix(D, frames), third = dice.matrix(D, frames);
  const auto state = layer_->create_state();
  step(*layer_, first, state);
  const auto clone = state->clone();
  const Matrix here = step(*layer_, second, state), rest_here = flushed(*layer_, state);
  step(*layer_, third, state);
  EXPECT_EQ(step(*layer_, second, clone), here);
  EXPECT_EQ(flushed(*layer_, clone), rest_here);
}

TEST_P(LCBLSTMs, GiveAnEmptyMinibatchForNone) {
  const auto state = layer_->create_state();
  const Matrix none = flushed(*layer_, state);
  EXPECT_EQ(none.cols(), 0);
  EXPECT_EQ(none.rows(), GetParam().format == kSum ? N : 2 * N);
  EXPECT_EQ(forward(*layer_, Matrix(0, 0)).cols(), 0);
}

TEST_P(LCBLSTMs, MayChangeTheNumberOfFrames) { EXPECT_TRUE(layer_->is_variable_length()); }

constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

TEST(LCBLSTM, StoresItsBufferForAnyNumberThatIsNotZero) {
  for (const std::int32_t store : {2, -1, 256}) {
    EXPECT_EQ(binary_of(*Sample{.store = store}.load()), Sample{.store = 1}.record()) << store;
  }
}

TEST(LCBLSTM, RefusesSizesThatAreNone) {
  for (const std::int32_t chunk : {0, -1, kLeast}) {
    EXPECT_EQ(failure_of([&] { Sample{.chunk = chunk}.load(); }), "Incorrect \"chunk_size\" for \"LCBLSTM\"");
  }
  for (const std::int32_t future : {-1, kLeast}) {
    EXPECT_EQ(failure_of([&] { Sample{.future = future}.load(); }), "Incorrect \"future_chunk_size\" for \"LCBLSTM\"");
  }
  EXPECT_EQ(failure_of([&] { Sample{.format = 2}.load(); }), "Invalid value for attribute output_format.");
}

TEST(LCBLSTM, OfTheGreatestSizesWaitsForTheEnd) {
  const Sample sample{.chunk = kMost, .future = kMost};
  const Matrix x = Dice(7).matrix(D, 20);
  const auto layer = sample.load();
  EXPECT_EQ(streamed(*layer, x, 6), forward(*layer, x));
}

TEST(LCBLSTM, ReadsItsAttributes) {
  const std::string document = xml_of(*Sample{}.load());
  const auto with = [&](const std::string& attribute, const std::string& instead) {
    const std::size_t at = document.find(" " + attribute + "=\"");
    std::string text = document;
    return text.replace(at, text.find('"', text.find('"', at) + 1) + 1 - at, instead);
  };
  const std::string stored = binary_of(*layer_of_xml("LCBLSTM", document));
  const std::string not_stored = Sample{.store = 0}.record();
  for (const char* word : {"on", "true", "1"}) {
    const std::string text = with("store_buffer", std::string(" store_buffer='") + word + "'");
    EXPECT_EQ(binary_of(*layer_of_xml("LCBLSTM", text)), stored) << word;
  }
  for (const char* attribute : {"", " store_buffer='off'", " store_buffer='True'", " store_buffer='0'"}) {
    EXPECT_EQ(binary_of(*layer_of_xml("LCBLSTM", with("store_buffer", attribute))), not_stored) << attribute;
  }
  EXPECT_EQ(failure_of<MissingTagError>([&] { layer_of_xml("LCBLSTM", with("chunk_size", "")); }),
            "\"chunk_size\" i mandatory in layer");
  EXPECT_EQ(failure_of<MissingTagError>([&] { layer_of_xml("LCBLSTM", with("future_chunk_size", "")); }),
            "\"future_chunk_size\" i mandatory in layer");
  EXPECT_EQ(failure_of([&] { layer_of_xml("LCBLSTM", with("chunk_size", " chunk_size='-2'")); }),
            "Incorrect \"chunk_size\" for \"LCBLSTM\"");
  EXPECT_EQ(failure_of([&] { layer_of_xml("LCBLSTM", with("output_format", " output_format='max'")); }),
            "Invalid value for attribute output_format.");
}

/// Two of them with a dense layer between, so that what comes out of the first isn't what goes into the second.
std::shared_ptr<NNParameter> stacked() {
  const auto named = [](const char* id, const char* type) { return Record().text(id).text(type).bytes(); };
  const Record dense = Record("FullyConnected")
                           .matrix(Matrix::Constant(D, 2 * N, 0.125f))
                           .matrix((Matrix(D, 1) << 0.5f, 0, -1).finished());
  std::string text = Record("MerNNpar").number<std::uint64_t>(D).number<std::uint64_t>(2 * N).bytes() +
                     Record().number<std::uint64_t>(3).number<std::uint64_t>(4).bytes() + named("first", "LCBLSTM") +
                     Sample{}.record() + named("dense", "FullyConnected") + dense.bytes() + named("second", "LCBLSTM") +
                     Sample{.chunk = 4, .future = 1}.record();
  const char* const path[] = {"_input", "first", "dense", "second", "_output"};
  for (int i = 0; i < 4; ++i) text += named(path[i], path[i + 1]);
  std::istringstream stream(text);
  auto network = std::make_shared<NNParameter>();
  network->load(stream, "application/meridane-bin");
  return network;
}

Matrix fed(NNScorer& scorer, const Matrix& x) {
  scorer.set_input(minibatch(x));
  return scorer.output();
}

TEST(LCBLSTM, AreAllFlushedByOneEmptyCallOfTheScorer) {
  const Matrix x = Dice(8).matrix(D, 47);
  const auto network = stacked();
  const auto first = Sample{}.load(), second = Sample{.chunk = 4, .future = 1}.load();
  Matrix between = Matrix::Constant(D, 2 * N, 0.125f) * forward(*first, x);
  between.colwise() += (Vector(D) << 0.5f, 0, -1).finished();
  const Matrix expected = forward(*second, between);
  for (const Eigen::Index chunk : {1, 2, 3, 5}) {
    const auto scorer = std::dynamic_pointer_cast<NNScorer>(network->create_scorer());
    Matrix y(2 * N, 0);
    const auto append = [&y](const Matrix& part) {
      Matrix longer(y.rows(), y.cols() + part.cols());
      longer << y, part;
      y = longer;
    };
    for (Eigen::Index t = 0; t < x.cols(); t += chunk) {
      append(fed(*scorer, x.middleCols(t, std::min(chunk, x.cols() - t))));
    }
    scorer->set_input(std::shared_ptr<FrameSequence>());
    append(scorer->output());
    EXPECT_EQ(y.cols(), x.cols()) << chunk;
    // With 5 the first one gives 6 frames at times, more than a unit of the second, which ends there.
    if (chunk < 5) {
      EXPECT_LT(distance(y, expected.cast<double>()), 2 * kRounding) << chunk;
    }
  }
}

// No frames from a layer that waits are no end; the scorer says where that is.
TEST(LCBLSTM, TellsWaitingFromTheEnd) {
  const auto layer = Sample{}.load();
  const auto state = layer->create_state();
  const Matrix x = Dice(10).matrix(D, 4);
  EXPECT_EQ(step(*layer, x, state).cols(), 0);
  EXPECT_EQ(step(*layer, Matrix(D, 0), state).cols(), 0);
  LayerInputs last = {minibatch(Matrix(D, 0))};
  last.set_last(true);
  EXPECT_EQ(layer->forward(last, state)->content(), forward(*layer, x));
  const auto anew = layer->create_state();
  step(*layer, x.leftCols(2), anew);
  last = {minibatch(x.rightCols(2))};
  last.set_last(true);
  EXPECT_EQ(layer->forward(last, anew)->content(), forward(*layer, x));
}

TEST(LCBLSTM, StartsANewStreamAtAReset) {
  const auto network = stacked();
  const auto scorer = std::dynamic_pointer_cast<NNScorer>(network->create_scorer());
  const Matrix x = Dice(9).matrix(D, 5);
  const Matrix first = fed(*scorer, x);
  fed(*scorer, x);
  scorer->reset();
  EXPECT_EQ(fed(*scorer, x), first);
}

}  // namespace
}  // namespace meridane::test
