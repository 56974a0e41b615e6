// Which type names there are. A new layer is one line here.

#include "lib/framescore/nnlayer/additive_self_attention.h"
#include "lib/framescore/nnlayer/attention.h"
#include "lib/framescore/nnlayer/batchnorm.h"
#include "lib/framescore/nnlayer/bias.h"
#include "lib/framescore/nnlayer/blstm.h"
#include "lib/framescore/nnlayer/concat.h"
#include "lib/framescore/nnlayer/conformer.h"
#include "lib/framescore/nnlayer/convolution1d.h"
#include "lib/framescore/nnlayer/embedding.h"
#include "lib/framescore/nnlayer/fullyconnected.h"
#include "lib/framescore/nnlayer/globallayernorm.h"
#include "lib/framescore/nnlayer/glu.h"
#include "lib/framescore/nnlayer/joint.h"
#include "lib/framescore/nnlayer/jointhat.h"
#include "lib/framescore/nnlayer/keep_pace.h"
#include "lib/framescore/nnlayer/layernorm.h"
#include "lib/framescore/nnlayer/lcblstm.h"
#include "lib/framescore/nnlayer/lstm.h"
#include "lib/framescore/nnlayer/map_convolution.h"
#include "lib/framescore/nnlayer/maxpooling.h"
#include "lib/framescore/nnlayer/merge.h"
#include "lib/framescore/nnlayer/prelu.h"
#include "lib/framescore/nnlayer/print.h"
#include "lib/framescore/nnlayer/prod.h"
#include "lib/framescore/nnlayer/quantized_fullyconnected.h"
#include "lib/framescore/nnlayer/rel_mha.h"
#include "lib/framescore/nnlayer/rel_pos_enc.h"
#include "lib/framescore/nnlayer/relu.h"
#include "lib/framescore/nnlayer/shared_memory.h"
#include "lib/framescore/nnlayer/sigmoid.h"
#include "lib/framescore/nnlayer/simple_attention.h"
#include "lib/framescore/nnlayer/slice.h"
#include "lib/framescore/nnlayer/slice_along_time.h"
#include "lib/framescore/nnlayer/softmax.h"
#include "lib/framescore/nnlayer/swish.h"
#include "lib/framescore/nnlayer/tanh.h"
#include "lib/framescore/nnlayer/tdnn.h"
#include "lib/framescore/nnlayer/transposetdnn.h"
#include "lib/framescore/nnlayer/ulstm.h"
#include "meridane/framescore/nnlayer/builders.h"

namespace meridane {
namespace {

/// The layer, with what its element says, or the stream where there is no element.
template <class Layer>
std::shared_ptr<NNLayer> loaded(std::shared_ptr<Layer> layer, const XmlElement* element, std::istream& stream) {
  if (element == nullptr) {
    layer->load_binary(stream);
  } else {
    layer->load_xml(*element);
  }
  return layer;
}

template <class Layer>
NNLayerFactory factory(const std::string& type) {
  return [type](const std::string& id, const XmlElement* element, std::istream& stream) {
    return loaded(std::make_shared<Layer>(id, type), element, stream);
  };
}

template <class Layer>
bool plain(const std::string& type) {
  return NNLayerBuilder::regist(type, factory<Layer>(type));
}

template <class Layer>
bool quantized(const std::string& type) {
  return QuantizedNNLayerBuilder::regist(type, factory<Layer>(type)) &&
         QuantizedNNLayerBuilder::regist("Quantized" + type, factory<Layer>("Quantized" + type));
}

template <class Layer>
bool shared(const std::string& type) {
  const auto make = [type](const std::string& id, const SMManager& manager, const XmlElement* element,
                           std::istream& stream) {
    return loaded(std::make_shared<SharedMemory<Layer>>(id, type, manager), element, stream);
  };
  const auto find = [type](const std::string& id, const SMManager& manager) {
    auto layer = std::make_shared<SharedMemory<Layer>>(id, type, manager);
    layer->load_shared_memory();
    return std::shared_ptr<NNLayer>(layer);
  };
  return SMNNLayerBuilder::regist(type, make) && SMNNLayerFinder::regist(type, find);
}

[[maybe_unused]] const bool registered_layers[] = {
    plain<AdditiveSelfAttentionLayer>("AdditiveSelfAttention"),
    plain<AttentionLayer>("Attention"),
    plain<BLSTMLayer>("BLSTM"),
    plain<BatchNormLayer>("BatchNorm"),
    plain<BiasLayer>("Bias"),
    plain<ConcatLayer>("Concat"),
    plain<ConformerLayer>("Conformer"),
    plain<Convolution1DLayer>("Convolution1D"),
    plain<Convolution2DLayer>("Convolution2D"),
    plain<Convolution3DLayer>("Convolution3D"),
    plain<EmbeddingLayer>("Embedding"),
    plain<FullyConnectedLayer>("FullyConnected"),
    plain<GLULayer>("GLU"),
    plain<GlobalLayerNormLayer>("GlobalLayerNorm"),
    plain<JointHATLayer>("JointHAT"),
    plain<JointLayer>("Joint"),
    plain<KeepPaceConcatLayer>("KeepPaceConcat"),
    plain<KeepPaceMergeLayer>("KeepPaceMerge"),
    plain<LCBLSTMLayer>("LCBLSTM"),
    plain<LSTMLayer>("LSTM"),
    plain<LayerNormLayer>("LayerNorm"),
    plain<MaxPooling1DLayer>("MaxPooling1D"),
    plain<MaxPooling2DLayer>("MaxPooling2D"),
    plain<MergeLayer>("Merge"),
    plain<PReLULayer>("PReLU"),
    plain<PrintLayer>("Print"),
    plain<ProdLayer>("Prod"),
    plain<ReLULayer>("ReLU"),
    plain<RelMHALayer>("RelMHA"),
    plain<RelPositionalEncodingLayer>("RelPosEnc"),
    plain<SigmoidLayer>("Sigmoid"),
    plain<SimpleAttentionLayer>("SimpleAttention"),
    plain<SliceLayer>("Slice"),
    plain<SliceAlongTime>("SliceAlongTime"),
    plain<SoftmaxLayer>("Softmax"),
    plain<SwishLayer>("Swish"),
    plain<TDNNLayer>("TDNN"),
    plain<TanhLayer>("Tanh"),
    plain<TransposeTDNNLayer>("TransposeTDNN"),
    plain<ULSTMLayer>("ULSTM"),

    plain<CompressedAdditiveSelfAttentionLayer>("CompressedAdditiveSelfAttention"),
    plain<CompressedAttentionLayer>("CompressedAttention"),
    plain<CompressedBLSTMLayer>("CompressedBLSTM"),
    plain<CompressedBatchNormLayer>("CompressedBatchNorm"),
    plain<CompressedConformerLayer>("CompressedConformer"),
    plain<CompressedConvolution2DLayer>("CompressedConvolution2D"),
    plain<CompressedEmbeddingLayer>("CompressedEmbedding"),
    plain<CompressedFullyConnectedLayer>("CompressedFullyConnected"),
    plain<CompressedGlobalLayerNormLayer>("CompressedGlobalLayerNorm"),
    plain<CompressedJointHATLayer>("CompressedJointHAT"),
    plain<CompressedJointLayer>("CompressedJoint"),
    plain<CompressedLCBLSTMLayer>("CompressedLCBLSTM"),
    plain<CompressedLSTMLayer>("CompressedLSTM"),
    plain<CompressedLayerNormLayer>("CompressedLayerNorm"),
    plain<CompressedProdLayer>("CompressedProd"),
    plain<CompressedRelMHALayer>("CompressedRelMHA"),
    plain<CompressedSimpleAttentionLayer>("CompressedSimpleAttention"),
    plain<CompressedTDNNLayer>("CompressedTDNN"),
    plain<CompressedTransposeTDNNLayer>("CompressedTransposeTDNN"),
    plain<CompressedULSTMLayer>("CompressedULSTM"),

    quantized<QuantizedBLSTMLayer>("BLSTM"),
    quantized<QuantizedConvolution1DLayer>("Convolution1D"),
    quantized<QuantizedFullyConnectedLayer>("FullyConnected"),
    quantized<QuantizedLCBLSTMLayer>("LCBLSTM"),
    quantized<QuantizedLSTMLayer>("LSTM"),
    quantized<QuantizedULSTMLayer>("ULSTM"),

    shared<AdditiveSelfAttentionLayer>("AdditiveSelfAttention"),
    shared<BLSTMLayer>("BLSTM"),
    shared<Convolution3DLayer>("Convolution3D"),
    shared<EmbeddingLayer>("Embedding"),
    shared<FullyConnectedLayer>("FullyConnected"),
    shared<LCBLSTMLayer>("LCBLSTM"),
    shared<LSTMLayer>("LSTM"),
    shared<PReLULayer>("PReLU"),
    shared<PrintLayer>("Print"),
    shared<ReLULayer>("ReLU"),
    shared<SoftmaxLayer>("Softmax"),
};

}  // namespace

void ensure_layer_tables() {}

}  // namespace meridane
