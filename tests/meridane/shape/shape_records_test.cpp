// Both stored forms of the layers that cut and join.

#include <cmath>

#include "../layers/layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

struct Sample {
  std::string type;
  std::string record;
  std::string description = type + " Layer";
  std::string class_name = type + "Layer";
  bool has_state = false;
};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.type; }

std::vector<Sample> samples() {
  const auto size = [](std::uint64_t value) { return Record().number(value).bytes(); };
  const auto integer = [](std::int32_t value) { return Record().number(value).bytes(); };
  const std::string mode = Record().text("product").bytes();
  return {{.type = "Slice", .record = "Slice" + size(0) + size(3) + size(1ull << 40) + size(1)},
          {.type = "SliceAlongTime",
           .record = "SliceAlongTime" + integer(2) + integer(50000),
           .description = "Truncate Merge Layer",
           .class_name = "SliceAlongTime"},
          {.type = "Concat", .record = "Concat" + size(7)},
          {.type = "Merge", .record = "Merge" + mode},
          {.type = "KeepPaceConcat", .record = "KeepPaceConcat" + size(7), .has_state = true},
          {.type = "KeepPaceMerge", .record = "KeepPaceMerge" + mode, .has_state = true}};
}

class ShapeLayers : public testing::TestWithParam<Sample> {
 protected:
  std::shared_ptr<NNLayer> loaded() const { return layer_of(GetParam().type, GetParam().record); }
};

INSTANTIATE_TEST_SUITE_P(Types, ShapeLayers, testing::ValuesIn(samples()),
                         [](const auto& each) { return each.param.type; });

TEST_P(ShapeLayers, KeepTheirBytesFromBinaryToXmlToBinary) {
  EXPECT_EQ(binary_of(*loaded()), GetParam().record);
  const std::string document = xml_of(*loaded());
  const auto again = layer_of_xml(GetParam().type, document);
  EXPECT_EQ(binary_of(*again), GetParam().record);
  EXPECT_EQ(xml_of(*again), document);
}

TEST_P(ShapeLayers, RefuseARecordThatIsCutAnywhereOrAnothers) {
  std::string record = GetParam().record;
  for (std::size_t length = 0; length < record.size(); ++length) {
    EXPECT_THROW(layer_of(GetParam().type, record.substr(0, length)), BaseRuntimeError) << length;
  }
  ++record[0];
  EXPECT_EQ(failure_of<InvalidFormat>([&] { layer_of(GetParam().type, record); }),
            "invalid format (expected \"" + GetParam().description + "\")");
}

// Whatever stands in a record, it's refused by the engine's own exception or makes a layer that runs.
TEST_P(ShapeLayers, SurviveAnyByteChanged) {
  const LayerInputs inputs = {minibatch(Matrix::Ones(5, 4))};
  int loads = 0;
  for (std::size_t at = 0; at < GetParam().record.size(); ++at) {
    for (const int value : {0x00, 0x01, 0x40, 0x7f, 0x80, 0xff}) {
      std::string changed = GetParam().record;
      changed[at] = static_cast<char>(value);
      try {
        const auto layer = layer_of(GetParam().type, changed);
        ++loads;
        EXPECT_GT(layer->forward(inputs, layer->create_state())->size(), 0u);
      } catch (const BaseRuntimeError&) {
      }
    }
  }
  EXPECT_GT(loads, 0);
}

TEST_P(ShapeLayers, RefuseTheDocumentOfAnother) {
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml(GetParam().type, "<layer type='Other' id='a'/>"); }),
            GetParam().class_name +
                "::load_xml() has been called for a wrong layer type - indicating an implementation error");
}

TEST_P(ShapeLayers, AreKnownByTheirState) {
  EXPECT_EQ(loaded()->create_state() != nullptr, GetParam().has_state);
  EXPECT_FALSE(loaded()->is_variable_length());
  EXPECT_EQ(loaded()->size().parameters, 0u);
}

TEST(CutsAndJoins, AreWrittenIntoMemoryOfAnOldResultAndNotIntoTheirInputs) {
  const std::pair<const char*, const char*> layers[] = {{"Slice", "start='1' end='3'"},
                                                        {"SliceAlongTime", "start='1' end='3'"},
                                                        {"Concat", ""},
                                                        {"Merge", "mode='product'"},
                                                        {"KeepPaceConcat", ""},
                                                        {"KeepPaceMerge", "mode='add'"}};
  for (const auto& [type, attributes] : layers) {
    const auto layer = layer_of_xml(type, std::string("<layer type='") + type + "' id='a' " + attributes + "/>");
    const Matrix a = Dice(1).matrix(5, 4), b = Dice(2).matrix(5, 4);
    const bool single = std::string(type).starts_with("Slice");
    LayerInputs inputs = {minibatch(a)};
    if (!single) inputs.add(minibatch(b));
    const Matrix fresh = layer->forward(inputs, layer->create_state())->content();
    EXPECT_GT(fresh.size(), 0) << type;
    inputs.set_spare(minibatch(Matrix::Constant(7, 3, std::nanf(""))));
    EXPECT_EQ(layer->forward(inputs, layer->create_state())->content(), fresh) << type;
    EXPECT_EQ(inputs[0]->content(), a) << type;
    if (!single) {
      EXPECT_EQ(inputs[1]->content(), b) << type;
    }
  }
}

}  // namespace
}  // namespace meridane::test
