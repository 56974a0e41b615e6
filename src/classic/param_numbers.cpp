#include "classic/param_numbers.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <type_traits>

#include "classic/par_source.h"
#include "classic/par_tables.h"

namespace sonivo::classic {

namespace {

using Fault = std::optional<std::string>;

/// Of any number: 200 dB. Two such gains one behind the other don't overflow with anything that is audio.
constexpr float kHighest = 1e10f;

bool all_finite(std::span<const float> numbers) {
  return std::all_of(numbers.begin(), numbers.end(), [](float x) { return std::isfinite(x); });
}

bool all_within(std::span<const float> numbers, float highest) {
  return std::all_of(numbers.begin(), numbers.end(), [&](float x) { return std::abs(x) <= highest; });
}

/// What is wrong with the number of a key, if anything. A recursive level or gain with a coefficient beyond 1 grows
/// without end.
const char* fault_of(const Conversion& conversion, float number) {
  if (!std::isfinite(number)) return " makes no finite number";
  if (std::abs(number) > kHighest) return " makes a number beyond 1e10";
  if (conversion.unit == Unit::ms_coefficient && std::abs(number) > 1.0f) return " is less than half a frame";
  return nullptr;
}

/// Numbers of keys, as far as the counts of bands lead.
Fault fault_of(const BlockPlace& block, const BandCounts& counts, const std::byte* blob) {
  int own = 0;
  for (const Field& field : block.fields) {
    const std::byte* const first = blob + block.offset + field.offset;
    if (field.limit != nullptr && field.type == FieldType::u16) {
      std::uint16_t count = 0;
      std::memcpy(&count, first, sizeof count);
      own = count;
    }
    if (field.type != FieldType::f32 || !field.conversion) continue;
    for (std::size_t row = 0; row < field.rows; ++row) {
      for (std::size_t i = 0; i < entries_of(field, counts, own); ++i) {
        float number = 0;
        std::memcpy(&number, first + (row * field.columns + i) * sizeof number, sizeof number);
        const char* const fault = fault_of(*field.conversion, number);
        if (fault == nullptr) continue;
        const std::string name = field.rows > 1 ? indexed(field.name, row) : field.name;
        return block.prefix + indexed(name, i) + fault;
      }
    }
  }
  return std::nullopt;
}

Fault fault_of_windows(const char* name, const AnaBlock& ana, const SynBlock& syn) {
  const auto analysis = std::span(ana.window).first(static_cast<std::size_t>(ana.fft));
  const auto synthesis = std::span(syn.window).first(2 * static_cast<std::size_t>(syn.hop));
  const std::string window = std::string("a window of ") + name;
  if (!all_finite(analysis) || !all_finite(synthesis)) return window + " is not finite";
  if (!all_within(analysis, kHighest) || !all_within(synthesis, kHighest)) return window + " is beyond 1e10";
  return std::nullopt;
}

Fault fault_of(const char* name, const BandTable& table) {
  const auto inv_width = std::span(table.inv_width).first(table.nbin);
  if (!all_finite(inv_width)) return std::string("a width of ") + name + " is not finite";
  if (!all_within(inv_width, 1.0f)) return std::string("a width of ") + name + " is less than a bin";
  return std::nullopt;
}

/// Within or on the triangle of the coefficients that have no pole outside of the unit circle.
bool is_stable(const BiquadCoefficients& section) {
  const double a1 = -double{section.minus_a1};
  const double a2 = -double{section.minus_a2};
  return std::abs(a2) <= 1 && std::abs(a1) <= 1 + a2;
}

Fault fault_of(const AinBlock& ain) {
  for (std::size_t i = 0; i < ain.stage_num; ++i) {
    const auto& [b0, b1, b2, minus_a1, minus_a2] = ain.coefficients[i];
    const float numbers[] = {b0, b1, b2, minus_a1, minus_a2};
    if (!all_finite(numbers)) return indexed("the filter of ain.Q[%d] and ain.f0[%d] is not finite", i, i);
    if (!all_within(numbers, kHighest)) {
      return indexed("the filter of ain.Q[%d] and ain.f0[%d] makes a number beyond 1e10", i, i);
    }
    if (!is_stable(ain.coefficients[i])) {
      return indexed("the filter of ain.Q[%d] and ain.f0[%d] is not stable", i, i);
    }
  }
  return std::nullopt;
}

/// Segments of the curve that no value lies in may have any slope.
Fault fault_of_curve(const std::string& name, float thi1, float thi2, const float (&slope)[3]) {
  const bool finite =
      (thi1 <= 0 || std::isfinite(slope[0])) && (thi2 <= thi1 || std::isfinite(slope[1])) && std::isfinite(slope[2]);
  if (finite) return std::nullopt;
  return "a slope of " + name + "_thi1 to " + name + "_tho2 is not finite";
}

Fault fault_of_filters(const KeyCancelParam&) { return std::nullopt; }
Fault fault_of_filters(const BeamFormingKeyCancelParam& param) {
  for (std::size_t output = 0; output < kBeams; ++output) {
    for (std::size_t input = 0; input < kBeams; ++input) {
      for (const auto& partition : param.filter[output][input]) {
        for (const ComplexFloat& bin : partition) {
          const float numbers[] = {bin.re, bin.im};
          if (all_within(numbers, kHighest)) continue;
          return indexed(all_finite(numbers) ? "fd_fbf_ain_flt[%d][%d] makes a number beyond 1e10"
                                             : "fd_fbf_ain_flt[%d][%d] makes no finite number",
                         output, input);
        }
      }
    }
  }
  return std::nullopt;
}

template <typename Param>
Fault fault_of_numbers(const Param& param) {
  const PulsePath& pulse = param.pulse;
  const BandCounts counts{param.head.syk1.nbin, param.head.syk2.nbin, pulse.syk_pulse.nbin, pulse.syk_pulse_prm.nbin,
                          pulse.syk_pulse_prm_ui.nbin};
  for (const BlockPlace& block : layout(param)) {
    if (Fault fault = fault_of(block, counts, reinterpret_cast<const std::byte*>(&param))) return fault;
  }
  if (Fault fault = fault_of("syk1", param.head.syk1)) return fault;
  if (Fault fault = fault_of("syk2", param.head.syk2)) return fault;
  if (Fault fault = fault_of("syk_pulse", pulse.syk_pulse)) return fault;
  if (Fault fault = fault_of(param.head.ain)) return fault;
  if (Fault fault = fault_of_windows("ana", param.noise.ana, param.noise.syn)) return fault;
  if (Fault fault = fault_of_windows("ana_pulse", pulse.ana_pulse, pulse.syn_pulse)) return fault;
  const NsNrCommon& ns_nr = param.ns_nr.common;
  const PulseSupBlock& sup = pulse.pulse_sup;
  if (Fault fault = fault_of_curve("ns_nr.gn_nl", ns_nr.gn_nl_thi1, ns_nr.gn_nl_thi2, ns_nr.gn_nl_slope)) return fault;
  if (Fault fault = fault_of_curve("ns_nr.avg_g", ns_nr.avg_g_thi1, ns_nr.avg_g_thi2, ns_nr.avg_g_slope)) return fault;
  if (Fault fault = fault_of_curve("pulse_sup.avg_g", sup.avg_g_thi1, sup.avg_g_thi2, sup.avg_g_slope)) return fault;
  return fault_of_filters(param);
}

}  // namespace

std::optional<std::string> harmful_number(const KeyCancelParam& param) { return fault_of_numbers(param); }
std::optional<std::string> harmful_number(const BeamFormingKeyCancelParam& param) { return fault_of_numbers(param); }

}  // namespace sonivo::classic
