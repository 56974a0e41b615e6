#include "../support/whole_names.h"
#include "layer_record.h"
#include "meridane/io/logging.h"

namespace meridane::test {
namespace {

/// Keeps what is logged.
class PrintLayer : public testing::Test {
 protected:
  PrintLayer() {
    set_log_sink([this](const std::string& line) { lines_.push_back(line); });
  }
  ~PrintLayer() override {
    log_threshold() = kLogInfo;
    set_log_sink([](const std::string& line) { std::clog << line << '\n'; });
  }

  static std::shared_ptr<NNLayer> named(const std::string& name) {
    return layer_of("Print", Record("Print").text(name).bytes());
  }

  std::vector<std::string> lines_;
};

TEST_F(PrintLayer, HandsItsInputOn) {
  const MinibatchPtr input = minibatch(Dice(1).matrix(3, 2));
  const MinibatchPtr output = named("")->forward({input});
  EXPECT_EQ(output->content(), input->content());
  EXPECT_EQ(output->shape(), input->shape());
}

TEST_F(PrintLayer, LogsItsInputBehindItsNameRowByRow) {
  const auto layer = named("hidden");
  lines_.clear();
  layer->forward({minibatch((Matrix(2, 3) << 1, 2, 3, -0.5f, 0.25f, 7).finished())});
  ASSERT_EQ(lines_.size(), 1u);
  const std::string& line = lines_[0];
  const std::string label = "]  Layer:hidden\n";
  const std::size_t at = line.find(label);
  ASSERT_NE(at, line.npos) << line;
  EXPECT_THAT(line.substr(0, at), testing::MatchesRegex(R"([0-9]{4}/[0-9]{2}/[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2})"
                                                        R"(\[print\.cpp:[0-9]+ \(.*forward.*\))"));
  if (kTellsWholeNames) {
    EXPECT_THAT(line.substr(0, at), testing::HasSubstr("PrintLayer::forward"));
  }
  std::istringstream rows(line.substr(at + label.size()));
  std::vector<double> values;
  for (double value; rows >> value;) values.push_back(value);
  EXPECT_EQ(values, (std::vector<double>{1, 2, 3, -0.5, 0.25, 7}));
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 2);
}

TEST_F(PrintLayer, LogsWithoutAName) {
  const auto layer = layer_of_xml("Print", "<layer type='Print' id='a'/>");
  lines_.clear();
  layer->forward({minibatch(Matrix::Ones(1, 1))});
  ASSERT_EQ(lines_.size(), 1u);
  EXPECT_THAT(lines_[0], testing::HasSubstr("]  Layer:\n1"));
}

TEST_F(PrintLayer, LogsAnInputWithoutFrames) {
  const auto layer = named("flush");
  lines_.clear();
  layer->forward({minibatch(Matrix(0, 0))});
  ASSERT_EQ(lines_.size(), 1u);
  EXPECT_THAT(lines_[0], testing::EndsWith("]  Layer:flush\n"));
}

TEST_F(PrintLayer, LogsNothingBelowTheThreshold) {
  const auto layer = named("hidden");
  lines_.clear();
  log_threshold() = kLogInfo + 1;
  layer->forward({minibatch(Matrix::Ones(1, 1))});
  EXPECT_TRUE(lines_.empty());
}

TEST_F(PrintLayer, ReadsItsNameFromItsDocument) {
  const auto layer =
      layer_of_xml("Print", "<layer type='Print' id='a' layer_name='a &lt;b&gt; &quot;c&quot; &amp; d'/>");
  EXPECT_EQ(binary_of(*layer), Record("Print").text("a <b> \"c\" & d").bytes());
}

TEST_F(PrintLayer, WritesNoNameIfItHasNone) {
  EXPECT_THAT(xml_of(*named("")), testing::Not(testing::HasSubstr("layer_name")));
  EXPECT_THAT(xml_of(*named("x")), testing::HasSubstr("layer_name=\"x\""));
}

TEST_F(PrintLayer, RefusesANameThatIsLongerThanItsRecord) {
  for (const std::uint64_t length : {std::uint64_t{5}, std::uint64_t{1} << 40, ~std::uint64_t{0}}) {
    EXPECT_THROW(layer_of("Print", Record("Print").number(length).bytes() + "name"), std::exception) << length;
  }
}

}  // namespace
}  // namespace meridane::test
