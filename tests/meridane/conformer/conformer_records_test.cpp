// Both stored forms of a Conformer, and what is refused in them.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>

#include "conformer_samples.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index D = 4;

ConformerSample sample() { return {1, D, 2}; }

class ConformerRecords : public testing::TestWithParam<std::string> {
 protected:
  static std::string record(int cache_frame = 6, int last_layer = 0) {
    return ConformerSample::record_of(GetParam(), cache_frame, last_layer, sample().records(is_half()));
  }
  static bool is_half() { return GetParam() != "Conformer"; }
  static std::shared_ptr<NNLayer> load(const std::string& bytes) { return layer_of(GetParam(), bytes); }
  static std::shared_ptr<NNLayer> load_xml(const std::string& attributes, const std::string& children) {
    return layer_of_xml(GetParam(),
                        "<layer type='" + GetParam() + "' id='a' " + attributes + ">" + children + "</layer>");
  }
  /// The element `sublayers` of the sample.
  static std::string sublayers() {
    const std::string document = xml_of(*load(record()));
    const std::size_t begin = document.find("<sublayers>");
    const std::string end = "</sublayers>";
    return document.substr(begin, document.find(end) + end.size() - begin);
  }
};

INSTANTIATE_TEST_SUITE_P(Types, ConformerRecords, testing::Values("Conformer", "CompressedConformer"));

TEST_P(ConformerRecords, KeepTheirBytesFromBinaryToXmlToBinary) {
  for (const int last_layer : {0, 1}) {
    const auto layer = load(record(6, last_layer));
    EXPECT_EQ(binary_of(*layer), record(6, last_layer));
    const std::string document = xml_of(*layer);
    const auto again = layer_of_xml(GetParam(), document);
    EXPECT_EQ(binary_of(*again), record(6, last_layer));
    EXPECT_EQ(xml_of(*again), document);
  }
}

TEST_P(ConformerRecords, KeepTheOrderOfTheirSublayersAndThoseThatNobodyAskedFor) {
  auto records = sample().records(is_half());
  records["aside"] = {"ReLU", "ReLU"};
  std::vector<std::string> order = ConformerSample::names();
  std::reverse(order.begin(), order.end());
  order.insert(order.begin() + 3, "aside");
  const auto reversed = load(ConformerSample::record_of(GetParam(), 6, 0, records, order));
  EXPECT_EQ(binary_of(*reversed), ConformerSample::record_of(GetParam(), 6, 0, records, order));
  const Matrix x = Dice(2).matrix(D, 5);
  EXPECT_EQ(Stream({reversed}).step(x), Stream({load(record())}).step(x));
}

TEST_P(ConformerRecords, HaveALastLayerUnlessFalseOr0SaysNo) {
  for (const char* no : {"", "last_layer='false'", "last_layer='0'"}) {
    EXPECT_EQ(binary_of(*load_xml("cache_frame='6' " + std::string(no), sublayers())), record(6, 0)) << no;
  }
  for (const char* yes : {"true", "1", "no", "False", "00", ""}) {
    EXPECT_EQ(binary_of(*load_xml("cache_frame='6' last_layer='" + std::string(yes) + "'", sublayers())), record(6, 1))
        << yes;
  }
  for (const int yes : {-1, 1, 1024}) EXPECT_EQ(binary_of(*load(record(6, yes))), record(6, 1)) << yes;
}

TEST_P(ConformerRecords, NameWhatADocumentLacks) {
  EXPECT_EQ(failure_of<MissingTagError>([] { load_xml("", sublayers()); }), "\"cache_frame\" i mandatory in layer");
  EXPECT_EQ(failure_of<MissingTagError>([] { load_xml("cache_frame='1'", ""); }), "couldn't find \"layers\" tag");
  EXPECT_EQ(failure_of<MissingTagError>([] { load_xml("cache_frame='1'", "<sublayers/>"); }),
            "couldn't find \"layer\" tag");
  EXPECT_EQ(failure_of<MissingTagError>([] { load_xml("cache_frame='1'", "<sublayers><layer id='a'/></sublayers>"); }),
            "\"type\" i mandatory in layer");
  EXPECT_EQ(failure_of<BuilderNotFound>(
                [] { load_xml("cache_frame='1'", "<sublayers><layer type='Nothing' id='a'/></sublayers>"); }),
            "Nothing is not registered in the builder");
}

TEST_P(ConformerRecords, NameTheSublayerThatIsMissing) {
  const std::vector<std::string> names = ConformerSample::names();
  for (const std::string& missing : names) {
    std::vector<std::string> order = names;
    std::erase(order, missing);
    const std::string bytes = ConformerSample::record_of(GetParam(), 6, 0, sample().records(is_half()), order);
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { load(bytes); }),
              "\"" + missing + "\" sublayer not found in ConformerLayer");
  }
  EXPECT_EQ(failure_of<BaseRuntimeError>(
                [] { load_xml("cache_frame='1'", "<sublayers><layer type='ReLU' id='a'/></sublayers>"); }),
            "\"norm1\" sublayer not found in ConformerLayer");
}

TEST_P(ConformerRecords, TakeSublayersFromFilesOfTheirOwn) {
  const std::string path = (std::filesystem::temp_directory_path() / ("conformer_" + GetParam() + "_fc1")).string();
  const auto [type, bytes] = sample().records(is_half()).at("fc1");
  std::ofstream(path, std::ios_base::binary) << bytes;
  std::string children = sublayers();
  const std::size_t begin = children.find("<layer type=\"" + type + "\" id=\"fc1\"");
  const std::string end = "</layer>";
  children.replace(begin, children.find(end, begin) + end.size() - begin,
                   "<layer type='" + type + "' id='fc1' ref='" + path + "' format='application/meridane-bin'/>");
  EXPECT_EQ(binary_of(*load_xml("cache_frame='6'", children)), record());
  std::filesystem::remove(path);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { load_xml("cache_frame='6'", children); }),
            "couldn't open \"" + path + "\"");
}

TEST_P(ConformerRecords, AreRefusedForWhatNoConformerIs) {
  const auto refusal = [](const std::string& bytes) { return failure_of<BaseRuntimeError>([&] { load(bytes); }); };
  for (const int cache_frame : {-1, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(refusal(record(cache_frame)), "Incorrect \"cache_frame\" for \"" + GetParam() + "\"");
  }
  auto records = sample().records(is_half());
  records["mha1"] = {"ReLU", "ReLU"};
  EXPECT_EQ(refusal(ConformerSample::record_of(GetParam(), 6, 0, records)),
            "\"mha1\" sublayer of layer the layer is no RelMHA");
  std::vector<std::string> order = ConformerSample::names();
  order.emplace_back("fc1");
  EXPECT_EQ(refusal(ConformerSample::record_of(GetParam(), 6, 0, sample().records(is_half()), order)),
            "Id [fc1] is duplicated");
  // However deep a file says they are nested, they aren't followed.
  for (const char* inner : {"Conformer", "CompressedConformer"}) {
    records = sample().records(is_half());
    records["fc1"] = {inner, record()};
    EXPECT_EQ(refusal(ConformerSample::record_of(GetParam(), 6, 0, records)),
              "Layer the layer can't have a sublayer of type \"" + std::string(inner) + "\"");
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] {
                load_xml("cache_frame='6'",
                         "<sublayers><layer type='" + std::string(inner) + "' id='fc1'/></sublayers>");
              }),
              "Layer the layer can't have a sublayer of type \"" + std::string(inner) + "\"");
  }
}

TEST_P(ConformerRecords, AreRefusedCutOrOfAnotherLayer) {
  std::string bytes = record();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(load(bytes.substr(0, length)), BaseRuntimeError) << length;
  }
  ++bytes[0];
  EXPECT_EQ(failure_of<InvalidFormat>([&] { load(bytes); }), "invalid format (expected \"" + GetParam() + " Layer\")");
  EXPECT_EQ(failure_of<BaseRuntimeError>([] { layer_of_xml(GetParam(), "<layer type='Other' id='a'/>"); }),
            GetParam() +
                "Layer::load_xml() has been called for a wrong layer type - indicating an implementation "
                "error");
}

TEST_P(ConformerRecords, SurviveAnyByteChanged) {
  const Matrix x = Dice(3).matrix(D, 3);
  int loads = 0;
  const std::string bytes = record();
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (const int value : {0x00, 0x7f, 0xff}) {
      std::string changed = bytes;
      changed[at] = static_cast<char>(value);
      try {
        Stream stream({load(changed)});
        ++loads;
        for (int call = 0; call < 3; ++call) EXPECT_EQ(stream.step(x).cols(), 3);
      } catch (const BaseRuntimeError&) {
      }
    }
  }
  EXPECT_GT(loads, 0);
}

TEST_P(ConformerRecords, CountTheNumbersAndProductsOfTheirParts) {
  const LayerSize size = load(record())->size();
  const std::uint64_t d = D, F = ConformerSample::F, taps = ConformerSample::kTaps;
  const std::uint64_t products = 4 * d * F + 5 * d * d + 2 * d * d + taps * d + d * d;
  EXPECT_EQ(size.multiply_adds, products);
  const std::uint64_t biases = 2 * (F + d) + 6 * d + 2 * d + d + d;
  const std::uint64_t norms = 5 * (2 * d + 1) + 4 * d + 1, activations = 4 * 2;
  EXPECT_EQ(size.parameters, products + biases + norms + activations);
}

TEST(CompressedConformer, ComputesWhatThePlainOneDoes) {
  const Matrix x = Dice(4).matrix(D, 20);
  const ConformerSample p = sample();
  Stream half(
      {layer_of("CompressedConformer", ConformerSample::record_of("CompressedConformer", 6, 0, p.records(true)))});
  Stream plain({p.load(6)});
  EXPECT_EQ(half.run(x, Chunks(20, 4)), plain.run(x, Chunks(20, 4)));
}

}  // namespace
}  // namespace meridane::test
