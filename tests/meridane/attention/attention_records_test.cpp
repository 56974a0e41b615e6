// Both stored forms of the attentions and joints, and what they say of sizes that contradict each other.

#include <unistd.h>

#include <boost/interprocess/managed_shared_memory.hpp>
#include <cmath>

#include "attention_samples.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

struct Sample {
  std::string type;
  std::string record;
  std::vector<std::string> children;
  std::uint64_t parameters, products;
};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.type; }

std::vector<Sample> samples() {
  std::vector<Sample> all;
  for (const bool half : {false, true}) {
    const std::vector<std::string> joint = {"lin_enc_weight", "lin_dec_weight", "lin_bias", "lin_out_weight",
                                            "lin_out_bias"};
    std::vector<std::string> hat = joint;
    hat.insert(hat.end(), {"lin_out_blk_weight", "lin_out_blk_bias"});
    const std::string p = prefix(half);
    all.push_back({p + "Attention",
                   AttentionParameters(1).record(half),
                   {"in_weight", "in_bias", "out_weight", "out_bias"},
                   75 + 15 + 15 + 3,
                   75 + 15});
    all.push_back(
        {p + "SimpleAttention", SimpleParameters(2).record(half), {"weight", "bias", "context"}, 20 + 4 + 4, 20});
    all.push_back({p + "AdditiveSelfAttention",
                   AdditiveParameters(3).record(half),
                   {"key_weight", "key_bias", "query", "gvec_weight", "gvec_bias"},
                   1 + 20 + 4 + 4 + 4 + 1,
                   20 + 4});
    const std::uint64_t weights = 6 * 5 + 6 * 3 + 4 * 6;
    all.push_back({p + "Joint", JointParameters(4).record(false, half), joint, weights + 6 + 4, weights});
    all.push_back({p + "JointHAT", JointParameters(5).record(true, half), hat, weights + 6 + 4 + 6 + 1, weights + 6});
  }
  return all;
}

class AttentionRecords : public testing::TestWithParam<Sample> {
 protected:
  std::shared_ptr<NNLayer> loaded() const { return layer_of(GetParam().type, GetParam().record); }
};

INSTANTIATE_TEST_SUITE_P(Types, AttentionRecords, testing::ValuesIn(samples()),
                         [](const auto& each) { return each.param.type; });

TEST_P(AttentionRecords, KeepTheirBytesFromBinaryToXmlToBinary) {
  EXPECT_EQ(binary_of(*loaded()), GetParam().record);
  const std::string document = xml_of(*loaded());
  const auto again = layer_of_xml(GetParam().type, document);
  EXPECT_EQ(binary_of(*again), GetParam().record);
  EXPECT_EQ(xml_of(*again), document);
}

TEST_P(AttentionRecords, AreRefusedWhereTheyAreCutOrAnothers) {
  std::string record = GetParam().record;
  for (std::size_t length = 0; length < record.size(); ++length) {
    EXPECT_THROW(layer_of(GetParam().type, record.substr(0, length)), BaseRuntimeError) << length;
  }
  ++record[0];
  EXPECT_EQ(failure_of<InvalidFormat>([&] { layer_of(GetParam().type, record); }),
            "invalid format (expected \"" + GetParam().type + " Layer\")");
}

// Whatever stands in a record, it's refused by the engine's own exception or makes a layer that runs.
TEST_P(AttentionRecords, SurviveAnyByteChanged) {
  const bool pair = GetParam().type.find("Joint") != std::string::npos;
  int loads = 0;
  for (std::size_t at = 0; at < GetParam().record.size(); ++at) {
    for (const int value : {0x00, 0x01, 0x40, 0x7f, 0x80, 0xff}) {
      std::string changed = GetParam().record;
      changed[at] = static_cast<char>(value);
      try {
        const auto layer = layer_of(GetParam().type, changed);
        ++loads;
        LayerInputs inputs = {minibatch(Matrix::Ones(5, 2))};
        if (pair) inputs.add(minibatch(Matrix::Ones(3, 2)));
        EXPECT_GT(layer->forward(inputs, layer->create_state())->size(), 0u);
      } catch (const BaseRuntimeError&) {
      }
    }
  }
  EXPECT_GT(loads, 0);
}

TEST_P(AttentionRecords, NameWhatIsMissingInADocument) {
  const bool sized = GetParam().type.ends_with("edAttention") || GetParam().type == "Attention";
  std::string present;
  for (const std::string& child : GetParam().children) {
    const std::string element =
        "<layer type='" + GetParam().type + "' id='a'" + (sized ? " input_size='5'>" : ">") + present + "</layer>";
    EXPECT_EQ(failure_of<MissingTagError>([&] { layer_of_xml(GetParam().type, element); }),
              "\"<" + child + ">\" not found in a layer of type \"" + GetParam().type + "\" ");
    present += "<" + child + ">1</" + child + ">";
  }
}

TEST_P(AttentionRecords, RefuseTheDocumentOfAnother) {
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml(GetParam().type, "<layer type='Other' id='a'/>"); }),
            GetParam().type +
                "Layer::load_xml() has been called for a wrong layer type - indicating an implementation error");
}

TEST_P(AttentionRecords, CountTheirNumbersAndProducts) {
  EXPECT_EQ(loaded()->size().parameters, GetParam().parameters);
  EXPECT_EQ(loaded()->size().multiply_adds, GetParam().products);
  EXPECT_FALSE(loaded()->is_variable_length());
}

LayerInputs inputs_of(const std::string& type) {
  LayerInputs inputs = {minibatch(Dice(6).matrix(5, 4))};
  if (type.find("Joint") != std::string::npos) inputs.add(minibatch(Dice(7).matrix(3, 4)));
  return inputs;
}

TEST_P(AttentionRecords, AreWrittenIntoMemoryOfAnOldResultAndNotIntoTheirInputs) {
  LayerInputs inputs = inputs_of(GetParam().type);
  const Matrix fresh = loaded()->forward(inputs)->content();
  inputs.set_spare(minibatch(Matrix::Constant(7, 3, std::nanf(""))));
  EXPECT_EQ(loaded()->forward(inputs)->content(), fresh);
  const LayerInputs before = inputs_of(GetParam().type);
  for (std::size_t i = 0; i < inputs.size(); ++i) EXPECT_EQ(inputs[i]->content(), before[i]->content());
}

// Halves hold the numbers of the samples.
TEST(CompressedAttentions, ComputeWhatThePlainOnesDo) {
  const std::vector<Sample> all = samples();
  const std::size_t types = all.size() / 2;
  for (std::size_t i = 0; i < types; ++i) {
    const Sample &plain = all[i], &half = all[types + i];
    ASSERT_EQ(half.type, "Compressed" + plain.type);
    const LayerInputs inputs = inputs_of(plain.type);
    EXPECT_EQ(layer_of(half.type, half.record)->forward(inputs)->content(),
              layer_of(plain.type, plain.record)->forward(inputs)->content());
  }
}

template <class Parameters>
std::string failure(const std::string& type, const Parameters& p) {
  return failure_of<BaseRuntimeError>([&] { layer_of(type, p.record()); });
}

TEST(AttentionSizes, AreChecked) {
  const auto with = [](auto change) {
    AttentionParameters p(8);
    change(p);
    return failure("Attention", p);
  };
  const std::string in = "<in_weight> is not 15 x 5 matrix a layer of type \"Attention\"";
  EXPECT_EQ(with([](auto& p) { p.in_weight = Matrix::Ones(15, 4); }), in);
  EXPECT_EQ(with([](auto& p) { p.in_weight = Matrix::Ones(5, 5); }), in);
  EXPECT_EQ(with([](auto& p) { p.in_bias = Matrix::Ones(5, 1); }),
            "<in_bias> size is not 15 matrix a layer of type \"Attention\"");
  EXPECT_EQ(with([](auto& p) { p.out_weight = Matrix::Ones(3, 4); }),
            "<out_weight> is not 3 x 5 matrix a layer of type \"Attention\"");
  EXPECT_EQ(with([](auto& p) { p.out_bias = Matrix::Ones(4, 1); }),
            "Numbers of rows of out_weight[3] and size of out_bias[4] do not match");
  EXPECT_EQ(with([](auto&) {}), "nothing failed");
}

TEST(AttentionSizes, AreNoneBelowOne) {
  for (const std::int32_t size : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of("Attention", AttentionParameters(9).record(false, size)); }),
              "Incorrect \"input_size\" for \"Attention\"");
  }
  EXPECT_EQ(
      failure_of<BaseRuntimeError>([&] { layer_of("Attention", AttentionParameters(9).record(false, 2147483647)); }),
      "<in_weight> is not 6442450941 x 2147483647 matrix a layer of type \"Attention\"");
  EXPECT_EQ(failure_of<MissingTagError>([] { layer_of_xml("Attention", "<layer type='Attention' id='a'/>"); }),
            "\"input_size\" i mandatory in layer");
}

TEST(SimpleAttentionSizes, AreChecked) {
  const auto with = [](auto change) {
    SimpleParameters p(10);
    change(p);
    return failure("SimpleAttention", p);
  };
  EXPECT_EQ(with([](auto& p) { p.bias = Matrix::Ones(5, 1); }),
            "<bias> size is not 4 vector a layer of type \"SimpleAttention\"");
  EXPECT_EQ(with([](auto& p) { p.context = Matrix::Ones(3, 1); }),
            "<context> is not 4 vector a layer of type \"SimpleAttention\"");
  EXPECT_EQ(with([](auto&) {}), "nothing failed");
}

TEST(AdditiveSelfAttentionSizes, AreChecked) {
  const auto with = [](auto change) {
    AdditiveParameters p(11);
    change(p);
    return failure("AdditiveSelfAttention", p);
  };
  EXPECT_EQ(with([](auto& p) { p.key_bias = Matrix::Ones(5, 1); }),
            "<key_bias> size is not 4 vector a layer of type \"AdditiveSelfAttention\"");
  EXPECT_EQ(with([](auto& p) { p.query = Matrix::Ones(5, 1); }),
            "The size of the <query> vector in the \"AdditiveSelfAttention\" is not 4");
  const std::string gvec = "<gvec_weight> is not 1 x 4 matrix a layer of type \"AdditiveSelfAttention\"";
  EXPECT_EQ(with([](auto& p) { p.gvec_weight = Matrix::Ones(1, 5); }), gvec);
  EXPECT_EQ(with([](auto& p) { p.gvec_weight = Matrix::Ones(2, 4); }), gvec);
  EXPECT_EQ(with([](auto& p) { p.gvec_bias = Matrix::Ones(4, 1); }),
            "The size of the <gvec_bias> vector in the \"AdditiveSelfAttention\" is not 1");
  EXPECT_EQ(with([](auto&) {}), "nothing failed");
}

// A document may say what size it is for.
TEST(StatedInputSizes, AreThoseOfTheWeight) {
  const auto changed = [](const std::string& type, const std::string& record, const std::string& size) {
    std::string document = xml_of(*layer_of(type, record));
    const std::string stated = " input_size=\"5\"";
    const std::size_t at = document.find(stated);
    EXPECT_NE(at, std::string::npos);
    document.replace(at, stated.size(), size);
    return failure_of<BaseRuntimeError>([&] { layer_of_xml(type, document); });
  };
  const std::string simple = SimpleParameters(12).record(), additive = AdditiveParameters(12).record();
  EXPECT_EQ(changed("SimpleAttention", simple, " input_size='6'"),
            "<weight> is not 4 x 6 matrix a layer of type \"SimpleAttention\"");
  EXPECT_EQ(changed("AdditiveSelfAttention", additive, " input_size='6'"),
            "<key_weight> is not 4 x 6 matrix a layer of type \"AdditiveSelfAttention\"");
  for (const auto& [type, record] : {std::pair{"SimpleAttention", simple}, {"AdditiveSelfAttention", additive}}) {
    EXPECT_EQ(changed(type, record, ""), "nothing failed");
    EXPECT_EQ(changed(type, record, " input_size='-1'"), std::string("Incorrect \"input_size\" for \"") + type + "\"");
  }
}

TEST(JointSizes, AreChecked) {
  for (const bool hat : {false, true}) {
    const auto with = [hat](auto change) {
      JointParameters p(13);
      change(p);
      return failure_of<BaseRuntimeError>([&] { layer_of(hat ? "JointHAT" : "Joint", p.record(hat)); });
    };
    const std::string shape = "The shape of the weight matrix for layer the layer is incorrect";
    const std::string bias = "The number of dimensions of the bias vector for layer the layer is incorrect";
    EXPECT_EQ(with([](auto& p) { p.dec = Matrix::Ones(5, 3); }), shape);
    EXPECT_EQ(with([](auto& p) { p.out = Matrix::Ones(4, 5); }), shape);
    EXPECT_EQ(with([](auto& p) { p.bias = Matrix::Ones(5, 1); }), bias);
    EXPECT_EQ(with([](auto& p) { p.bias = Matrix::Ones(1, 6); }), bias);
    EXPECT_EQ(with([](auto& p) { p.out_bias = Matrix::Ones(3, 1); }), bias);
    EXPECT_EQ(with([](auto& p) { p.out_bias = Matrix::Ones(1, 4); }), bias);
    EXPECT_EQ(with([](auto& p) { p.blank = Matrix::Ones(2, 6); }), hat ? shape : "nothing failed");
    EXPECT_EQ(with([](auto& p) { p.blank = Matrix::Ones(1, 5); }), hat ? shape : "nothing failed");
    EXPECT_EQ(with([](auto& p) { p.blank_bias = Matrix::Ones(2, 1); }), hat ? bias : "nothing failed");
    EXPECT_EQ(with([](auto&) {}), "nothing failed");
  }
}

TEST(SharedAttention, ComputesWhatThePlainOneDoes) {
  namespace ipc = boost::interprocess;
  ensure_layer_tables();
  const std::string name = "sonivo-attention-test-" + std::to_string(getpid());
  {
    ipc::managed_shared_memory segment(ipc::create_only, name.c_str(), 1 << 16);
    const SMManager manager(*segment.get_segment_manager(), "net::layer[0]");
    const std::string type = "AdditiveSelfAttention", record = AdditiveParameters(14).record();
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { SMNNLayerFinder::build(type, kId, manager); }),
              "SMAdditiveSelfAttentionLayer::scaling data does not exist in shared memory.");
    std::istringstream stream(record);
    const auto stored = SMNNLayerBuilder::build(type, kId, manager, nullptr, stream);
    const auto found = SMNNLayerFinder::build(type, kId, manager);
    const Matrix x = Dice(15).matrix(5, 7);
    EXPECT_LT(distance(forward(*stored, x), AdditiveParameters(14)(x)), kRounding);
    EXPECT_EQ(forward(*found, x), forward(*stored, x));
    EXPECT_EQ(binary_of(*found), record);
    EXPECT_EQ(*manager.find<float>("scaling"), AdditiveParameters(14).scaling);
    EXPECT_EQ(*manager.find<std::uint64_t>("key_weight_rows"), 4u);
    EXPECT_EQ(*manager.find<std::uint64_t>("key_weight_cols"), 5u);
    EXPECT_NE(manager.find_floats("key_weight", 20), nullptr);
    EXPECT_EQ(*manager.find<std::uint64_t>("gvec_weight_rows"), 1u);
    EXPECT_EQ(*manager.find<std::uint64_t>("gvec_weight_cols"), 4u);
    EXPECT_NE(manager.find_floats("gvec_weight", 4), nullptr);
    for (const auto& [vector, count] :
         {std::pair<std::string, std::uint64_t>{"key_bias", 4}, {"query", 4}, {"gvec_bias", 1}}) {
      EXPECT_EQ(*manager.find<std::uint64_t>(vector + "_size"), count) << vector;
      EXPECT_NE(manager.find_floats(vector, count), nullptr) << vector;
    }
  }
  ipc::shared_memory_object::remove(name.c_str());
}

}  // namespace
}  // namespace meridane::test
