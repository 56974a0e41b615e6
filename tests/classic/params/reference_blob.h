#pragma once

#include <array>
#include <complex>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace sonivo::classic::reference {

/// Counts of a parameter set.
struct Shape {
  int coarse = 12;
  int fine = 55;
  int pulse = 16;
  int prm = 3;
  int ui = 2;
  int stages = 6;
};

enum class Kind { key_cancel, beam_forming };

using Taps = std::vector<double>;

/// A par file of drawn values and the blob that it has to become: bytes appended field by field in the order in which
/// they lie, each computed from the formula of its key.
class Blob {
 public:
  /// untouched: the value of bytes that nothing fills.
  Blob(Kind kind, const Shape& shape, unsigned seed, char untouched);

  /// Lines in an order of their own.
  std::string text() const;
  const std::vector<std::string>& lines() const { return lines_; }
  const std::string& bytes() const { return bytes_; }
  /// Content of filter file "flt<output><input>.bin".
  const std::array<std::array<Taps, 2>, 2>& taps() const { return taps_; }

 private:
  // Text of a key; answers what stands in it.
  double draw(const std::string& key, double lowest, double highest);
  int draw_count(const std::string& key, int lowest, int highest);
  void say(const std::string& key, const std::string& value);

  // Bytes.
  void u16(int value);
  void i32(int value);
  void f32(double value);
  void untouched(int bytes);
  void at(std::size_t offset, const std::string& what) const;

  // Fields with a key.
  void count(const std::string& key, int lowest = 0, int highest = 60000);
  void real(const std::string& key);
  void gain(const std::string& key);
  void level(const std::string& key);
  void coefficient(const std::string& key, double hop);
  void frames(const std::string& key, double hop);
  template <typename Element>
  void array(const std::string& name, int entries, int places, int bytes_each, Element element);
  void reals(const std::string& name, int entries, int places);
  void gains(const std::string& name, int entries, int places);
  void levels(const std::string& name, int entries, int places);
  void coefficients(const std::string& name, int entries, int places, double hop);
  void counts(const std::string& name, int entries, int places, int lowest = 0, int highest = 60000);

  // Blocks.
  void bounds(const std::string& name, int groups, int places, int highest);
  void bands(const std::string& prefix, int nbin, int highest);
  void input_filter();
  void analysis(const std::string& prefix, int H, int N);
  void synthesis(int H, int N);
  void pwr(const std::string& prefix, int nbin, double hop);
  void nl(const std::string& prefix, int nbin, double hop);
  void nl2();
  void vds();
  std::array<float, 4> curve(const std::string& prefix);
  void slopes(const std::array<float, 4>& curve);
  void noise_path(std::size_t shift);
  void noise_common();
  void noise_reduction();
  void two_beam_noise_reduction();
  void pulse_suppressor();
  void pulse_path(std::size_t shift);
  void filters();

  Shape shape_;
  char untouched_;
  std::mt19937 random_;
  std::vector<std::string> lines_;
  std::string bytes_;
  std::array<std::array<Taps, 2>, 2> taps_;
};

/// Coefficients b0, b1, b2, -a1, -a2 of an input filter section at 48 kHz.
std::array<double, 5> biquad(int type, double Q, double f0, double G);

double analysis_window(int i, int H, int N);
double synthesis_window(int j, int H, int N);

}  // namespace sonivo::classic::reference
