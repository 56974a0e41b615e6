// What every layer type promises, whatever it computes.

#include <limits>
#include <set>

#include "layer_samples.h"
#include "meridane/error.h"
#include "meridane/io/logging.h"

namespace meridane::test {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

class EveryLayer : public testing::TestWithParam<LayerSample> {
 protected:
  EveryLayer() { log_threshold() = kLogWarning; }  // Print would fill the screen
  ~EveryLayer() override { log_threshold() = kLogInfo; }

  std::shared_ptr<NNLayer> loaded() const { return GetParam().load(GetParam().record); }
};

INSTANTIATE_TEST_SUITE_P(Layers, EveryLayer, testing::ValuesIn(layer_samples()), [](const auto& each) {
  return (each.param.table == LayerSample::Table::quantized ? "Quantizing" : "") + each.param.type;
});

/// That values are equal bit by bit, with the same shape.
void expect_same(const Minibatch& a, const Minibatch& b) {
  ASSERT_EQ(a.shape(), b.shape());
  ASSERT_EQ(a.content().cols(), b.content().cols());
  for (Eigen::Index t = 0; t < a.content().cols(); ++t) {
    for (Eigen::Index i = 0; i < a.content().rows(); ++i) {
      EXPECT_EQ(std::bit_cast<std::uint32_t>(a.content()(i, t)), std::bit_cast<std::uint32_t>(b.content()(i, t)))
          << "row " << i << ", frame " << t;
    }
  }
}

TEST_P(EveryLayer, HasItsIdAndType) {
  EXPECT_EQ(loaded()->id(), kId);
  EXPECT_EQ(loaded()->type(), GetParam().dump_tag);
}

TEST_P(EveryLayer, DumpsTheRecordThatItWasLoadedFrom) {
  const auto layer = loaded();
  const std::string dumped = binary_of(*layer);
  if (GetParam().dump_tag == GetParam().type) {
    EXPECT_EQ(dumped, GetParam().record);
  } else {  // a float form, quantized: from here on it stays as it is
    EXPECT_EQ(dumped.substr(0, GetParam().dump_tag.size()), GetParam().dump_tag);
    EXPECT_EQ(binary_of(*layer_of<QuantizedNNLayerBuilder>(GetParam().dump_tag, dumped)), dumped);
  }
}

TEST_P(EveryLayer, DumpsTheDocumentThatItWasLoadedFrom) {
  if (GetParam().dump_tag != GetParam().type) return;
  const std::string document = xml_of(*loaded());
  EXPECT_EQ(xml_of(*GetParam().load_xml(document)), document);
}

TEST_P(EveryLayer, KeepsItsBytesFromBinaryToXmlToBinary) {
  const auto layer = loaded();
  const std::string document = xml_of(*layer);
  const auto again = layer_of_xml<QuantizedNNLayerBuilder>;
  const auto from_document =
      GetParam().dump_tag == GetParam().type ? GetParam().load_xml(document) : again(GetParam().dump_tag, document);
  EXPECT_EQ(binary_of(*from_document), binary_of(*layer));
}

TEST_P(EveryLayer, WritesAnElementWithItsTypeAndId) {
  std::istringstream text(xml_of(*loaded()));
  const XmlFile file(text);
  ASSERT_NE(file.root(), nullptr);
  EXPECT_EQ(element_name(*file.root()), "layer");
  EXPECT_EQ(find_attribute(*file.root(), "type"), GetParam().dump_tag);
  EXPECT_EQ(find_attribute(*file.root(), "id"), kId);
  EXPECT_EQ(find_attribute(*file.root(), "ref"), std::nullopt);
}

TEST_P(EveryLayer, ReadsItsRecordAndNothingBehindIt) {
  std::istringstream stream(GetParam().record + "more");
  loaded()->load_binary(stream);
  EXPECT_EQ(stream.tellg(), static_cast<std::streamoff>(GetParam().record.size()));
}

TEST_P(EveryLayer, RefusesTheRecordOfAnother) {
  std::string other = GetParam().record;
  ++other[0];
  EXPECT_EQ(failure_of<InvalidFormat>([&] { GetParam().load(other); }),
            "invalid format (expected \"" + GetParam().description + "\")");
}

TEST_P(EveryLayer, RefusesARecordThatIsCutAnywhere) {
  const std::string& record = GetParam().record;
  for (std::size_t length = 0; length < record.size(); ++length) {
    EXPECT_THROW(GetParam().load(record.substr(0, length)), BaseRuntimeError) << length;
  }
}

// Whatever stands in a record, it's refused by the engine's own exception or makes a layer that runs.
TEST_P(EveryLayer, SurvivesARecordWithAnyByteChanged) {
  const Matrix x = GetParam().input(9, 3);
  int loads = 0;
  for (std::size_t at = 0; at < GetParam().record.size(); ++at) {
    for (const int value : {0x00, 0x01, 0x40, 0x7f, 0x80, 0xff}) {
      std::string changed = GetParam().record;
      changed[at] = static_cast<char>(value);
      try {
        const auto layer = GetParam().load(changed);
        ++loads;
        EXPECT_EQ(forward(*layer, x).cols(), 3);
      } catch (const BaseRuntimeError&) {
      }
    }
  }
  EXPECT_EQ(loads > 0, GetParam().record != GetParam().type);  // no byte of a tag can change
}

TEST_P(EveryLayer, ReportsACutRecordByTheExceptionThatItsStreamWasAskedFor) {
  std::istringstream stream(GetParam().record.substr(0, GetParam().record.size() - 1));
  stream.exceptions(std::ios_base::eofbit | std::ios_base::failbit);
  const auto layer = loaded();
  EXPECT_THROW(layer->load_binary(stream), std::ios_base::failure);
}

TEST_P(EveryLayer, RefusesTheDocumentOfAnother) {
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { GetParam().load_xml("<layer type='Other' id='a'/>"); }),
            GetParam().class_name +
                "::load_xml() has been called for a wrong layer type - indicating an implementation error");
}

TEST_P(EveryLayer, RefusesADocumentWithoutAType) {
  EXPECT_EQ(failure_of<MissingTagError>([&] { GetParam().load_xml("<layer id='a'/>"); }),
            "\"type\" i mandatory in layer");
}

TEST_P(EveryLayer, NamesTheElementThatIsMissing) {
  const std::string tag = GetParam().type;
  std::string present;  // those before the one that is missing
  for (const std::string& child : GetParam().children) {
    EXPECT_EQ(failure_of<MissingTagError>(
                  [&] { GetParam().load_xml("<layer type='" + tag + "' id='a'>" + present + "</layer>"); }),
              "\"<" + child + ">\" not found in a layer of type \"" + tag + "\" ");
    if (tag.starts_with("Quantized")) break;  // what its weight holds isn't a matrix
    present += "<" + child + ">1</" + child + ">";
  }
}

TEST_P(EveryLayer, HasNoState) {
  EXPECT_EQ(loaded()->create_state(), nullptr);
  EXPECT_FALSE(loaded()->is_variable_length());
}

TEST_P(EveryLayer, TakesNoNoticeOfAState) {
  const auto layer = loaded();
  const Matrix x = GetParam().input(1, 7);
  expect_same(*layer->forward({minibatch(x)}, nullptr), *layer->forward({minibatch(x)}));
}

TEST_P(EveryLayer, DoesNotLearn) {
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { loaded()->backward(); }), "Not implemented");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { loaded()->update(); }), "Not implemented");
}

TEST_P(EveryLayer, TakesABiasJustIfItHasOne) {
  const std::string failure = failure_of<BaseRuntimeError>([&] { loaded()->set_bias(Vector::Zero(9)); });
  EXPECT_EQ(failure, GetParam().has_bias ? "Dimension mismatch in layer the layer" : "Not implemented");
}

TEST_P(EveryLayer, RefusesSeveralInputsBeforeAnythingElse) {
  const auto wrong = minibatch(Matrix::Zero(77, 1));
  const std::string text = "Layer the layer does not accept multiple input streams";
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { loaded()->forward({wrong, wrong}); }), text);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { loaded()->forward({nullptr, nullptr}); }), text);
}

TEST_P(EveryLayer, RefusesNoInput) {
  const std::string text = "No data is being provided to layer the layer";
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { loaded()->forward(LayerInputs()); }), text);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { loaded()->forward({nullptr}); }), text);
}

TEST_P(EveryLayer, RefusesFramesOfAnotherSize) {
  for (const Eigen::Index rows : {GetParam().rows - 1, GetParam().rows + 1, 2 * GetParam().rows}) {
    const auto run = [&] { loaded()->forward({minibatch(Matrix::Zero(rows, 2))}); };
    if (GetParam().any_rows) {
      EXPECT_NO_THROW(run());
    } else {
      EXPECT_EQ(failure_of<DimensionMismatchError>(run), "Dimension mismatch in layer the layer") << rows;
    }
  }
}

TEST_P(EveryLayer, GivesNoFramesForNone) {
  for (const Eigen::Index rows : {Eigen::Index{0}, GetParam().rows}) {
    EXPECT_EQ(forward(*loaded(), Matrix(rows, 0)).cols(), 0) << rows;
  }
}

TEST_P(EveryLayer, GivesAFrameForEachAndTheShapeOfItsRows) {
  for (const Eigen::Index frames : {1, 2, 31}) {
    const MinibatchPtr y = loaded()->forward({minibatch(GetParam().input(2, frames))});
    EXPECT_EQ(y->content().cols(), frames);
    EXPECT_EQ(y->shape(), Minibatch::Shape{static_cast<std::uint64_t>(y->content().rows())});
  }
}

TEST_P(EveryLayer, ComputesTheSameInChunksUnlessItLooksAtAllFrames) {
  const auto layer = loaded();
  const Matrix x = GetParam().input(3, 23);
  const Matrix whole = forward(*layer, x);
  bool same = true;
  for (const Eigen::Index chunk : {1, 2, 5, 22}) {
    for (Eigen::Index t = 0; t < x.cols(); t += chunk) {
      const Eigen::Index frames = std::min(chunk, x.cols() - t);
      same = same && forward(*layer, x.middleCols(t, frames)) == whole.middleCols(t, frames);
    }
  }
  EXPECT_EQ(same, !GetParam().over_frames);
}

TEST_P(EveryLayer, DoesNotWriteIntoItsInput) {
  const auto layer = loaded();
  const Matrix x = GetParam().input(4, 9);
  const MinibatchPtr input = minibatch(x);
  layer->forward({input});
  expect_same(*input, Minibatch(x));
}

TEST_P(EveryLayer, WritesTheSameIntoMemoryOfAnOldResult) {
  const auto layer = loaded();
  const Matrix x = GetParam().input(5, 9);
  const MinibatchPtr fresh = layer->forward({minibatch(x)});
  for (const Eigen::Index rows : {1, 40}) {
    LayerInputs inputs = {minibatch(x)};
    inputs.set_spare(minibatch(Matrix::Constant(rows, 3, kNaN)));
    expect_same(*layer->forward(inputs), *fresh);
  }
}

TEST_P(EveryLayer, GivesTheSameEachTime) {
  const auto layer = loaded();
  const Matrix x = GetParam().input(6, 9);
  const MinibatchPtr first = layer->forward({minibatch(x)});
  layer->forward({minibatch(GetParam().input(7, 4))});
  expect_same(*layer->forward({minibatch(x)}), *first);
}

TEST_P(EveryLayer, KeepsWhatIsNoNumberToItsFrame) {
  const auto layer = loaded();
  Matrix x = GetParam().input(8, 9);
  const Matrix clean = forward(*layer, x);
  x(0, 4) = kNaN;
  if (GetParam().type.ends_with("Embedding")) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*layer, x); }),
              "Index nan is not in the table of layer the layer");
    return;
  }
  const Matrix y = forward(*layer, x);
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    if (t != 4 && !GetParam().over_frames) {
      EXPECT_EQ(y.col(t), clean.col(t)) << t;
    }
  }
  // An 8-bit code can't say that it stands for no number.
  if (GetParam().table == LayerSample::Table::plain) {
    EXPECT_TRUE(std::isnan(y(0, 4)));
  }
}

TEST_P(EveryLayer, CountsItsNumbersAndProducts) {
  const LayerSize size = loaded()->size();
  const std::string type = GetParam().type;
  if (type.ends_with("FullyConnected")) {
    EXPECT_EQ(size.parameters, 6u * 5u + 6u);
    EXPECT_EQ(size.multiply_adds, 6u * 5u);
  } else {
    const std::uint64_t vectors = 5 * (type.ends_with("Embedding") ? 0 : GetParam().children.size());
    const std::uint64_t table = type.ends_with("Embedding") ? 6 * 4 : 0;
    const bool sloped = type == "Sigmoid" || type == "Tanh" || type == "Swish" || type == "GLU";
    const bool one = type.ends_with("Norm") || type == "PReLU" || type == "Softmax";
    EXPECT_EQ(size.parameters, vectors + table + (sloped ? 2 : one ? 1 : 0));
    EXPECT_EQ(size.multiply_adds, 0u);
  }
}

// Whoever adds a layer adds its sample, or says here where its promises are tested.
TEST(LayerTables, HoldNoTypeWithoutASample) {
  ensure_layer_tables();
  std::set<std::string> plain, quantized;
  for (const LayerSample& sample : layer_samples()) {
    (sample.table == LayerSample::Table::plain ? plain : quantized).insert(sample.type);
  }
  // Those that look at more than one frame or at a map have their tests beside these: "convolution".
  for (const char* type : {"Convolution1D", "Convolution2D", "CompressedConvolution2D", "Convolution3D", "MaxPooling1D",
                           "MaxPooling2D", "TDNN", "CompressedTDNN", "TransposeTDNN", "CompressedTransposeTDNN"}) {
    plain.insert(type);
  }
  for (const char* type : {"RelPosEnc", "RelMHA", "CompressedRelMHA", "Conformer", "CompressedConformer"}) {
    plain.insert(type);  // tests/meridane/conformer
  }
  for (const char* type : {"Convolution1D", "QuantizedConvolution1D"}) quantized.insert(type);
  for (const std::string type : {"AdditiveSelfAttention", "Attention", "Joint", "JointHAT", "SimpleAttention"}) {
    plain.insert(type);  // "attention"
    plain.insert("Compressed" + type);
  }
  // Those that cut and join: "shape".
  for (const char* type : {"Concat", "KeepPaceConcat", "KeepPaceMerge", "Merge", "Slice", "SliceAlongTime"}) {
    plain.insert(type);
  }
  const auto of_samples = [](std::vector<std::string> names) {
    std::erase_if(names, [](const std::string& name) { return name.ends_with("LSTM"); });  // tests/meridane/recurrent
    return std::set(names.begin(), names.end());
  };
  EXPECT_EQ(of_samples(NNLayerBuilder::names()), plain);
  EXPECT_EQ(of_samples(QuantizedNNLayerBuilder::names()), quantized);
}

TEST(LayerTables, NameATypeThatIsNotThere) {
  EXPECT_EQ(failure_of<BuilderNotFound>([] { layer_of("QuantizedFullyConnected", ""); }),
            "QuantizedFullyConnected is not registered in the builder");
}

}  // namespace
}  // namespace meridane::test
