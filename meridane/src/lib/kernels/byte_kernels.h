#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace meridane {

struct CodeKernels;

/// What quantizing one line gives beside its codes.
struct LineCodes {
  float scale;        ///< s
  std::int32_t zero;  ///< r = round(s min x)
  std::int32_t sum;   ///< of the codes
};

/// Quantizes a line x of `count` values (at least 1) to 8 bits: with minimum m and maximum M, s = 255 / (M - m) if they
/// differ, else 1 / m if m is not 0, else 255; r = round(s m); code k = low byte of trunc(round(s x[k]) - float(r)).
/// round takes ties away from zero. Fills up with 0 to `padded` codes. Same codes on every machine: a value that no
/// 32-bit int can hold becomes the least one, and a line with something that is no number has such a scale and codes 0.
LineCodes quantize_line(const float* x, std::size_t count, std::size_t padded, std::uint8_t* codes);

/// What the floats of a product need of each line of the weights: scale, zero point r, and S + N r with the sum S of
/// its N codes, wrapping at 32 bits.
struct WeightLines {
  std::size_t count;
  const float* scales;
  const std::int32_t* zeros;
  const std::int32_t* offsets;
};

/// y(i) = float(d(i) + Sx r(i) + rx offset(i)) / (sx s(i)), the integers wrapping at 32 bits, plus bias(i) unless it is
/// null. x: the frame. bias may be y. Same floats on every machine.
void restore_products(const std::int32_t* d, const LineCodes& frame, const WeightLines& lines, const float* bias,
                      float* y);

/// 8-bit codes of a constant weight matrix in the order in which the product reads them.
class PackedCodes {
 public:
  PackedCodes() = default;
  /// codes: lines x line_codes, line after line; line_codes is a multiple of 16.
  PackedCodes(const std::uint8_t* codes, std::size_t lines, std::size_t line_codes);
  /// For kernels other than the best of this machine.
  PackedCodes(const std::uint8_t* codes, std::size_t lines, std::size_t line_codes, const CodeKernels& kernels);

  /// D(i, t) = sum over k of W(i, k) X(k, t), wrapping at 32 bits. X: frames x line_codes codes, frame after frame;
  /// D: column t begins at D + t * lines. Same integers on every machine.
  void multiply(const std::uint8_t* x, std::size_t frames, std::int32_t* d) const;

 private:
  const CodeKernels* kernels_ = nullptr;
  std::shared_ptr<const std::int32_t> packed_;  // panels of words of four codes, then what each line starts from
  std::size_t lines_ = 0;
  std::size_t line_codes_ = 0;
};

}  // namespace meridane
