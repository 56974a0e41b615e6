#include "classic/fft.h"

#include <array>
#include <bit>
#include <cassert>
#include <cmath>
#include <numbers>
#include <vector>

#include "classic/fft_plan.h"

namespace sonivo::classic {
namespace {

constexpr std::array<std::size_t, 5> kSizes{64, 128, 256, 512, 1024};

std::size_t index_of(std::size_t points) {
  assert(std::has_single_bit(points) && points >= kSizes.front() && points <= kSizes.back());
  return static_cast<std::size_t>(std::countr_zero(points / kSizes.front()));
}

// The twiddles of one size, on a boundary of 64 bytes.
class Twiddles {
 public:
  explicit Twiddles(std::size_t points) : lines_((kMiddleTwiddles + 3 * points) / kLineFloats) {
    const auto [first, middle] = fft_plan(points);
    for (std::size_t p = 0; p < first; ++p) {
      for (std::size_t r = 1; r < middle; ++r) {
        put(std::cos(angle(p * r, first * middle)));
        put(std::sin(angle(p * r, first * middle)));
      }
    }
    next_ = kMiddleTwiddles;
    for (const std::size_t s : {std::size_t{4}, std::size_t{1}}) {
      for (std::size_t r = 1; r < 4; ++r) {
        for (std::size_t i = 0; i < points / 4; ++i) put(std::cos(angle(i / s * r, points / s)));
        for (std::size_t i = 0; i < points / 4; ++i) put(std::sin(angle(i / s * r, points / s)));
      }
    }
  }
  const float* data() const { return lines_.front().data; }

 private:
  static constexpr std::size_t kLineFloats = 16;
  struct alignas(64) Line {
    float data[kLineFloats];
  };

  static double angle(std::size_t k, std::size_t n) {
    return -2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(n);
  }
  void put(double value) {
    lines_[next_ / kLineFloats].data[next_ % kLineFloats] = static_cast<float>(value);
    ++next_;
  }

  std::vector<Line> lines_;
  std::size_t next_ = 0;
};

const float* twiddles_of(std::size_t points) {
  static const std::array<Twiddles, kSizes.size()> tables{Twiddles(kSizes[0]), Twiddles(kSizes[1]), Twiddles(kSizes[2]),
                                                          Twiddles(kSizes[3]), Twiddles(kSizes[4])};
  return tables[index_of(points)].data();
}

}  // namespace

Fft::Fft(std::size_t points, const Kernels& kernels)
    : points_(points), kernels_(kernels), twiddles_(twiddles_of(points)) {}

const Fft& Fft::of(std::size_t points) {
  static const std::array<Fft, kSizes.size()> transforms{Fft(kSizes[0], best_kernels()), Fft(kSizes[1], best_kernels()),
                                                         Fft(kSizes[2], best_kernels()), Fft(kSizes[3], best_kernels()),
                                                         Fft(kSizes[4], best_kernels())};
  return transforms[index_of(points)];
}

}  // namespace sonivo::classic
