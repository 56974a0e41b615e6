#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "gmm_samples.h"
#include "meridane/error.h"
#include "meridane/framescore/nn.h"
#include "meridane/io/logging.h"

namespace meridane {
namespace {

using test::Bytes;
using test::dumped;
using test::kBinary;
using test::kXml;
using test::loaded;
using test::mixtures;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr char kDocument[] =
    "<GMM magic=\"MeGMMpar\"><mean>1\n-2</mean><mean>0.5 3</mean>"
    "<chol>2 0\n0.5 1</chol><chol>0.25 0\n-1 4</chol>"
    "<gaussians><gaussian mean=\"0\" chol=\"0\"/><gaussian mean=\"1\" chol=\"1\"/><gaussian mean=\"0\" chol=\"1\"/>"
    "</gaussians><mixture><entry gaussian=\"0\" logweight=\"-0.5\"/><entry gaussian=\"1\" logweight=\"-1\"/>"
    "</mixture><mixture><entry gaussian=\"2\" logweight=\"-2\"/><entry gaussian=\"0\" logweight=\"-0.25\"/>"
    "<entry gaussian=\"1\" logweight=\"-3\"/></mixture></GMM>";

/// The document with a part of it replaced.
std::string document(const std::string& part, const std::string& other) {
  std::string text = kDocument;
  return text.replace(text.find(part), part.size(), other);
}

void expect_refused(const std::string& bytes) {
  EXPECT_THAT([&] { loaded(bytes); },
              ThrowsMessage<InvalidFormat>(std::string("invalid format (expected \"GMM parameter\")")));
}

TEST(MultiGMMFile, HoldsItsPartsInOrder) {
  const MultiGMMParameter gmm = loaded(mixtures().str());
  EXPECT_EQ(gmm.type(), "GMM");
  EXPECT_EQ(gmm.dimension(), 2);
  ASSERT_EQ(gmm.means().size(), 2u);
  EXPECT_EQ(gmm.means()[1], test::vector({0.5f, 3}));
  ASSERT_EQ(gmm.chols().size(), 2u);
  EXPECT_EQ(gmm.chols()[1](1, 0), -1);
  ASSERT_EQ(gmm.gaussians().size(), 3u);
  EXPECT_EQ(gmm.gaussians()[2].mean, 0);
  EXPECT_EQ(gmm.gaussians()[2].chol, 1);
  ASSERT_EQ(gmm.mixtures().size(), 2u);
  ASSERT_EQ(gmm.mixtures()[1].size(), 3u);
  EXPECT_EQ(gmm.mixtures()[1][0].gaussian, 2);
  EXPECT_EQ(gmm.mixtures()[1][2].logweight, -3);
}

TEST(MultiGMMFile, IsWrittenAsItWasRead) {
  const std::string bytes = mixtures().str();
  EXPECT_EQ(dumped(loaded(bytes)), bytes);
  const MultiGMMParameter of_document = loaded(kDocument, kXml);
  EXPECT_EQ(dumped(of_document), bytes);
  const std::string written = dumped(of_document, kXml);
  EXPECT_THAT(written, HasSubstr("<?xml version=\"1.0\"?>"));
  EXPECT_EQ(dumped(loaded(written, kXml)), bytes);
}

TEST(MultiGMMFile, HasAllEntriesButGaussiansInItsRoot) {
  std::istringstream written(dumped(loaded(kDocument, kXml), kXml));
  const XmlFile file(written);
  std::vector<std::string> names;
  for (const char* name : {"mean", "chol", "gaussians", "mixture"}) {
    for (auto* child = find_child(*file.root(), name); child != nullptr; child = next_of_name(*child)) {
      names.push_back(element_name(*child));
    }
  }
  EXPECT_THAT(names, ElementsAre("mean", "mean", "chol", "chol", "gaussians", "mixture", "mixture"));
}

TEST(MultiGMMFile, TakesAMeanThatIsARow) {
  const Bytes column = Bytes().text("MeGMMpar").number(1).matrix(3, 1, {1, 2, 3}).number(0).number(0).number(0);
  const Bytes row = Bytes().text("MeGMMpar").number(1).matrix(1, 3, {1, 2, 3}).number(0).number(0).number(0);
  EXPECT_EQ(dumped(loaded(row.str())), column.str());
}

TEST(MultiGMMFile, IsFoundByItsMagic) {
  std::istringstream stream(mixtures().str());
  const NNParameter network;  // the table's contents come with it
  ASSERT_TRUE(FrameScoreParameterBuilder::has("MeGMMpar"));
  const auto parameter = FrameScoreParameterBuilder::build("MeGMMpar", stream, kBinary);
  EXPECT_EQ(parameter->type(), "GMM");
  std::ostringstream again;
  parameter->dump(again, "text/xml; charset=utf-8");
  std::istringstream document(again.str());
  MultiGMMParameter gmm;
  gmm.load(document, "text/xml; charset=utf-8");
  EXPECT_EQ(dumped(gmm), mixtures().str());
}

TEST(MultiGMMFile, LogsItsCounts) {
  const std::string bytes = mixtures().str();
  const Bytes none = Bytes().text("MeGMMpar").number(0).number(0).number(0).number(0);
  for (const auto& [text, mime, count] :
       {std::tuple{bytes, kBinary, "2 2 3 2"}, {kDocument, kXml, "2 2 3 2"}, {none.str(), kBinary, "0 0 0 0"}}) {
    std::vector<std::string> lines;
    set_log_sink([&](const std::string& line) { lines.push_back(line); });
    loaded(text, mime);
    set_log_sink([](const std::string&) {});
    const std::string numbers = count;
    EXPECT_THAT(lines, ElementsAre(EndsWith(")]  nmean = " + numbers.substr(0, 1)),
                                   EndsWith(")]  nchol = " + numbers.substr(2, 1)),
                                   EndsWith(")]  ngauss = " + numbers.substr(4, 1)),
                                   EndsWith(")]  nstate = " + numbers.substr(6, 1))));
  }
}

TEST(MultiGMMFile, RefusesAnotherMagic) {
  std::string bytes = mixtures().str();
  bytes[3] = 'X';
  expect_refused(bytes);
  EXPECT_THAT([] { loaded(document("MeGMMpar", "MeGMMsta"), kXml); },
              ThrowsMessage<InvalidFormat>(std::string("illegal magic number \"MeGMMsta\"")));
}

TEST(MultiGMMFile, RefusesPartsThatDoNotFit) {
  const auto file = [](const auto& mean, const auto& chol, std::vector<int> gaussian, const auto& mixture) {
    Bytes bytes;
    bytes.text("MeGMMpar").number(2).matrix(2, 1, {1, 2});
    mean(bytes);
    bytes.number(1);
    chol(bytes);
    bytes.number(1).number(gaussian[0]).number(gaussian[1]).number(1);
    mixture(bytes);
    return bytes.str();
  };
  using Part = void (*)(Bytes&);
  const Part mean = [](Bytes& b) { b.matrix(2, 1, {1, 2}); };
  const Part chol = [](Bytes& b) { b.matrix(2, 2, {1, 0, 0, 1}); };
  const Part mixture = [](Bytes& b) { b.matrix(1, 2, {0, 0}); };
  EXPECT_NO_THROW(loaded(file(mean, chol, {1, 0}, mixture)));
  expect_refused(file(Part([](Bytes& b) { b.matrix(3, 1, {1, 2, 3}); }), chol, {1, 0}, mixture));
  expect_refused(file(Part([](Bytes& b) { b.matrix(2, 1, {1, INFINITY}); }), chol, {1, 0}, mixture));
  for (const Part other : {Part([](Bytes& b) {
                             b.matrix(1, 2, {1, 0});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(2, 2, {1, 0, 0, 0});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(2, 2, {1, 0, 0, -1});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(2, 2, {1, 0.5f, 0, 1});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(2, 2, {1, 0, NAN, 1});
                           })}) {
    expect_refused(file(mean, other, {1, 0}, mixture));
  }
  for (const auto& gaussian : {std::vector{2, 0}, {-1, 0}, {0, 1}, {0, -1}}) {
    expect_refused(file(mean, chol, gaussian, mixture));
  }
  for (const Part other : {Part([](Bytes& b) { b.matrix(1, 1, {0}); }), Part([](Bytes& b) {
                             b.matrix(1, 2, {1, 0});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(1, 2, {-1, 0});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(1, 2, {0.5f, 0});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(1, 2, {NAN, 0});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(1, 2, {0, INFINITY});
                           }),
                           Part([](Bytes& b) {
                             b.matrix(1, 2, {0, NAN});
                           })}) {
    expect_refused(file(mean, chol, {1, 0}, other));
  }
}

TEST(MultiGMMFile, TakesNoMemoryForWhatIsNotThere) {
  const std::string bytes = mixtures().str();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(loaded(bytes.substr(0, length)), BaseRuntimeError) << length;
  }
  constexpr int kMost = std::numeric_limits<int>::max();
  EXPECT_THROW(loaded(Bytes().text("MeGMMpar").number(kMost).str()), BaseRuntimeError);
  EXPECT_THROW(loaded(Bytes().text("MeGMMpar").number(0).number(0).number(kMost).str()), BaseRuntimeError);
  EXPECT_THROW(loaded(Bytes().text("MeGMMpar").number(1).matrix(std::int64_t{1} << 62, 1, {}).str()), BaseRuntimeError);
  expect_refused(Bytes().text("MeGMMpar").number(-1).str());
}

TEST(MultiGMMFile, TellsWhatADocumentLacks) {
  const auto tells = [](const std::string& name) {
    return ThrowsMessage<MissingTagError>("couldn't find \"" + name + "\" tag");
  };
  EXPECT_THAT([] { loaded("<NN/>", kXml); }, tells("GMM"));
  EXPECT_THAT([] { loaded("", kXml); }, tells("GMM"));
  EXPECT_THAT([] { loaded("<GMM magic=\"MeGMMpar\"/>", kXml); }, tells("gaussians"));
  EXPECT_THAT([] { loaded("<GMM magic=\"MeGMMpar\"><gaussians/><mixture/></GMM>", kXml); }, tells("entry"));
  EXPECT_THAT([] { loaded(document(" logweight=\"-2\"", ""), kXml); },
              ThrowsMessage<MissingTagError>(std::string("\"logweight\" i mandatory in entry")));
  EXPECT_THAT([] { loaded("<GMM", kXml); }, ThrowsMessage<BaseRuntimeError>(std::string("Failed to parse xml")));
}

TEST(MultiGMMFile, ExpandsTheMatricesOfADocument) {
  EXPECT_EQ(dumped(loaded(document("<mean>0.5 3", "<mean>${var half = 0.5; half} ${6 * half}"), kXml)),
            mixtures().str());
}

TEST(MultiGMMFile, StaysAsItWasWhereALoadFails) {
  MultiGMMParameter gmm = loaded(mixtures().str());
  std::istringstream cut(mixtures().str().substr(0, 60));
  EXPECT_THROW(gmm.load(cut, kBinary), BaseRuntimeError);
  EXPECT_EQ(dumped(gmm), mixtures().str());
}

}  // namespace
}  // namespace meridane
