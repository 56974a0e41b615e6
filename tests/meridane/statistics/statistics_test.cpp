#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <rapidxml/rapidxml.hpp>

#include "gmm_samples.h"
#include "meridane/error.h"
#include "meridane/stat/multigmmstat.h"

namespace meridane {
namespace {

using test::Bytes;
using test::dumped;
using test::kXml;
using test::loaded;
using test::mixtures;
using test::vector;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr std::uint64_t kHuge = std::uint64_t{1} << 62;

template <class Stat>
Stat of_bytes(const std::string& bytes) {
  std::istringstream stream(bytes);
  Stat stat;
  stat.load_storage(stream);
  return stat;
}

template <class Stat>
std::string bytes_of(const Stat& stat) {
  std::ostringstream stream;
  stat.dump_storage(stream);
  return stream.str();
}

template <class Stat>
Stat of_element(const std::string& text) {
  std::istringstream stream(text);
  const XmlFile file(stream);
  Stat stat;
  stat.load_storage(*file.root());
  return stat;
}

template <class Stat>
std::string element_of(const Stat& stat) {
  XmlFile file;
  stat.dump_storage(append_element(file.document(), file.document(), "stat"), file.document());
  std::ostringstream stream;
  file.write(stream);
  return stream.str();
}

/// Each beginning of the bytes that isn't all of them is refused.
template <class Stat>
void expect_whole(const std::string& bytes) {
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(of_bytes<Stat>(bytes.substr(0, length)), BaseRuntimeError) << length;
  }
}

auto tells_invalid(const std::string& description) {
  return ThrowsMessage<InvalidFormat>("invalid format (expected \"" + description + "\")");
}

TEST(GaussianStat, SumsWeightedProducts) {
  GaussianStat stat;
  stat.accumulate(vector({1, 2}), 0.5);
  stat.accumulate(vector({-3, 4}), 2);
  EXPECT_EQ(stat.denom(), 2.5);
  EXPECT_EQ(stat.dimension(), 2);
  const DoubleMatrix expected = (DoubleMatrix(2, 3) << -5.5, 18.5, -23, 9, -23, 34).finished();
  EXPECT_EQ(stat.numer(), expected);
  const Eigen::Vector2d mean(1, -1);
  const Eigen::Vector2d a(0, 3), b(-4, 5);
  EXPECT_EQ(stat.scatter(mean), 0.5 * a * a.transpose() + 2 * b * b.transpose());
  EXPECT_THAT([&] { stat.accumulate(vector({1}), 1); },
              ThrowsMessage<BaseRuntimeError>(std::string("number of dimentions of input data does not accord")));
}

TEST(GaussianStat, TakesNothingOfWhatHasNoWeight) {
  GaussianStat stat;
  stat.accumulate(vector({1, 2}), 1);
  const std::string before = bytes_of(stat);
  stat.accumulate(vector({NAN, INFINITY}), 0);
  EXPECT_EQ(bytes_of(stat), before);
}

Bytes gaussian_record() {
  Bytes record;
  record.text("MeGaStat").number(2.5).number(std::int64_t{1}).number(std::int64_t{2}).number(-0.1).number(7.25);
  return record;
}

TEST(GaussianStat, HasARecordAndAnElement) {
  const std::string bytes = gaussian_record().str();
  const auto stat = of_bytes<GaussianStat>(bytes);
  EXPECT_EQ(stat.denom(), 2.5);
  EXPECT_EQ(stat.numer()(0, 0), -0.1);
  EXPECT_EQ(bytes_of(stat), bytes);
  expect_whole<GaussianStat>(bytes);
  EXPECT_EQ(bytes_of(of_element<GaussianStat>("<stat denom=\"2.5\"><numer>\n-0.1\t7.25\n</numer></stat>")), bytes);
  EXPECT_EQ(bytes_of(of_element<GaussianStat>(element_of(stat))), bytes);
  const GaussianStat none;
  EXPECT_EQ(bytes_of(of_bytes<GaussianStat>(bytes_of(none))), bytes_of(none));
  EXPECT_EQ(bytes_of(of_element<GaussianStat>(element_of(none))), bytes_of(none));
}

TEST(GaussianStat, RefusesWhatIsNone) {
  const auto record = [](double denom, std::int64_t rows, std::int64_t cols, std::initializer_list<double> values) {
    Bytes bytes;
    bytes.text("MeGaStat").number(denom).number(rows).number(cols);
    for (const double value : values) bytes.number(value);
    return bytes.str();
  };
  const auto message = tells_invalid("Gaussian statistics");
  EXPECT_THAT([] { of_bytes<GaussianStat>("MeGaStax"); }, message);
  EXPECT_THAT([&] { of_bytes<GaussianStat>(record(1, 1, 1, {1})); }, message);
  EXPECT_THAT([&] { of_bytes<GaussianStat>(record(1, 2, 1, {1, 1})); }, message);
  EXPECT_THAT([&] { of_bytes<GaussianStat>(record(1, 1, 2, {1, NAN})); }, message);
  EXPECT_THAT([&] { of_bytes<GaussianStat>(record(INFINITY, 1, 2, {1, 1})); }, message);
  EXPECT_THAT([&] { of_bytes<GaussianStat>(record(1, std::int64_t{1} << 62, 0, {})); }, message);
  EXPECT_THROW(of_bytes<GaussianStat>(record(1, std::int64_t{1} << 31, std::int64_t{1} << 31, {})), BaseRuntimeError);
  for (const auto& [rows, cols] : {std::pair{-1, 1}, {1, -1}, {0, -1}}) {
    EXPECT_THAT(([&record, rows = rows, cols = cols] { of_bytes<GaussianStat>(record(1, rows, cols, {})); }),
                ThrowsMessage<BaseRuntimeError>(std::string("Failed to read matrix binary")));
  }
  EXPECT_THAT([] { of_element<GaussianStat>("<stat><numer>1 2</numer></stat>"); },
              ThrowsMessage<MissingTagError>(std::string("\"denom\" i mandatory in stat")));
  EXPECT_THAT([] { of_element<GaussianStat>("<stat denom=\"1\"/>"); },
              ThrowsMessage<MissingTagError>(std::string("couldn't find \"numer\" tag")));
  EXPECT_THAT([] { of_element<GaussianStat>("<stat denom=\"1\"><numer>1 2\n3</numer></stat>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("Column-size error")));
  EXPECT_THAT([] { of_element<GaussianStat>("<stat denom=\"1\"><numer>1 2x</numer></stat>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("Invalid number \"2x\"")));
}

using Words = MultinomialStat<std::string>;
using Counter = MultinomialStat<std::int32_t, MultinomialConfig, std::hash<std::int32_t>, std::uint64_t>;

TEST(MultinomialStat, CountsKeys) {
  Words words;
  words.accumulate("a", 1);
  words.accumulate("b", 0.25);
  words.accumulate("a", 0.5);
  EXPECT_EQ(words.count("a"), 1.5);
  EXPECT_EQ(words.count("b"), 0.25);
  EXPECT_EQ(words.count("c"), 0);
  EXPECT_EQ(words.total(), 1.75);
  EXPECT_EQ(words.size(), 2u);
  Counter counter;
  counter.accumulate(-7, 3.9);
  EXPECT_EQ(counter.count(-7), 3u);
}

TEST(MultinomialStat, HasNoMoreClassesThanItIsToldOf) {
  Counter counter({.nclass = 2});
  counter.accumulate(5, 1);
  counter.accumulate(6, 1);
  counter.accumulate(5, 1);
  EXPECT_THAT([&] { counter.accumulate(7, 1); },
              ThrowsMessage<BaseRuntimeError>(std::string("Number of classes exceeds nclass")));
  EXPECT_EQ(counter.total(), 3u);
}

TEST(MultinomialStat, RefusesCountsThatAnIntegerCannotHold) {
  const auto message = ThrowsMessage<BaseRuntimeError>(std::string("Count is out of range"));
  Counter counter;
  for (const double weight : {double{NAN}, double{INFINITY}, -1., std::ldexp(1., 64)}) {
    EXPECT_THAT([&] { counter.accumulate(1, weight); }, message) << weight;
  }
  EXPECT_EQ(counter.size(), 0u);
  counter.accumulate(1, std::ldexp(1., 63));
  EXPECT_THAT([&] { counter.accumulate(2, std::ldexp(1., 63)); }, message);
  EXPECT_EQ(counter.size(), 1u);
  EXPECT_EQ(counter.total(), std::uint64_t{1} << 63);

  using Signed = MultinomialStat<std::int32_t, MultinomialConfig, std::hash<std::int32_t>, std::int64_t>;
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  Bytes most;
  most.text("MeMNStat").number(std::uint64_t{1}).number(std::int32_t{1}).number(kMost);
  EXPECT_EQ(of_bytes<Signed>(most.str()).total(), kMost);
  Bytes more;
  more.text("MeMNStat").number(std::uint64_t{2}).number(std::int32_t{1}).number(kMost);
  more.number(std::int32_t{2}).number(std::int64_t{1});
  EXPECT_THAT([&] { of_bytes<Signed>(more.str()); }, tells_invalid("multinomial statistics"));
}

TEST(MultinomialStat, HasTwoRecordsAndAnElement) {
  Bytes second;
  second.text("MeMNSta2").number(std::uint64_t{9}).number(std::uint64_t{2});
  second.number(std::uint64_t{1}).text("a").number(1.5).number(std::uint64_t{2}).text("bc").number(0.1);
  const auto words = of_bytes<Words>(second.str());
  EXPECT_EQ(words.count("bc"), 0.1);
  EXPECT_EQ(words.total(), 1.6);
  EXPECT_EQ(words.config().nclass, 9u);
  EXPECT_EQ(bytes_of(words), second.str());
  expect_whole<Words>(second.str());
  EXPECT_EQ(bytes_of(of_element<Words>(element_of(words))), second.str());
  EXPECT_EQ(bytes_of(of_element<Words>("<stat nclass=\"9\" total=\"1.6\"><count key=\"a\">1.5</count>"
                                       "<count key=\"bc\">0.1</count></stat>")),
            second.str());

  Bytes first;
  first.text("MeMNStat").number(std::uint64_t{1}).number(std::int32_t{-4}).number(kHuge + 1);
  const auto counter = of_bytes<Counter>(first.str());
  EXPECT_EQ(counter.count(-4), kHuge + 1);
  EXPECT_EQ(counter.config().nclass, 0u);
  EXPECT_EQ(bytes_of(of_element<Counter>(element_of(counter))), bytes_of(counter));
  expect_whole<Counter>(first.str());
}

TEST(MultinomialStat, RefusesWhatIsNone) {
  const auto record = [](std::uint64_t nclass, std::uint64_t size, std::initializer_list<int> keys, double count) {
    Bytes bytes;
    bytes.text("MeMNSta2").number(nclass).number(size);
    for (const int key : keys) bytes.number(key).number(count);
    return bytes.str();
  };
  using Stat = MultinomialStat<std::int32_t>;
  const auto message = tells_invalid("multinomial statistics");
  EXPECT_NO_THROW(of_bytes<Stat>(record(2, 2, {1, 2}, 1)));
  EXPECT_THAT([&] { of_bytes<Stat>("MeMNSta3"); }, message);
  EXPECT_THAT([&] { of_bytes<Stat>(record(1, 2, {1, 2}, 1)); }, message);
  EXPECT_THAT([&] { of_bytes<Stat>(record(2, 2, {1, 1}, 1)); }, message);
  EXPECT_THAT([&] { of_bytes<Stat>(record(2, 2, {1, 2}, NAN)); }, message);
  EXPECT_THROW(of_bytes<Stat>(record(0, kHuge, {1, 2}, 1)), BaseRuntimeError);
  EXPECT_THAT([] { of_element<Stat>("<stat total=\"1\"/>"); },
              ThrowsMessage<MissingTagError>(std::string("\"nclass\" i mandatory in stat")));
}

using Set = StatSet<std::int32_t, GaussianStat>;

TEST(StatSet, TellsAKeyThatIsNotThere) {
  Set set;
  set[3].accumulate(vector({2}), 1);
  EXPECT_EQ(set.get(3).denom(), 1);
  EXPECT_TRUE(set.has(3));
  EXPECT_FALSE(set.has(4));
  EXPECT_THAT([&] { set.get(4); }, ThrowsMessage<BaseRuntimeError>(std::string("Statistics is not found")));
}

TEST(StatSet, HasARecordAndAnElement) {
  Bytes record;
  record.text("MeSttArr").number(std::uint64_t{2});
  record.number(std::int32_t{-1}).text(gaussian_record().str()).number(std::int32_t{5}).text(gaussian_record().str());
  const Set set = of_bytes<Set>(record.str());
  EXPECT_EQ(set.all().size(), 2u);
  EXPECT_EQ(bytes_of(set), record.str());
  expect_whole<Set>(record.str());
  EXPECT_EQ(bytes_of(of_element<Set>(element_of(set))), record.str());
}

TEST(StatSet, RefusesWhatIsNone) {
  EXPECT_THAT([] { of_bytes<Set>("MeSttArx"); }, tells_invalid("Statistics array"));
  EXPECT_THROW(of_bytes<Set>(Bytes().text("MeSttArr").number(kHuge).str()), BaseRuntimeError);
  Bytes twice;
  twice.text("MeSttArr").number(std::uint64_t{2}).number(5).text(gaussian_record().str());
  twice.number(5).text(gaussian_record().str());
  EXPECT_THAT([&] { of_bytes<Set>(twice.str()); }, tells_invalid("Statistics array"));
}

TEST(MultiGMMStat, IsWrittenAsItWasRead) {
  const MultiGMMParameter gmm = loaded(mixtures().str());
  MultiGMMStat statistics;
  statistics.accumulate(gmm, vector({0.3f, 1}), 0);
  statistics.accumulate(gmm, vector({1, -1}), 1, 0.75);
  const std::string bytes = dumped(statistics);
  EXPECT_TRUE(bytes.starts_with("MeGMMsta"));
  const auto again = loaded<MultiGMMStat>(bytes);
  EXPECT_EQ(again.score(), statistics.score());
  EXPECT_EQ(again.total(), 1.75);
  EXPECT_EQ(again.mixtures().get(1).total(), statistics.mixtures().get(1).total());
  EXPECT_EQ(dumped(again), bytes);
  const std::string document = dumped(statistics, kXml);
  EXPECT_THAT(document, HasSubstr("<?xml version=\"1.0\"?>"));
  EXPECT_EQ(dumped(loaded<MultiGMMStat>(document, kXml)), bytes);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(loaded<MultiGMMStat>(bytes.substr(0, length)), BaseRuntimeError) << length;
  }
}

TEST(MultiGMMStat, OutlivesFramesThatAreNoNumbers) {
  const MultiGMMParameter gmm = loaded(mixtures().str());
  MultiGMMStat statistics;
  statistics.accumulate(gmm, vector({1, -1}), 0);
  const double score = statistics.score(), denom = statistics.gaussians().get(0).denom();
  statistics.accumulate(gmm, vector({NAN, 0}), 0, 0);
  EXPECT_EQ(statistics.score(), score);
  statistics.accumulate(gmm, vector({NAN, 0}), 0);
  statistics.accumulate(gmm, vector({0, -INFINITY}), 0);
  EXPECT_EQ(statistics.score(), -INFINITY);  // nothing gives them any density
  EXPECT_EQ(statistics.total(), 3);
  EXPECT_EQ(statistics.gaussians().get(0).denom(), denom);
  EXPECT_EQ(dumped(loaded<MultiGMMStat>(dumped(statistics))), dumped(statistics));
  EXPECT_EQ(dumped(loaded<MultiGMMStat>(dumped(statistics, kXml), kXml)), dumped(statistics));
}

TEST(MultiGMMStat, RefusesSumsThatAreNoNumbers) {
  const auto file = [](double score, double total) {
    const std::uint64_t none = 0;
    return Bytes()
        .text("MeGMMsta")
        .number(score)
        .number(total)
        .text("MeSttArr")
        .number(none)
        .text("MeSttArr")
        .number(none)
        .str();
  };
  EXPECT_EQ(loaded<MultiGMMStat>(file(-INFINITY, 1)).score(), -INFINITY);
  EXPECT_THAT([&] { loaded<MultiGMMStat>(file(NAN, 1)); }, tells_invalid("GMM statistics"));
  EXPECT_THAT([&] { loaded<MultiGMMStat>(file(0, INFINITY)); }, tells_invalid("GMM statistics"));
}

TEST(MultiGMMStat, TellsWhatIsMissing) {
  EXPECT_THAT([] { loaded<MultiGMMStat>("MeGMMpar"); }, tells_invalid("GMM statistics"));
  EXPECT_THAT([] { loaded<MultiGMMStat>("<GMM/>", kXml); },
              ThrowsMessage<MissingTagError>(std::string("couldn't find \"GMMStat\" tag")));
  EXPECT_THAT([] { loaded<MultiGMMStat>("<GMMStat magic=\"MeGMMpar\"/>", kXml); },
              ThrowsMessage<InvalidFormat>(std::string("illegal magic number \"MeGMMpar\"")));
  EXPECT_THAT([] { loaded<MultiGMMStat>("<GMMStat magic=\"MeGMMsta\" total=\"0\"/>", kXml); },
              ThrowsMessage<MissingTagError>(std::string("\"score\" i mandatory in GMMStat")));
  EXPECT_THAT([] { loaded<MultiGMMStat>("<GMMStat magic=\"MeGMMsta\" total=\"0\" score=\"0\"/>", kXml); },
              ThrowsMessage<MissingTagError>(std::string("couldn't find \"gaussians\" tag")));
}

}  // namespace
}  // namespace meridane
