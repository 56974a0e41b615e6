#include "quality/measure.h"

#include "apps/tool/quality.h"
#include "apps/tool/stoi.h"

namespace sonivo::bench {

namespace {

/// Frames that are pauses, as are three on either side.
std::vector<bool> inside_pauses(const Signal& speech) {
  constexpr std::size_t kApart = 3;
  const auto quiet = pauses(speech);
  std::vector<bool> inside = quiet;
  for (std::size_t f = 0; f < quiet.size(); ++f) {
    for (std::size_t g = f < kApart ? 0 : f - kApart; g <= f + kApart && g < quiet.size(); ++g)
      inside[f] = inside[f] && quiet[g];
  }
  return inside;
}

Signal difference(const Signal& a, const Signal& b, double gain = 1) {
  Signal result(a.size());
  add(result, a, gain);
  add(result, b, -gain);
  return result;
}

double energy_of(const Signal& signal, const std::vector<bool>& frames) {
  double sum = 0;
  for (std::size_t f = 0; f < frames.size(); ++f) {
    if (frames[f]) sum += energy(frame(signal, f));
  }
  return sum;
}

void score_against(const Signal& speech, const Signal& heard, Scores& scores) {
  scores.segmental_snr = tool::segmental_snr(speech, heard, kRateHz).value();
  scores.stoi = tool::stoi(speech, heard, kRateHz).value();
}

void score_blows(const System& system, const Recording& recording, const Signal& heard, Scores& scores) {
  const auto pause = inside_pauses(recording.speech);
  const auto quiet = pauses(recording.speech);
  std::vector<bool> in_pause = recording.blows;
  std::vector<bool> under_speech = recording.blows;
  for (std::size_t f = 0; f < in_pause.size(); ++f) {
    in_pause[f] = in_pause[f] && pause[f];
    under_speech[f] = under_speech[f] && !quiet[f];
  }
  const auto heard_with = [&](double gain) {
    const Signal other = recording.with_noise(gain);
    return enhance(*system.start(), {&other, 1}, system.delay, recording.presses);
  };
  const auto off = [&](const std::vector<bool>& frames, const Signal& left) {
    return decibel(energy_of(recording.noise, frames) / energy_of(left, frames));
  };
  scores.off_in_pauses = off(in_pause, heard);
  scores.off_under_speech = off(under_speech, difference(heard, heard_with(-1)));
  scores.blows_off_under_speech = off(under_speech, difference(heard, heard_with(-2), 0.5));
}

}  // namespace

Scores mean(std::span<const Scores> scores) {
  Scores sum;
  const double share = 1.0 / static_cast<double>(scores.size());
  for (const Scores& s : scores) {
    sum.segmental_snr += share * s.segmental_snr;
    sum.stoi += share * s.stoi;
    sum.off_in_pauses += share * s.off_in_pauses;
    sum.off_under_speech += share * s.off_under_speech;
    sum.blows_off_under_speech += share * s.blows_off_under_speech;
  }
  return sum;
}

Scores unprocessed(const Recording& recording) {
  Scores scores;
  score_against(recording.speech, recording.mixture, scores);
  return scores;
}

Scores score(const System& system, const Recording& recording) {
  Scores scores;
  const Signal heard = enhance(*system.start(), {&recording.mixture, 1}, system.delay, recording.presses);
  score_against(recording.speech, heard, scores);
  if (!recording.blows.empty()) score_blows(system, recording, heard, scores);
  return scores;
}

Signal heard_from(const System& system, const Signal& recorded) {
  return enhance(*system.start(), std::vector<Signal>(system.microphones, recorded), system.delay);
}

double si_sdr_of(const Signal& speech, const Signal& heard) { return tool::si_sdr(speech, heard).value(); }

}  // namespace sonivo::bench
