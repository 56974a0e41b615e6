// The binary form of a network: its fields, its messages and their order.

#include <gtest/gtest.h>

#include <array>

#include "../support/network_samples.h"
#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

std::vector<std::string> ids_of(const NNGraph::Layers& layers) {
  std::vector<std::string> ids;
  for (const auto& layer : layers) ids.push_back(layer->id());
  return ids;
}

TEST(ABinaryFile, HoldsSizesLayersAndLinks) {
  const Links links = {{"_input", "b"}, {"b", "_output"}, {"_input", "a"}, {"a", "b"}, {"a", "b"}};
  const std::string bytes = network_bytes(3, 5, {relu_bytes("b"), relu_bytes("a")}, links);
  ASSERT_EQ(bytes.substr(0, 16), std::string("MerNNpar\x03\0\0\0\0\0\0\0", 16)) << "little-endian";
  const auto network = network_of(bytes);
  EXPECT_EQ(network->type(), "NN");
  EXPECT_EQ(network->ninput(), 3u);
  EXPECT_EQ(network->noutput(), 5u);
  EXPECT_EQ(ids_of(network->layers()), (std::vector<std::string>{"b", "a"})) << "in the order of the file";
  EXPECT_EQ(network->layers()[0]->type(), "ReLU");
  EXPECT_EQ(network->links(), links) << "the one to the output among them";
  EXPECT_EQ(ids_of(network->forward_path()), (std::vector<std::string>{"_input", "a", "b"}));
  EXPECT_EQ(ids_of(network->graph().get_prec_layers("b")), (std::vector<std::string>{"_input", "a", "a"}));
  EXPECT_TRUE(network->graph().get_succ_layers("b").empty()) << "the link to the output is no edge";
  EXPECT_EQ(failure_of([&] { network->graph().get_prec_layers("_output"); }), "Invalid node id [_output]");
  EXPECT_EQ(dump_of(*network), bytes);
}

TEST(ABinaryFile, WithEveryTypeOfLayerComesBackByteForByte) {
  const std::string bytes = sample_network();
  EXPECT_EQ(dump_of(*network_of(bytes)), bytes);
}

TEST(ABinaryFile, ComesBackByteForByteByWayOfADocument) {
  const std::string bytes = sample_network();
  const std::string document = dump_of(*network_of(bytes), "text/xml");
  EXPECT_EQ(dump_of(*network_of(document, "text/xml")), bytes);
}

TEST(ABinaryFile, IsReadToItsEndAndNoFurther) {
  const std::string first = network_bytes(1, 1, {relu_bytes("a")}, {{"_input", "a"}, {"a", "_output"}});
  const std::string second = sample_network();
  std::istringstream stream(first + second + "rest");
  NNParameter one;
  one.load_binary_stream(stream);
  NNParameter two;
  two.load_binary_stream(stream);
  EXPECT_EQ(dump_of(one), first);
  EXPECT_EQ(dump_of(two), second);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "rest");
}

TEST(ABinaryFile, MayBeItsInput) {
  const auto network = network_of(network_bytes(1, 1, {}, {{"_input", "_output"}}));
  NNScorer scorer(*network);
  const auto frames = std::make_shared<Minibatch>(Matrix(Matrix::Constant(1, 2, 3.0f)));
  scorer.set_input(frames);
  EXPECT_EQ(scorer.output(), frames->content());
}

TEST(ABinaryFile, BeginsWithItsMagic) {
  const std::string expected = "invalid format (expected \"NN parameter\")";
  for (const char* magic : {"MeGMMpar", "merNNpar", "MerNNpa\0"}) {
    std::string bytes = sample_network();
    bytes.replace(0, 8, magic, 8);
    EXPECT_EQ(failure_of<InvalidFormat>([&] { network_of(bytes); }), expected);
  }
  EXPECT_EQ(loading_failure("notmagic"), expected) << "before anything behind it is read";
}

TEST(ABinaryFile, WithoutAnythingHasNoEnd) {
  const std::string expected = "Starting or terminal node has not been set";
  EXPECT_EQ(loading_failure(network_bytes(1, 1, {}, {})), expected);
  EXPECT_EQ(loading_failure(network_bytes(1, 1, {relu_bytes("a")}, {{"_input", "a"}})), expected);
}

TEST(ABinaryFile, NamesEachLayerOnce) {
  EXPECT_EQ(loading_failure(network_bytes(1, 1, {relu_bytes("a"), relu_bytes("a")}, {})), "Id [a] is duplicated");
  EXPECT_EQ(loading_failure(network_bytes(1, 1, {relu_bytes("_input")}, {})), "Id [_input] is duplicated");
}

TEST(ABinaryFile, LinksWhatIsThere) {
  const auto failure = [](const Links& links) {
    return loading_failure(network_bytes(1, 1, {relu_bytes("a")}, links));
  };
  EXPECT_EQ(failure({{"_input", "b"}}), "Invalid node id [b]");
  EXPECT_EQ(failure({{"b", "a"}}), "Invalid node id [b]");
  EXPECT_EQ(failure({{"b", "_output"}}), "Invalid node id [b]");
  EXPECT_EQ(failure({{"_output", "a"}}), "Invalid node id [_output]") << "no node";
  EXPECT_EQ(failure({{"", "a"}}), "Invalid node id []");
  EXPECT_EQ(failure({{"_input", "a"}, {"a", "_input"}, {"a", "_output"}}), "Loop exists in the graph");
  EXPECT_EQ(failure({{"a", "_output"}}), "Path to the terminal node does not exist");
}

TEST(ABinaryFile, HasOneEnd) {
  const auto failure = [](const Links& links) {
    return loading_failure(network_bytes(1, 1, {relu_bytes("a")}, links));
  };
  const std::string expected = "duplicate attribute \"_output\"";
  EXPECT_EQ(failure({{"_input", "a"}, {"a", "_output"}, {"a", "_output"}}), expected);
  EXPECT_EQ(failure({{"_input", "a"}, {"a", "_output"}, {"_input", "_output"}}), expected);
  EXPECT_EQ(failure({{"_input", "a"}, {"a", "_output"}, {"nobody", "_output"}}), expected);
}

TEST(ABinaryFile, NamesOnlyTypesThatAreThere) {
  const std::string bytes = network_bytes(1, 1, {layer_bytes("a", "Nothing", "Nothing")}, {});
  EXPECT_EQ(failure_of<BuilderNotFound>([&] { network_of(bytes); }), "Nothing is not registered in the builder");
  const std::string input = network_bytes(1, 1, {layer_bytes("a", "Input", "Input")}, {});
  EXPECT_EQ(failure_of<BuilderNotFound>([&] { network_of(input); }), "Input is not registered in the builder");
}

/// The table of quantized layers is not asked, whatever the mode.
TEST(ABinaryFile, HasNoQuantizedLayersInAnyMode) {
  for (const int mode : {0, 1, 2}) {
    NNParameter refused(mode);
    std::istringstream quantized(network_bytes(1, 1, {layer_bytes("a", "QuantizedFullyConnected", "")}, {}));
    EXPECT_EQ(failure_of<BuilderNotFound>([&] { refused.load_binary_stream(quantized); }),
              "QuantizedFullyConnected is not registered in the builder");
    NNParameter taken(mode);
    const std::string dense =
        network_bytes(1, 1, {dense_bytes("a", {2.0f}, {1.0f})}, {{"_input", "a"}, {"a", "_output"}});
    std::istringstream stream(dense);
    taken.load_binary_stream(stream);
    EXPECT_EQ(dump_of(taken), dense) << "in single precision";
  }
}

TEST(ALayersRecord, BeginsWithItsType) {
  const auto failure = [](const std::string& type, const std::string& record) {
    return failure_of<InvalidFormat>([&] { network_of(network_bytes(1, 1, {layer_bytes("a", type, record)}, {})); });
  };
  EXPECT_EQ(failure("FullyConnected", "fullyconnected"), "invalid format (expected \"FullyConnected Layer\")");
  EXPECT_EQ(failure("FullyConnected", "CompressedFullyConnected"),
            "invalid format (expected \"FullyConnected Layer\")");
  EXPECT_EQ(failure("CompressedFullyConnected", "FullyConnected" + std::string(20, ' ')),
            "invalid format (expected \"CompressedFullyConnected Layer\")");
  EXPECT_EQ(failure("ReLU", "Relu"), "invalid format (expected \"ReLU Layer\")");
}

TEST(AStreamsEnd, IsReportedByTheStreamWhereItWasAskedTo) {
  const std::string bytes = sample_network();
  std::istringstream silent(bytes.substr(0, 100));
  NNParameter one;
  EXPECT_EQ(failure_of([&] { one.load_binary_stream(silent); }), "Unexpected end of the stream");
  for (const auto bit : {std::ios_base::failbit, std::ios_base::eofbit}) {
    std::istringstream loud(bytes.substr(0, 100));
    loud.exceptions(bit);
    NNParameter two;
    EXPECT_THROW(two.load_binary_stream(loud), std::ios_base::failure);
  }
}

TEST(TheMime, ChoosesTheForm) {
  const std::string bytes = network_bytes(1, 1, {relu_bytes("a")}, {{"_input", "a"}, {"a", "_output"}});
  const auto network = network_of(bytes);
  const std::string document = dump_of(*network, "text/xml");
  EXPECT_EQ(document.substr(0, 2), "<?");
  for (const char* mime : {"text/xml", "text/xml;charset=utf-8", "text/xml;"}) {
    EXPECT_EQ(dump_of(*network, mime), document) << mime;
    EXPECT_EQ(dump_of(*network_of(document, mime)), bytes) << mime;
  }
  for (const char* mime : {"application/meridane-bin", "", "TEXT/XML", "text/xml ;a=b", " text/xml", "application/xml",
                           ";text/xml", "text/plain;text/xml"}) {
    EXPECT_EQ(dump_of(*network, mime), bytes) << mime;
    EXPECT_EQ(dump_of(*network_of(bytes, mime)), bytes) << mime;
  }
}

/// A link to "_output" names the last layer, whatever layers are called; a layer of that name can't be reached by one.
TEST(ABinaryFile, MayHaveALayerWithTheNameOfTheOutput) {
  const std::vector<std::string> layers = {numbers_layer("a", "PReLU", {2.0f}),
                                           numbers_layer("_output", "PReLU", {3.0f})};
  const std::string bytes = network_bytes(1, 1, layers, {{"_input", "a"}, {"a", "_output"}});
  const auto network = network_of(bytes);
  EXPECT_EQ(dump_of(*network), bytes);
  EXPECT_EQ(network->forward_path().size(), 2u);
  NNScorer scorer(*network);
  scorer.set_input(std::make_shared<Minibatch>(Matrix(Matrix::Constant(1, 1, -1.0f))));
  EXPECT_EQ(scorer.score(0, 0), -2.0f);
  EXPECT_EQ(loading_failure(network_bytes(1, 1, layers, {{"_input", "a"}, {"_output", "_output"}})),
            "Path to the terminal node does not exist");
}

}  // namespace
}  // namespace meridane::test
