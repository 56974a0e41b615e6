#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/matrix.h"

// Records of layers as a program that knows only the format would write them, and layers made of them.

namespace meridane::test {

/// binary16 of a value that it holds exactly: a multiple of 2^-10 below 2 in magnitude, or 0.
inline std::uint16_t exact_half(float value) {
  int exponent = 0;
  const float fraction = std::frexp(std::fabs(value), &exponent);  // in 0.5 to 1
  const auto sign = static_cast<std::uint16_t>(std::signbit(value) ? 0x8000 : 0);
  if (value == 0) return sign;
  const int mantissa = static_cast<int>(std::ldexp(fraction, 11)) - 1024;
  return static_cast<std::uint16_t>(sign | (exponent + 14) << 10 | mantissa);
}

/// The bytes of a record, field after field.
class Record {
 public:
  explicit Record(const std::string& tag = {}) : bytes_(tag) {}

  template <class Number>
  Record& number(Number value) {
    char raw[sizeof value];
    std::memcpy(raw, &value, sizeof value);
    bytes_.append(raw, sizeof value);
    return *this;
  }
  Record& real(double value) { return number(static_cast<float>(value)); }
  Record& text(const std::string& value) {
    number<std::uint64_t>(value.size());
    bytes_ += value;
    return *this;
  }
  Record& matrix(const Matrix& m) {
    return size(m).values(m, [this](float x) { number(x); });
  }
  Record& half_matrix(const Matrix& m) {
    return size(m).values(m, [this](float x) { number(exact_half(x)); });
  }
  Record& matrix(const Matrix& m, bool half) { return half ? half_matrix(m) : matrix(m); }

  const std::string& bytes() const { return bytes_; }

 private:
  Record& size(const Matrix& m) { return number<std::int64_t>(m.rows()).number<std::int64_t>(m.cols()); }
  template <class Write>
  Record& values(const Matrix& m, Write write) {
    for (Eigen::Index i = 0; i < m.rows(); ++i) {
      for (Eigen::Index k = 0; k < m.cols(); ++k) write(m(i, k));
    }
    return *this;
  }

  std::string bytes_;
};

inline constexpr const char* kId = "the layer";

/// A layer of a table of factories, from its record.
template <class Table = NNLayerBuilder>
std::shared_ptr<NNLayer> layer_of(const std::string& type, const std::string& record) {
  ensure_layer_tables();
  std::istringstream stream(record);
  return Table::build(type, kId, nullptr, stream);
}

/// The same from the text of its element.
template <class Table = NNLayerBuilder>
std::shared_ptr<NNLayer> layer_of_xml(const std::string& type, const std::string& element) {
  ensure_layer_tables();
  std::istringstream text(element);
  const XmlFile file(text);
  std::istringstream none;
  return Table::build(type, kId, file.root(), none);
}

inline std::string binary_of(const NNLayer& layer) {
  std::ostringstream stream;
  layer.dump_binary(stream);
  return stream.str();
}

inline std::string xml_of(const NNLayer& layer) {
  std::ostringstream stream;
  layer.dump_xml_stream(stream);
  return stream.str();
}

inline MinibatchPtr minibatch(const Matrix& content) { return std::make_shared<Minibatch>(content); }

inline Matrix forward(const NNLayer& layer, const Matrix& x) { return layer.forward({minibatch(x)})->content(); }

/// Numbers between -1 and 1, all multiples of 2^-10: sums and products of a few of them are exact, and half precision
/// holds them.
class Dice {
 public:
  explicit Dice(unsigned seed) : state_(seed * 2654435761u + 1) {}

  float value() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<float>(static_cast<int>(state_ >> 53) - 1024) / 1024.0f;
  }
  Matrix matrix(Eigen::Index rows, Eigen::Index cols, float scale = 1) {
    return Matrix::NullaryExpr(rows, cols, [&](Eigen::Index, Eigen::Index) { return scale * value(); });
  }

 private:
  std::uint64_t state_;
};

/// What f() fails with; "nothing failed" if it doesn't.
template <class Error = std::exception, class F>
std::string failure_of(F f) {
  try {
    f();
  } catch (const Error& error) {
    return error.what();
  }
  return "nothing failed";
}

}  // namespace meridane::test
