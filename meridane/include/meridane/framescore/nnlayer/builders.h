#pragma once

#include <functional>

#include "meridane/builder.h"
#include "meridane/framescore/nnlayer/nnlayer.h"
#include "meridane/io/sm_manager.h"

namespace meridane {

/// Makes a layer from its element, or from the stream where the element is null.
using NNLayerFactory =
    std::function<std::shared_ptr<NNLayer>(const std::string& id, const XmlElement* element, std::istream& stream)>;
using NNLayerBuilder = Builder<struct NNLayerTag, NNLayer, NNLayerFactory>;
/// Layers with 8-bit weights. The plain names read the float form and quantize it, the Quantized ones the stored form.
using QuantizedNNLayerBuilder = Builder<struct QuantizedNNLayerTag, NNLayer, NNLayerFactory>;

/// Makes a layer with its parameters in shared memory.
using SMNNLayerFactory = std::function<std::shared_ptr<NNLayer>(const std::string& id, const SMManager& manager,
                                                                const XmlElement* element, std::istream& stream)>;
using SMNNLayerBuilder = Builder<struct SMNNLayerTag, NNLayer, SMNNLayerFactory>;
/// Makes a layer on parameters that are in shared memory already.
using SMNNLayerFind = std::function<std::shared_ptr<NNLayer>(const std::string& id, const SMManager& manager)>;
using SMNNLayerFinder = Builder<struct SMNNLayerFinderTag, NNLayer, SMNNLayerFind>;

/// Does nothing but make sure that the program holds the tables' contents: call it before the first look-up.
void ensure_layer_tables();

}  // namespace meridane
