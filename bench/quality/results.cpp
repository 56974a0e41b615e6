#include "quality/results.h"

#include <algorithm>
#include <iterator>

#include "peers/classic.h"
#include "peers/peers.h"
#include "quality/free_field.h"
#include "quality/parallel.h"

namespace sonivo::bench {

namespace {

constexpr std::size_t kQuickVoices = 2;
constexpr double kQuickSnrsDb[] = {5};

Row mean_row(std::span<const Row> rows, std::optional<double> snr_db) {
  Row result;
  result.snr_db = snr_db;
  std::vector<Scores> column;
  for (const Row& row : rows) column.push_back(row.unprocessed);
  result.unprocessed = mean(column);
  for (std::size_t s = 0; s < rows[0].systems.size(); ++s) {
    column.clear();
    for (const Row& row : rows) column.push_back(row.systems[s]);
    result.systems.push_back(mean(column));
  }
  return result;
}

NoiseTable score_all(const Recordings& set, std::span<const System> systems) {
  std::vector<Row> single(set.recordings.size());
  in_parallel(single.size(), [&](std::size_t i) {
    single[i].unprocessed = set.unprocessed[i];
    for (const System& system : systems) single[i].systems.push_back(score(system, set.recordings[i]));
  });

  NoiseTable table{set.kind, {}, {}};
  for (const System& system : systems) table.systems.push_back(system.name);
  const std::size_t voices = single.size() / set.snrs_db.size();
  for (std::size_t s = 0; s < set.snrs_db.size(); ++s)
    table.rows.push_back(mean_row(std::span(single).subspan(s * voices, voices), set.snrs_db[s]));
  table.rows.push_back(mean_row(std::vector(table.rows), std::nullopt));
  return table;
}

std::vector<Figure> measure_quiet(std::span<const System> systems, std::span<const Voice> voices) {
  std::vector<Figure> figures(systems.size());
  in_parallel(systems.size(), [&](std::size_t s) {
    figures[s] = {systems[s].name, 1e9};
    for (const Voice& voice : voices)
      figures[s].value = std::min(figures[s].value, quiet_si_sdr(systems[s], voice.speech));
  });
  return figures;
}

struct Array {
  std::string name;
  std::size_t microphones;
  std::function<std::unique_ptr<Enhancer>()> start;
};

std::vector<Array> arrays(const Plan& plan) {
  std::vector<Array> all{{"sonivo beamforming", 2, [&plan] { return beam_forming(plan.beam_forming); }},
                         {"sonivo keycancel", 1, [&plan] { return key_cancel(plan.key_cancel, 1); }}};
  if (!plan.alone) {
    const WebRtcParts parts{.noise_suppression = true, .transient_suppressor = true, .beamformer = true};
    all.push_back({"webrtc+ts+bf", 2, [parts] { return webrtc(2, parts, kSpacing); }});
  }
  return all;
}

std::vector<Figure> measure_beam(const Plan& plan, std::span<const Voice> voices) {
  const auto all = arrays(plan);
  std::vector<Figure> figures;
  for (const Array& array : all) figures.push_back({array.name, 0});
  std::vector<std::vector<double>> values(voices.size());
  in_parallel(voices.size(), [&](std::size_t v) {
    const FreeField field(voices[v].speech, voices[(v + 1) % voices.size()].speech, v % 2 == 0);
    for (const Array& array : all) values[v].push_back(interferer_attenuation(array.start, array.microphones, field));
  });
  for (const auto& row : values) {
    for (std::size_t a = 0; a < all.size(); ++a) figures[a].value += row[a] / static_cast<double>(voices.size());
  }
  return figures;
}

}  // namespace

std::vector<std::string> part_names() {
  std::vector<std::string> names;
  for (const NoiseKind kind : kNoiseKinds) names.emplace_back(name_of(kind));
  names.emplace_back("quiet");
  names.emplace_back("beam");
  return names;
}

Recordings::Recordings(NoiseKind noise_kind, std::span<const Voice> voices, std::span<const double> snrs)
    : kind(noise_kind), snrs_db(snrs.begin(), snrs.end()) {
  std::vector<Noise> noises(voices.size());
  in_parallel(voices.size(), [&](std::size_t v) { noises[v] = make_noise(kind, v, voices); });
  for (const double snr_db : snrs_db) {
    for (std::size_t v = 0; v < voices.size(); ++v) recordings.emplace_back(voices[v].speech, noises[v], kind, snr_db);
  }
  unprocessed.resize(recordings.size());
  in_parallel(recordings.size(), [&](std::size_t i) { unprocessed[i] = bench::unprocessed(recordings[i]); });
}

QualitySet::QualitySet(const Plan& plan) : voices_(speak(plan.cache)) {
  if (plan.quick) voices_.resize(kQuickVoices);
  const std::span<const double> snrs = plan.quick ? std::span<const double>(kQuickSnrsDb) : std::span(kSnrsDb);
  for (const NoiseKind kind : kNoiseKinds) {
    if (plan.wants(name_of(kind))) recordings_.emplace_back(kind, voices_, snrs);
  }
}

Results QualitySet::measure(const Plan& plan) const {
  const auto steady = systems(plan.key_cancel, false, plan.alone, voices_[0].speech);
  const auto transient = systems(plan.key_cancel, true, plan.alone, voices_[0].speech);
  Results results;
  for (const Recordings& set : recordings_)
    results.noises.push_back(score_all(set, is_transient(set.kind) ? transient : steady));
  if (plan.wants("quiet")) results.quiet = measure_quiet(transient, voices_);
  if (plan.wants("beam")) results.beam = measure_beam(plan, voices_);
  return results;
}

}  // namespace sonivo::bench
