#include "lib/framescore/nnlayer/lstm_direction.h"

#include <algorithm>
#include <vector>

#include "lib/framescore/nnlayer/count.h"
#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {
namespace {

// Frames whose gates are started by one product: whole tiles of it, and few enough for their gates to stay in a cache.
constexpr Eigen::Index kGateBlock = 48;

/// Memory of a thread for the gates of a block of frames, what the output of a frame adds to them, the cells, and an
/// output that isn't written where it is made.
struct LSTMScratch {
  std::vector<float> gates, lateral, c, h;
};

int number(Eigen::Index size) { return static_cast<int>(size); }

}  // namespace

void LSTMMemory::clear() {
  h.setZero();
  c.setZero();
}

void LSTMDirection::matrices(ParameterVisitor& visitor, const std::string& prefix) {
  if (in_codes_) {
    visitor.quantized((prefix + "upward_qweight").c_str(), upward_codes_);
  } else {
    visitor.weight((prefix + "upward_weight").c_str(), upward_weight_);
  }
  visitor.vector((prefix + "upward_bias").c_str(), upward_bias_);
  if (in_codes_) {
    visitor.quantized((prefix + "lateral_qweight").c_str(), lateral_codes_);
  } else {
    visitor.weight((prefix + "lateral_weight").c_str(), lateral_weight_);
  }
}

void LSTMDirection::parameters(ParameterVisitor& visitor, const std::string& prefix) {
  matrices(visitor, prefix);
  if (has_lateral_bias_) visitor.vector((prefix + "lateral_bias").c_str(), lateral_bias_);
}

void LSTMDirection::nested_parameters(ParameterVisitor& visitor, const char* element) {
  visitor.begin(element, nullptr);
  visitor.begin("layer", "QuantizedLSTM");
  matrices(visitor, "");
  visitor.end();
  visitor.vector("lateral_bias", lateral_bias_);
  visitor.end();
}

void LSTMDirection::check(const char* type, const std::string& prefix) const {
  const Eigen::Index lateral_rows = in_codes_ ? lateral_codes_.size_major : lateral_weight_.rows();
  const Eigen::Index upward_rows = in_codes_ ? upward_codes_.size_major : upward_weight_.rows();
  if (lateral_rows < 4 || lateral_rows % 4 != 0 || lateral_rows / 4 != cells()) {
    const std::string name = prefix + (in_codes_ ? "lateral_qweight" : "lateral_weight");
    raise("\"<%s>\" is not 4N x N matrix a layer of type \"%s\" ", name.c_str(), type);
  }
  if (upward_rows != upward_bias_.size() || upward_rows != lateral_rows) {
    raise("Numbers of rows of upward_weight [%d], upward_bias [%d] and lateral_weight [%d] do not match",
          number(upward_rows), number(upward_bias_.size()), number(lateral_rows));
  }
  if (has_lateral_bias_ && upward_bias_.size() != lateral_bias_.size()) {
    raise("Size of upward_bias [%d] and lateral_bias [%d] do not match ", number(upward_bias_.size()),
          number(lateral_bias_.size()));
  }
}

void LSTMDirection::quantize() {
  if (in_codes_) return;
  const auto codes_of = [](Weight& weight) {
    QuantizedMatrix codes = QuantizedMatrix::of_rows(weight.map().data(), weight.rows(), weight.cols());
    weight = Weight();
    return codes;
  };
  upward_codes_ = codes_of(upward_weight_);
  lateral_codes_ = codes_of(lateral_weight_);
  in_codes_ = true;
}

void LSTMDirection::multiply_upward(const float* x, Eigen::Index frames, float* z) const {
  if (in_codes_) {
    upward_codes_.multiply(x, count(rows()), count(frames), nullptr, z, count(4 * cells()));
  } else {
    upward_weight_.multiply(x, rows(), frames, nullptr, z, 4 * cells());
  }
}

/// Frame after frame in turns of both ways through the matrix: its end is still in the cache.
void LSTMDirection::multiply_lateral(const float* h, float* z, bool backwards) const {
  if (in_codes_) {
    lateral_codes_.multiply(h, count(cells()), 1, nullptr, z, count(4 * cells()));
  } else if (backwards) {
    lateral_weight_.multiply_backwards(h, cells(), 1, nullptr, z, 4 * cells());
  } else {
    lateral_weight_.multiply(h, cells(), 1, nullptr, z, 4 * cells());
  }
}

/// The order of the sum is part of the layer.
void LSTMDirection::sum_gates(const float* lateral, float* z) const {
  const std::size_t gates = count(4 * cells());
  add(lateral, gates, z, z);
  add(z, gates, upward_bias_.data(), z);
  if (has_lateral_bias_) add(z, gates, lateral_bias_.data(), z);
}

void LSTMDirection::run(const float* x, Eigen::Index frames, Order order, LSTMMemory& memory, float* y,
                        Eigen::Index y_stride, Output output) const {
  if (frames == 0) return;
  const Eigen::Index N = cells();
  const bool reversed = order == Order::reversed;
  thread_local LSTMScratch scratch;
  scratch.gates.resize(count(std::min(frames, kGateBlock) * 4 * N));
  scratch.lateral.resize(count(4 * N));
  scratch.c.assign(memory.c.begin(), memory.c.end());
  scratch.h.assign(memory.h.begin(), memory.h.end());
  const float* h = scratch.h.data();
  for (Eigen::Index done = 0; done < frames; done += kGateBlock) {
    const Eigen::Index block = std::min(kGateBlock, frames - done);
    const Eigen::Index first = reversed ? frames - done - block : done;
    multiply_upward(x + first * rows(), block, scratch.gates.data());
    for (Eigen::Index i = 0; i < block; ++i) {
      const Eigen::Index k = reversed ? block - 1 - i : i;
      float* const z = scratch.gates.data() + k * 4 * N;
      float* const column = y == nullptr ? nullptr : y + (first + k) * y_stride;
      float* const out = column != nullptr && output == Output::written ? column : scratch.h.data();
      multiply_lateral(h, scratch.lateral.data(), i % 2 != 0);
      sum_gates(scratch.lateral.data(), z);
      lstm_cell(z, count(N), scratch.c.data(), out);
      h = out;
      if (column != nullptr && output == Output::added) VectorMap(column, N) += Eigen::Map<const Vector>(h, N);
    }
  }
  memory.h = Eigen::Map<const Vector>(h, N);
  memory.c = VectorMap(scratch.c.data(), N);
}

}  // namespace meridane
