#pragma once

#include <vector>

#include "../layers/layer_record.h"
#include "../tensor/naive_quantizing.h"

// LSTMs in double precision, a value at a time, and their records.

namespace meridane::test {

using Exact = Eigen::MatrixXd;

struct ExactMemory {
  explicit ExactMemory(Eigen::Index cells) : h(Exact::Zero(cells, 1)), c(Exact::Zero(cells, 1)) {}
  Exact h, c;
};

/// The parameters of one direction, of numbers that half precision holds.
struct Direction {
  Direction(Dice& dice, Eigen::Index cells, Eigen::Index rows)
      : upward(dice.matrix(4 * cells, rows)),
        bias(dice.matrix(4 * cells, 1)),
        lateral(dice.matrix(4 * cells, cells)),
        lateral_bias(dice.matrix(4 * cells, 1)) {}

  Eigen::Index cells() const { return lateral.cols(); }

  Matrix upward, bias, lateral, lateral_bias;
  bool has_lateral_bias = true;
  bool in_codes = false;
};

inline double sigmoid(double a) { return 1 / (1 + std::exp(-a)); }

/// w x, with both in 8 bits if it says so.
inline Exact product(const Matrix& w, const Exact& x, bool in_codes) {
  if (!in_codes) return w.cast<double>() * x;
  const naive::Line frame = naive::quantized(x.cast<float>().col(0));
  Exact y(w.rows(), 1);
  for (Eigen::Index i = 0; i < w.rows(); ++i) {
    y(i) = static_cast<double>(naive::product(naive::quantized(w.row(i).transpose()), frame));
  }
  return y;
}

/// The outputs for the frames in the order in which they stand.
inline Exact run(const Direction& p, const Exact& x, ExactMemory& memory) {
  const Eigen::Index N = p.cells();
  Exact y(N, x.cols());
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    Exact z = product(p.lateral, memory.h, p.in_codes) + product(p.upward, x.col(t), p.in_codes);
    z += p.bias.cast<double>();
    if (p.has_lateral_bias) z += p.lateral_bias.cast<double>();
    for (Eigen::Index k = 0; k < N; ++k) {
      const double g = std::tanh(z(k)), i = sigmoid(z(N + k)), f = sigmoid(z(2 * N + k)), o = sigmoid(z(3 * N + k));
      memory.c(k) = g * i + f * memory.c(k);
      memory.h(k) = o * std::tanh(memory.c(k));
    }
    y.col(t) = memory.h;
  }
  return y;
}

inline Exact run_reversed(const Direction& p, const Exact& x, ExactMemory& memory) {
  return run(p, x.rowwise().reverse(), memory).rowwise().reverse();
}

/// An 8-bit matrix as its record has it.
inline void add_codes(Record& record, const Matrix& w) {
  const auto rows = static_cast<std::int32_t>(w.rows()), cols = static_cast<std::int32_t>(w.cols());
  const std::int32_t lines = (rows + 3) / 4 * 4, codes = (cols + 15) / 16 * 16;
  std::vector<naive::Line> quantized;
  for (Eigen::Index i = 0; i < rows; ++i) quantized.push_back(naive::quantized(w.row(i).transpose()));
  record.number(rows).number(cols).number(lines).number(codes);
  record.number<std::int64_t>(rows).number<std::int64_t>(1);
  for (const auto& line : quantized) record.number(line.s);
  record.number<std::int64_t>(rows);
  for (const auto& line : quantized) record.number(line.r);
  record.number<std::int64_t>(rows);
  for (const auto& line : quantized) record.number(line.sum);
  for (std::int32_t i = 0; i < lines; ++i) {
    for (std::int32_t k = 0; k < codes; ++k) {
      const bool real = i < rows && k < cols;
      record.number<std::uint8_t>(real ? quantized[static_cast<std::size_t>(i)].codes[static_cast<std::size_t>(k)] : 0);
    }
  }
}

enum class Form { plain, half, codes };

inline std::string prefix_of(Form form) {
  return form == Form::plain ? "" : form == Form::half ? "Compressed" : "Quantized";
}

inline Record& add_direction(Record& record, const Direction& p, Form form) {
  const bool half = form == Form::half;
  const auto add_matrix = [&](const Matrix& w) {
    if (form == Form::codes) {
      add_codes(record, w);
    } else {
      record.matrix(w, half);
    }
  };
  add_matrix(p.upward);
  record.matrix(p.bias, half);
  add_matrix(p.lateral);
  if (p.has_lateral_bias) record.matrix(p.lateral_bias, half);
  return record;
}

/// A layer of a record in that form.
inline std::shared_ptr<NNLayer> layer_in(Form form, const std::string& type, const std::string& record) {
  return form == Form::codes ? layer_of<QuantizedNNLayerBuilder>(type, record) : layer_of(type, record);
}

inline std::shared_ptr<NNLayer> layer_in_xml(Form form, const std::string& type, const std::string& element) {
  return form == Form::codes ? layer_of_xml<QuantizedNNLayerBuilder>(type, element) : layer_of_xml(type, element);
}

inline Matrix step(const NNLayer& layer, const Matrix& x, const std::shared_ptr<NNLayerState>& state) {
  return layer.forward({minibatch(x)}, state)->content();
}

/// What comes out when the frames are fed in calls of that many, the last one maybe fewer.
inline Matrix in_chunks(const NNLayer& layer, const Matrix& x, Eigen::Index chunk,
                        const std::shared_ptr<NNLayerState>& state) {
  Matrix all(0, 0);
  for (Eigen::Index t = 0; t < x.cols(); t += chunk) {
    const Matrix y = step(layer, x.middleCols(t, std::min(chunk, x.cols() - t)), state);
    Matrix joined(y.rows(), all.cols() + y.cols());
    if (all.cols() > 0) joined.leftCols(all.cols()) = all;
    joined.rightCols(y.cols()) = y;
    all = joined;
  }
  return all;
}

inline double distance(const Matrix& found, const Exact& wanted) {
  if (found.rows() != wanted.rows() || found.cols() != wanted.cols()) return 1e30;
  return found.cols() == 0 ? 0 : (found.cast<double>() - wanted).cwiseAbs().maxCoeff();
}

/// A dozen roundings of gates below 8, each 2^-22, damped by the slope of the sigmoid.
inline constexpr double kRounding = 2e-6;

}  // namespace meridane::test
