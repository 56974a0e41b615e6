#pragma once

#include <cstddef>

// The element-wise loops of the layers: one pass, no temporary. y may be x; otherwise arrays don't overlap. The
// exponential is within 2 ulp of exp over the range where the result is a normal number; what is no number stays so,
// infinities give the limits of the formulas where there is one.

namespace meridane {

/// y[i] = 1 / (1 + exp(-(slope x[i] - bias)))
void logistic(const float* x, std::size_t count, float slope, float bias, float* y);
/// y[i] = tanh(slope x[i] - bias)
void hyperbolic_tangent(const float* x, std::size_t count, float slope, float bias, float* y);
/// y[i] = x[i] / (1 + exp(-(slope x[i] - bias)))
void swish(const float* x, std::size_t count, float slope, float bias, float* y);
/// y[i] = p[i] / (1 + exp(-(slope q[i] - bias)))
void gated(const float* p, const float* q, std::size_t count, float slope, float bias, float* y);
/// y[i] = max(0, x[i]) + a min(0, x[i])
void leaky_rectifier(const float* x, std::size_t count, float a, float* y);
/// y[i] = exp((x[i] - max x) / temperature) / sum of these; count at least 1
void softmax(const float* x, std::size_t count, float temperature, float* y);
/// y[i] = (x[i] - m) / sqrt(v + eps) weight[i] + bias[i] with the mean m and variance v (divided by count) of x
void normalise(const float* x, std::size_t count, const float* weight, const float* bias, float eps, float* y);
/// y[i] = (x[i] - mean) scale weight[i] + bias[i]
void normalise_by(const float* x, std::size_t count, float mean, float scale, const float* weight, const float* bias,
                  float* y);
/// Sum of x[i] - start
float sum_from(const float* x, std::size_t count, float start);
/// Sum of (x[i] - start)^2
float squares_from(const float* x, std::size_t count, float start);
/// y[i] = (x[i] - mean[i]) scale[i] + shift[i]
void standardise(const float* x, std::size_t count, const float* mean, const float* scale, const float* shift,
                 float* y);
/// y[i] = x[i] + bias[i]
void add(const float* x, std::size_t count, const float* bias, float* y);
/// y[i] = x[i] factor[i]
void scale(const float* x, std::size_t count, const float* factor, float* y);
/// y[t count + i] = bias[i] + sum over k of weight[k count + i] x[t step + k distance + i] for so many frames t and
/// taps k, at least one
void tap_sum(const float* x, std::size_t step, std::size_t frames, std::size_t count, std::size_t taps,
             std::size_t distance, const float* weight, const float* bias, float* y);
/// One step of an LSTM of `count` cells, whose gates before their functions are the four blocks g, i, f, o of z:
/// c[k] = tanh(g[k]) s(i[k]) + s(f[k]) c[k], then h[k] = s(o[k]) tanh(c[k]), with s(a) = 1 / (1 + exp(-a))
void lstm_cell(const float* z, std::size_t count, float* c, float* h);

}  // namespace meridane
