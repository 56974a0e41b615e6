// In the language alone, for machines of any kind.

#include "lib/kernels/code_table.h"

namespace meridane {
namespace {

struct PortableMachine {
  static constexpr std::size_t kLanes = 4;
  using Floats = Vector<float, 4>;
  using Ints = Vector<std::int32_t, 4>;

  static Ints truncated(Floats v) {
    Ints ints{};
    for (std::size_t i = 0; i < kLanes; ++i) {
      const bool fits = v[i] >= -0x1p31f && v[i] < 0x1p31f;
      ints[i] = fits ? static_cast<std::int32_t>(v[i]) : INT32_MIN;
    }
    return ints;
  }
  static MERIDANE_INLINE Floats with_sign_of(Floats v, float magnitude) { return sign_and_magnitude<4>(v, magnitude); }
  static Vector<std::uint8_t, 16> low_bytes(Ints a, Ints b, Ints c, Ints d) {
    const Ints all[] = {a, b, c, d};
    Vector<std::uint8_t, 16> bytes{};
    for (std::size_t i = 0; i < 16; ++i) bytes[i] = static_cast<std::uint8_t>(all[i / kLanes][i % kLanes] & 0xff);
    return bytes;
  }
  static Ints add_bytes(Ints sum, Vector<std::uint8_t, 16> bytes) {
    for (std::size_t i = 0; i < 16; ++i) sum[i % kLanes] += bytes[i];
    return sum;
  }
};

struct PortableProduct {
  static constexpr std::size_t kLanes = 1, kHeight = 8, kParts = 1;

  static void multiply(const Product<std::int32_t>& product) {
    const PanelShape panels{.rows = product.rows, .columns = product.columns, .lanes = kLanes, .height = kHeight};
    for (std::size_t t = 0; t < product.frames; ++t) {
      const std::int32_t* const x = product.x + t * product.x_stride;
      for (std::size_t first = 0; first < product.rows; first += kHeight) {
        const std::size_t height = panels.height_at(first);
        std::uint32_t sums[kHeight] = {};
        for (std::size_t i = 0; i < height && product.start != nullptr; ++i) {
          sums[i] = static_cast<std::uint32_t>(product.start[t * product.start_stride + first + i]);
        }
        const std::int32_t* w = product.w + panels.place(first, product.begin);
        for (std::size_t k = product.begin; k < product.end; ++k, w += height) {
          for (std::size_t i = 0; i < height; ++i) sums[i] += dot(w[i], x[k - product.begin]);
        }
        for (std::size_t i = 0; i < height; ++i) {
          product.y[t * product.y_stride + first + i] = static_cast<std::int32_t>(sums[i]);
        }
      }
    }
  }

 private:
  /// Of four unsigned and four signed bytes.
  static std::uint32_t dot(std::int32_t w, std::int32_t x) {
    std::int32_t sum = 0;
    for (int byte = 0; byte < 32; byte += 8) sum += ((w >> byte) & 0xff) * static_cast<std::int8_t>(x >> byte);
    return static_cast<std::uint32_t>(sum);
  }
};

}  // namespace

constinit const CodeKernels kPortableCodeKernels = code_kernels_of<PortableMachine, PortableProduct>("portable");

}  // namespace meridane
