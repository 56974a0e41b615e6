#pragma once

namespace meridane {

// What the normalisations say of vectors that don't fit; %s is the layer's id.
inline constexpr const char* kNormDimensions =
    "The number of dimensions of the weight and bias vectors for layer %s is incorrect";
inline constexpr const char* kNormShape = "The shape of the weight and bias vectors for layer %s is incorrect";

}  // namespace meridane
