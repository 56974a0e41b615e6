#include "quality/results.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <utility>

#include "peers/classic.h"
#include "peers/peers.h"
#include "quality/free_field.h"
#include "quality/parallel.h"
#include "quality/zero_frames.h"

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

QuietTable measure_quiet(std::span<const System> systems, std::span<const Voice> voices) {
  QuietTable table{QuietTable::Kind::microphone, {}, std::vector<QuietTable::Row>(voices.size())};
  for (const System& system : systems) table.systems.push_back(system.name);
  in_parallel(voices.size(), [&](std::size_t v) {
    const auto& [name, speech] = voices[v];
    Signal recorded = speech;
    add(recorded, self_noise(speech.size()));
    table.rows[v].voice = name;
    for (const System& system : systems)
      table.rows[v].si_sdr.push_back(si_sdr_of(speech, heard_from(system, recorded)));
  });
  return table;
}

/// Silence and what the stages alone have in it. The first two systems are our chains.
std::array<QuietTable, 2> measure_silence(std::span<const System> systems, std::span<const Voice> voices) {
  constexpr std::size_t kFraming = 96;  // of blocks of 480 in frames of 192: no part of the chain's own delay
  constexpr ZeroTest kTests[] = {ZeroTest::last_sample, ZeroTest::all_samples};
  QuietTable silence{QuietTable::Kind::silence, {}, std::vector<QuietTable::Row>(voices.size())};
  QuietTable stages{QuietTable::Kind::stages, {}, silence.rows};
  for (const System& system : systems) silence.systems.push_back(system.name);
  silence.systems.insert(silence.systems.end(), {"gain 1", "gain 1 bf"});
  stages.systems = {systems[0].name, systems[1].name};
  in_parallel(voices.size(), [&](std::size_t v) {
    const auto& [name, speech] = voices[v];
    silence.rows[v].voice = stages.rows[v].voice = name;
    std::vector<double> best;
    for (std::size_t s = 0; s < systems.size(); ++s) {
      const Signal heard = heard_from(systems[s], speech);
      silence.rows[v].si_sdr.push_back(si_sdr_of(speech, heard));
      if (s >= std::size(kTests)) continue;
      const Signal passed = unchanged(speech, systems[s].delay - kFraming, kTests[s]);
      best.push_back(si_sdr_of(speech, passed));
      stages.rows[v].si_sdr.push_back(si_sdr_of(passed, heard));
    }
    silence.rows[v].si_sdr.insert(silence.rows[v].si_sdr.end(), best.begin(), best.end());
  });
  return {silence, stages};
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

const char* QuietTable::name() const {
  switch (kind) {
    case Kind::microphone:
      return "quiet";
    case Kind::silence:
      return "silence";
    case Kind::stages:
      return "stages";
  }
  return "";
}

double QuietTable::worst(std::size_t system) const {
  double lowest = std::numeric_limits<double>::infinity();
  for (const Row& row : rows) lowest = std::min(lowest, row.si_sdr[system]);
  return lowest;
}

std::vector<std::string> part_names() {
  std::vector<std::string> names;
  for (const NoiseKind kind : kNoiseKinds) names.emplace_back(name_of(kind));
  names.emplace_back("quiet");
  names.emplace_back("silence");
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
  auto quiet = transient;
  quiet.insert(quiet.begin() + 1, beam_forming_system(plan.beam_forming, voices_[0].speech));
  if (plan.wants("quiet")) results.quiet.push_back(measure_quiet(quiet, voices_));
  if (plan.wants("silence")) {
    for (QuietTable& table : measure_silence(quiet, voices_)) results.quiet.push_back(std::move(table));
  }
  if (plan.wants("beam")) results.beam = measure_beam(plan, voices_);
  return results;
}

}  // namespace sonivo::bench
