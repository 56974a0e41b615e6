#include "lib/kernels/element_wise.h"

#include <cassert>

#include "lib/kernels/kernels.h"

namespace meridane {

void logistic(const float* x, std::size_t count, float slope, float bias, float* y) {
  best_kernels().logistic(x, count, slope, bias, y);
}

void hyperbolic_tangent(const float* x, std::size_t count, float slope, float bias, float* y) {
  best_kernels().hyperbolic_tangent(x, count, slope, bias, y);
}

void swish(const float* x, std::size_t count, float slope, float bias, float* y) {
  best_kernels().swish(x, count, slope, bias, y);
}

void gated(const float* p, const float* q, std::size_t count, float slope, float bias, float* y) {
  best_kernels().gated(p, q, count, slope, bias, y);
}

void leaky_rectifier(const float* x, std::size_t count, float a, float* y) {
  best_kernels().leaky_rectifier(x, count, a, y);
}

void softmax(const float* x, std::size_t count, float temperature, float* y) {
  assert(count > 0);
  best_kernels().softmax(x, count, temperature, y);
}

void normalise(const float* x, std::size_t count, const float* weight, const float* bias, float eps, float* y) {
  best_kernels().normalise(x, count, weight, bias, eps, y);
}

void normalise_by(const float* x, std::size_t count, float mean, float scale, const float* weight, const float* bias,
                  float* y) {
  best_kernels().normalise_by(x, count, mean, scale, weight, bias, y);
}

float sum_from(const float* x, std::size_t count, float start) { return best_kernels().sum_from(x, count, start); }

float squares_from(const float* x, std::size_t count, float start) {
  return best_kernels().squares_from(x, count, start);
}

void standardise(const float* x, std::size_t count, const float* mean, const float* scale, const float* shift,
                 float* y) {
  best_kernels().standardise(x, count, mean, scale, shift, y);
}

void add(const float* x, std::size_t count, const float* bias, float* y) { best_kernels().add(x, count, bias, y); }

void scale(const float* x, std::size_t count, const float* factor, float* y) {
  best_kernels().scale(x, count, factor, y);
}

void tap_sum(const float* x, std::size_t step, std::size_t frames, std::size_t count, std::size_t taps,
             std::size_t distance, const float* weight, const float* bias, float* y) {
  best_kernels().tap_sum(x, step, frames, count, taps, distance, weight, bias, y);
}

void lstm_cell(const float* z, std::size_t count, float* c, float* h) { best_kernels().lstm_cell(z, count, c, h); }

}  // namespace meridane
