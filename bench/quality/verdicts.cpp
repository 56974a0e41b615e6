#include <algorithm>
#include <iomanip>
#include <limits>
#include <ostream>

#include "quality/report.h"

namespace sonivo::bench {

namespace {

constexpr double kOffInPausesDb = 12;
constexpr double kOffUnderSpeechDb = 6;
constexpr double kQuietSiSdrDb = 20;
constexpr double kAddedByBeamsDb = 4;

/// The best of the peers.
double best_peer(const Row& row, double Scores::*measure) {
  double best = -std::numeric_limits<double>::infinity();
  for (std::size_t s = 1; s < row.systems.size(); ++s) best = std::max(best, row.systems[s].*measure);
  return best;
}

void judge_stationary(const NoiseTable& table, std::vector<Verdict>& verdicts) {
  const Row& row = table.rows.back();
  const std::string noise = name_of(table.kind);
  const Scores& u = row.unprocessed;
  verdicts.push_back({noise + ": segmental SNR gain, dB, level with the best peer",
                      row.systems[0].segmental_snr - u.segmental_snr,
                      best_peer(row, &Scores::segmental_snr) - u.segmental_snr});
  verdicts.push_back({noise + ": STOI gain, level with the best peer", row.systems[0].stoi - u.stoi,
                      best_peer(row, &Scores::stoi) - u.stoi});
}

/// A muted microphone would leave nothing of the keys; so what goes missing of the speech is judged, too.
void judge_keys(const Row& row, std::vector<Verdict>& verdicts) {
  const Scores& ours = row.systems[0];
  verdicts.push_back({"keys: off their energy in pauses, dB", ours.off_in_pauses, kOffInPausesDb});
  verdicts.push_back({"keys: off their energy under speech, dB", ours.blows_off_under_speech, kOffUnderSpeechDb});
}

}  // namespace

std::vector<Verdict> verdicts(const Results& results) {
  std::vector<Verdict> all;
  for (const NoiseTable& table : results.noises) {
    const Row& row = table.rows.back();
    if (is_stationary(table.kind) && row.systems.size() > 1) judge_stationary(table, all);
    if (table.kind == NoiseKind::keys) judge_keys(row, all);
  }
  for (const QuietTable& table : results.quiet) {
    if (table.kind == QuietTable::Kind::silence) continue;  // limited by the framing, not by what the stages do
    const std::string part = table.kind == QuietTable::Kind::stages ? "silence, against gain 1" : "quiet";
    for (const std::size_t chain : {0u, 1u})
      all.push_back({part + ": SI-SDR behind " + table.systems[chain] + ", dB", table.worst(chain), kQuietSiSdrDb});
  }
  if (!results.beam.empty())
    all.push_back({"beam: attenuation of an interferer that the beams add, dB",
                   results.beam[0].value - results.beam[1].value, kAddedByBeamsDb});
  return all;
}

void print_verdicts(std::ostream& output, const std::vector<Verdict>& verdicts) {
  output << "\n"
         << std::left << std::setw(62) << "target" << std::right << std::setw(10) << "measured" << std::setw(10)
         << "at least" << '\n';
  for (const Verdict& verdict : verdicts) {
    output << std::left << std::setw(62) << verdict.demand << std::right << std::fixed << std::setprecision(4)
           << std::setw(10) << verdict.measured << std::setw(10) << verdict.limit << "  "
           << (verdict.met() ? "met" : "missed") << '\n';
  }
}

}  // namespace sonivo::bench
