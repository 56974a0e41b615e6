// The document form of a network: its elements, its messages and their order, and layers in files of their own.

#include <gtest/gtest.h>

#include <bit>

#include "../../support/temporary_folder.h"
#include "../support/network_samples.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

constexpr const char* kXml = "text/xml";

std::string failure(const std::string& document) { return loading_failure(document, kXml); }

const std::string kLayers = R"(<layers><layer type="ReLU" id="a"/><layer type="Tanh" id="b"/></layers>)";
const std::string kLinks = R"(<links><link from_id="_input" to_id="a"/><link from_id="a" to_id="_output"/></links>)";

TEST(ADocument, HoldsWhatTheBinaryFormHolds) {
  const auto network = network_of(
      "<?xml version=\"1.0\"?>\n<!-- a network -->\n<NN magic=\"MerNNpar\" ninput=\"2\" "
      "noutput=\"18446744073709551615\">\n"
      "<layers><!-- first --><layer type=\"FullyConnected\" id=\"dense &lt;1&gt;\"><weight> 1 2\n 3,4 </weight>"
      "<bias>5\n6</bias></layer>\n<layer id=\"p\" type=\"PReLU\"/></layers>\n"
      "<links><link to_id=\"dense &lt;1&gt;\" from_id=\"_input\"/>\n<link from_id=\"p\" to_id=\"_output\"/>"
      "<link from_id=\"dense &lt;1&gt;\" to_id=\"p\"/></links></NN>",
      kXml);
  const std::string expected = network_bytes(
      2, ~std::uint64_t{0},
      {dense_bytes("dense <1>", {1.0f, 2.0f, 3.0f, 4.0f}, {5.0f, 6.0f}), numbers_layer("p", "PReLU", {0.25f})},
      {{"_input", "dense <1>"}, {"p", "_output"}, {"dense <1>", "p"}});
  EXPECT_EQ(dump_of(*network), expected);
}

TEST(ADocument, IsWrittenInTheSameShape) {
  const std::string bytes =
      network_bytes(1, 1, {numbers_layer("a<&\"'", "PReLU", {0.1f}), dense_bytes("d", {1.5f}, {-2.0f})},
                    {{"_input", "a<&\"'"}, {"a<&\"'", "d"}, {"d", "_output"}});
  const std::string document = dump_of(*network_of(bytes), kXml);
  EXPECT_EQ(document.find("<?xml version=\"1.0\"?>"), 0u);
  for (const char* part :
       {"<NN magic=\"MerNNpar\" ninput=\"1\" noutput=\"1\">", "<layers>", "type=\"PReLU\"", "a=\"0.1\"", "id=\"d\"",
        "<weight>\n1.5\n</weight>", "<bias>\n-2\n</bias>", "<links>", "<link from_id=\"d\" to_id=\"_output\"/>"}) {
    EXPECT_NE(document.find(part), std::string::npos) << part << " in\n" << document;
  }
  EXPECT_EQ(document.find("ref"), std::string::npos);
  EXPECT_EQ(dump_of(*network_of(document, kXml)), bytes);
}

/// The binary form doesn't care about names; what couldn't be loaded again is not written.
TEST(ADocument, IsNotWrittenOfWhatItCannotHold) {
  const auto failure_of_dump = [](const std::vector<std::string>& layers, const Links& links) {
    const std::string bytes = network_bytes(1, 1, layers, links);
    const auto network = network_of(bytes);
    EXPECT_EQ(dump_of(*network), bytes);
    return failure_of([&] { dump_of(*network, kXml); });
  };
  const Links way = {{"_input", "a"}, {"a", "_output"}};
  const auto and_link = [&](const std::string& from, const std::string& to) {
    Links links = way;
    links.emplace_back(from, to);
    return links;
  };
  EXPECT_EQ(failure_of_dump({}, {{"_input", "_output"}}), "A document can't hold a network without layers");
  EXPECT_EQ(failure_of_dump({relu_bytes("a"), relu_bytes("")}, way), "") << "an empty id, but no link";
  EXPECT_EQ(failure_of_dump({relu_bytes("a"), relu_bytes("")}, and_link("", "a")), "attribute \"from_id\" is empty");
  EXPECT_EQ(failure_of_dump({relu_bytes("a"), relu_bytes("")}, and_link("a", "")), "attribute \"to_id\" is empty");
  EXPECT_EQ(failure_of_dump({relu_bytes("a"), relu_bytes("_output")}, way), "") << "the name of no node, but no link";
  EXPECT_EQ(failure_of_dump({relu_bytes("a"), relu_bytes("_output")}, and_link("_output", "a")),
            "couldn't set \"_output\" to attribute \"from_id\"");
  EXPECT_EQ(failure_of_dump({relu_bytes("a"), relu_bytes("b")}, and_link("b", "_input")),
            "couldn't set \"_input\" to attribute \"to_id\"");
  EXPECT_EQ(failure_of_dump({relu_bytes("a"), relu_bytes(std::string("b\0c", 3))}, way),
            "A document can't hold a character 0");
}

TEST(ADocument, KeepsOfANaNItsSign) {
  const auto with = [](std::uint32_t bits) {
    return network_bytes(1, 1, {numbers_layer("a", "PReLU", {std::bit_cast<float>(bits)})},
                         {{"_input", "a"}, {"a", "_output"}});
  };
  for (const std::uint32_t sign : {0u, 0x80000000u}) {
    for (const std::uint32_t nan : {0x7f800001u, 0x7fc00000u, 0x7fffffffu}) {
      EXPECT_EQ(dump_of(*network_of(dump_of(*network_of(with(sign | nan)), kXml), kXml)), with(sign | 0x7fc00000u));
    }
  }
}

TEST(ADocument, KeepsEachFloat) {
  const std::vector<float> values = {
      0.1f,  1.0f / 3,    1e-45f, 1.17549435e-38f, 3.40282347e38f,
      -0.0f, 16777216.0f, -1e20f, 0x1p-126f,       std::numeric_limits<float>::infinity()};
  const std::string bytes = network_bytes(1, 1, {dense_bytes("d", values, std::vector<float>(values.size(), 0.7f))},
                                          {{"_input", "d"}, {"d", "_output"}});
  EXPECT_EQ(dump_of(*network_of(dump_of(*network_of(bytes), kXml), kXml)), bytes);
}

/// The binary form can have one in a name, a reference can stand for one; what would be written couldn't be read.
TEST(ADocument, HoldsNoCharacterZero) {
  const std::string id("a\0b", 3);
  const auto binary = network_of(network_bytes(1, 1, {relu_bytes(id)}, {{"_input", id}, {id, "_output"}}));
  EXPECT_EQ(failure_of([&] { dump_of(*binary, kXml); }), "A document can't hold a character 0");
  const auto document = network_of(document_of("<layers><layer type='ReLU' id='a&#0;b'/></layers>",
                                               "<links><link from_id='_input' to_id='a&#0;b'/>"
                                               "<link from_id='a&#0;b' to_id='_output'/></links>"),
                                   kXml);
  EXPECT_EQ(failure_of([&] { dump_of(*document, kXml); }), "A document can't hold a character 0");
  EXPECT_EQ(dump_of(*document), dump_of(*binary));
}

TEST(ADocument, ThatIsNoneIsNotParsed) {
  for (const char* text :
       {"<NN", "<NN><layers></NN>", "text", "<NN magic=MerNNpar/>", "<NN magic='MerNNpar>", "<a></b>", "MerNNpar"}) {
    EXPECT_EQ(failure(text), "Failed to parse xml") << text;
  }
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  EXPECT_EQ(failure(deep), "Failed to parse xml");
}

TEST(ADocument, HasTheRightRoot) {
  for (const char* text : {"", " \n", "<!-- nothing -->", "<nn/>", "<layers/>", "<N/>", "<NNN/>"}) {
    EXPECT_EQ(failure(text), "couldn't find \"NN\" tag") << text;
  }
  EXPECT_EQ(failure(document_of("", "", R"(magic="MerNNpas" ninput="1" noutput="1")")),
            "illegal magic number \"MerNNpas\"");
  EXPECT_EQ(failure(document_of("", "", R"(magic="" ninput="x")")), "illegal magic number \"\"");
}

TEST(ADocument, NamesItsSizes) {
  EXPECT_EQ(failure(document_of("", "", R"(ninput="1" noutput="1")")), "\"magic\" i mandatory in NN");
  EXPECT_EQ(failure(document_of("", "", R"(magic="MerNNpar" noutput="1")")), "\"ninput\" i mandatory in NN");
  EXPECT_EQ(failure(document_of("", "", R"(magic="MerNNpar" ninput="1")")), "\"noutput\" i mandatory in NN");
  for (const char* number : {"", "x", "-1", "1.5", "1 ", "18446744073709551616"}) {
    EXPECT_EQ(failure(document_of("", "", "magic=\"MerNNpar\" ninput=\"" + std::string(number) + "\" noutput=\"1\"")),
              "Invalid number \"" + std::string(number) + "\"");
  }
}

TEST(ADocument, HasLayersAndLinks) {
  EXPECT_EQ(failure(document_of("", kLinks)), "couldn't find \"layers\" tag");
  EXPECT_EQ(failure(document_of("<layers/>", kLinks)), "couldn't find \"layer\" tag");
  EXPECT_EQ(failure(document_of("<layers>text<Layer type=\"ReLU\" id=\"a\"/></layers>", kLinks)),
            "couldn't find \"layer\" tag");
  EXPECT_EQ(failure(document_of(kLayers, "")), "couldn't find \"links\" tag");
  EXPECT_EQ(failure(document_of(kLayers, "<links/>")), "couldn't find \"link\" tag");
  EXPECT_EQ(failure(document_of("", "")), "couldn't find \"layers\" tag") << "looked for first";
  EXPECT_EQ(failure(document_of("<layers><layer/></layers>", "")), "\"type\" i mandatory in layer")
      << "before the links";
  EXPECT_EQ(failure(document_of(kLayers, kLinks)), "");
}

TEST(ALayerElement, NamesItsTypeAndItsId) {
  const auto layer = [](const std::string& element) {
    return failure(document_of("<layers>" + element + "</layers>", kLinks));
  };
  EXPECT_EQ(layer("<layer id=\"a\"/>"), "\"type\" i mandatory in layer");
  EXPECT_EQ(layer("<layer type=\"ReLU\"/>"), "\"id\" i mandatory in layer");
  EXPECT_EQ(layer("<layer type=\"Nothing\" id=\"a\"/>"), "Nothing is not registered in the builder");
  EXPECT_EQ(layer("<layer type=\"QuantizedFullyConnected\" id=\"a\"/>"),
            "QuantizedFullyConnected is not registered in the builder");
  EXPECT_EQ(layer("<layer type=\"ReLU\" id=\"a\"/><layer type=\"ReLU\" id=\"a\"/>"), "Id [a] is duplicated");
  EXPECT_EQ(layer("<layer type=\"ReLU\" id=\"_input\"/>"), "Id [_input] is duplicated");
  EXPECT_EQ(layer("<layer type=\"FullyConnected\" id=\"a\"/>"),
            "\"<weight>\" not found in a layer of type \"FullyConnected\" ");
  EXPECT_EQ(layer("<layer type=\"Bias\" id=\"a\"><bias></bias></layer>"), "Empty matrix (ncol == 0)");
  EXPECT_EQ(layer("<layer type=\"Bias\" id=\"a\"><bias/></layer>"), "Empty matrix (ncol == 0)");
}

TEST(ALink, IsCheckedInOrder) {
  const auto link = [](const char* from, const char* to) {
    return failure(relu_document("<link from_id=\"" + std::string(from) + "\" to_id=\"" + std::string(to) + "\"/>"));
  };
  EXPECT_EQ(failure(relu_document("<link from_id=\"\"/>")), "attribute \"from_id\" is empty");
  EXPECT_EQ(link("", ""), "attribute \"from_id\" is empty");
  EXPECT_EQ(link("", "_input"), "attribute \"from_id\" is empty");
  EXPECT_EQ(link("_output", ""), "couldn't set \"_output\" to attribute \"from_id\"");
  EXPECT_EQ(link("_output", "_input"), "couldn't set \"_output\" to attribute \"from_id\"");
  EXPECT_EQ(link("_output", "_output"), "couldn't set \"_output\" to attribute \"from_id\"");
  EXPECT_EQ(link("nobody", ""), "attribute \"to_id\" is empty");
  EXPECT_EQ(link("nobody", "_input"), "couldn't set \"_input\" to attribute \"to_id\"");
  EXPECT_EQ(link("nobody", "_output"), "Invalid node id [nobody]");
  EXPECT_EQ(link("nobody", "a"), "Invalid node id [nobody]");
  EXPECT_EQ(link("a", "nobody"), "Invalid node id [nobody]");
  EXPECT_EQ(failure(relu_document("<link to_id=\"a\"/>")), "\"from_id\" i mandatory in link");
  EXPECT_EQ(failure(relu_document("<link from_id=\"a\"/>")), "\"to_id\" i mandatory in link");
}

TEST(ALink, ToTheOutputIsTheEnd) {
  const std::string in = R"(<link from_id="_input" to_id="a"/>)";
  const std::string out = R"(<link from_id="a" to_id="_output"/>)";
  EXPECT_EQ(failure(relu_document(in + out)), "");
  EXPECT_EQ(failure(relu_document(in + out + out)), "duplicate attribute \"_output\"");
  EXPECT_EQ(failure(relu_document(in + out + R"(<link from_id="nobody" to_id="_output"/>)")),
            "duplicate attribute \"_output\"");
  EXPECT_EQ(failure(relu_document(in)), "Starting or terminal node has not been set");
  EXPECT_EQ(failure(relu_document(out)), "Path to the terminal node does not exist");
  EXPECT_EQ(failure(relu_document(in + R"(<link from_id="a" to_id="a"/>)" + out)), "Loop exists in the graph");
}

/// A folder with files that layers refer to.
class LayerFiles : public testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& content) const { return folder_.write(name, content); }

  /// Of a network whose only layer has these attributes.
  static std::string document(const std::string& attributes) {
    return document_of("<layers><layer " + attributes + "><weight>9</weight><bias>9</bias></layer></layers>", kLinks);
  }
  static float output_of(const std::string& document) {
    const auto network = network_of(document, kXml);
    NNScorer scorer(*network);
    scorer.set_input(std::make_shared<Minibatch>(Matrix(Matrix::Constant(1, 1, 10.0f))));
    return scorer.score(0, 0);
  }

  sonivo::test::TemporaryFolder folder_;
};

const std::string kDense = R"(type="FullyConnected" id="a" )";
const std::string kDenseFile = R"(<layer type="FullyConnected" id="ignored"><weight>2</weight><bias>3</bias></layer>)";

TEST_F(LayerFiles, HoldLayersAsDocuments) {
  const std::string path = write("layer.xml", "<?xml version=\"1.0\"?>" + kDenseFile);
  EXPECT_EQ(output_of(document(kDense)), 99.0f) << "in the document itself";
  EXPECT_EQ(output_of(document(kDense + "ref=\"\"")), 99.0f);
  EXPECT_EQ(output_of(document(kDense + "ref=\"\" format=\"nonsense\"")), 99.0f);
  EXPECT_EQ(output_of(document(kDense + "ref=\"" + path + "\"")), 23.0f) << "a document unless it says otherwise";
  EXPECT_EQ(output_of(document(kDense + "format=\"text/xml\" ref=\"" + path + "\"")), 23.0f);
}

TEST_F(LayerFiles, HoldLayersAsRecords) {
  const std::string record = "FullyConnected" + matrix_bytes(1, 1, {4.0f}) + matrix_bytes(1, 1, {5.0f});
  const std::string path = write("layer.bin", record + "what follows isn't read");
  const std::string of_file = document(kDense + "format=\"application/meridane-bin\" ref=\"" + path + "\"");
  EXPECT_EQ(output_of(of_file), 45.0f);
  const std::string written = dump_of(*network_of(of_file, kXml), kXml);
  EXPECT_EQ(written.find("ref"), std::string::npos);
  EXPECT_EQ(written.find("format"), std::string::npos);
  EXPECT_EQ(output_of(written), 45.0f);
}

TEST_F(LayerFiles, KeepTheIdOfTheNetwork) {
  const std::string path = write("layer.xml", kDenseFile);
  EXPECT_EQ(network_of(document(kDense + "ref=\"" + path + "\""), kXml)->layers().front()->id(), "a");
}

TEST_F(LayerFiles, MustBeThere) {
  const std::string path = folder_ / "nowhere";
  const std::string expected = "couldn't open \"" + path + "\"";
  EXPECT_EQ(failure(document(kDense + "ref=\"" + path + "\"")), expected);
  EXPECT_EQ(failure(document(kDense + "format=\"application/meridane-bin\" ref=\"" + path + "\"")), expected);
  EXPECT_EQ(failure(document(kDense + "format=\"text/plain\" ref=\"" + path + "\"")),
            "\"text/plain\" format does not support");
  EXPECT_EQ(failure(document(kDense + "format=\"text/xml;a=b\" ref=\"" + path + "\"")),
            "\"text/xml;a=b\" format does not support");
  EXPECT_EQ(failure(document(kDense + "format=\"\" ref=\"" + path + "\"")), "\"\" format does not support");
}

TEST_F(LayerFiles, MustHoldTheLayer) {
  const auto of_file = [&](const std::string& name, const char* format, const std::string& content) {
    return failure(document(kDense + "format=\"" + format + "\" ref=\"" + write(name, content) + "\""));
  };
  EXPECT_EQ(of_file("a", "text/xml", "<layer"), "Failed to parse xml");
  EXPECT_EQ(of_file("b", "text/xml", ""), "Failed to parse xml");
  EXPECT_EQ(
      of_file("c", "text/xml", R"(<layer type="ReLU"/>)"),
      "FullyConnectedLayer::load_xml() has been called for a wrong layer type - indicating an implementation error");
  EXPECT_EQ(of_file("d", "application/meridane-bin", "ReLU          "),
            "invalid format (expected \"FullyConnected Layer\")");
  EXPECT_EQ(of_file("e", "application/meridane-bin", "FullyConn"), "Unexpected end of the stream");
  EXPECT_EQ(of_file("f", "application/meridane-bin", kDenseFile), "invalid format (expected \"FullyConnected Layer\")");
}

TEST_F(LayerFiles, MustEnd) {
  EXPECT_EQ(failure(document(kDense + "ref=\"/dev/zero\"")), "The text has no end");
  EXPECT_EQ(failure(document(kDense + "format=\"application/meridane-bin\" ref=\"/dev/zero\"")),
            "invalid format (expected \"FullyConnected Layer\")");
  const auto of_matrix = [](const std::string& attributes) {
    return document_of("<layers><layer " + kDense + "><weight " + attributes + "/></layer></layers>", kLinks);
  };
  EXPECT_EQ(failure(of_matrix("ref=\"/dev/zero\"")), "The text has no end");
  EXPECT_EQ(failure(of_matrix("ref=\"/dev/zero\" type=\"application/octet-stream\"")), "Failed to read matrix binary");
}

TEST_F(LayerFiles, MayNotBeFolders) {
  for (const char* format : {"text/xml", "application/meridane-bin"}) {
    const std::string text = document(kDense + "format=\"" + format + "\" ref=\"" + folder_.path().string() + "\"");
    EXPECT_EQ(failure(text), "couldn't open \"" + folder_.path().string() + "\"") << format;
  }
}

}  // namespace
}  // namespace meridane::test
