#include "quality/report.h"

#include <iomanip>
#include <ostream>
#include <sstream>

namespace sonivo::bench {

namespace {

constexpr int kNameWidth = 8;
constexpr int kCellWidth = 11;

struct Measure {
  const char* name;
  const char* title;
  double (*of)(const Scores& scores, const Scores& unprocessed);
  int digits;
  bool of_transients_only;
};

constexpr Measure kMeasures[] = {
    {"segmental_snr_gain", "segmental SNR gain, dB",
     [](const Scores& s, const Scores& u) { return s.segmental_snr - u.segmental_snr; }, 2, false},
    {"stoi_gain", "STOI gain", [](const Scores& s, const Scores& u) { return s.stoi - u.stoi; }, 4, false},
    {"off_in_pauses", "energy of blows over what is left where they sound in pauses, dB",
     [](const Scores& s, const Scores&) { return s.off_in_pauses; }, 1, true},
    {"off_under_speech", "energy of blows over what they change under speech, dB",
     [](const Scores& s, const Scores&) { return s.off_under_speech; }, 1, true},
    {"blows_off_under_speech", "energy of blows over what is left of them under speech (blows turned round), dB",
     [](const Scores& s, const Scores&) { return s.blows_off_under_speech; }, 1, true},
};

std::string text_of(double value, int digits) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

std::string ratio_of(const Row& row) { return row.snr_db ? text_of(*row.snr_db, 0) : "mean"; }

void print_measure(std::ostream& output, const Results& results, const Measure& measure) {
  bool headed = false;
  for (const NoiseTable& table : results.noises) {
    if (measure.of_transients_only && !is_transient(table.kind)) continue;
    if (!headed) output << '\n' << measure.title << '\n';
    headed = true;
    output << std::left << std::setw(kNameWidth) << name_of(table.kind) << std::right << std::setw(6) << "SNR";
    for (const std::string& system : table.systems) output << std::setw(kCellWidth) << system;
    output << '\n';
    for (const Row& row : table.rows) {
      output << std::setw(kNameWidth + 6) << ratio_of(row);
      for (const Scores& scores : row.systems)
        output << std::setw(kCellWidth) << text_of(measure.of(scores, row.unprocessed), measure.digits);
      output << '\n';
    }
  }
}

void print_unprocessed(std::ostream& output, const Results& results) {
  if (results.noises.empty()) return;
  output << "\nunprocessed\n" << std::setw(kNameWidth + 6) << "SNR";
  output << std::setw(2 * kCellWidth) << "segmental SNR, dB" << std::setw(kCellWidth) << "STOI" << '\n';
  for (const NoiseTable& table : results.noises) {
    for (const Row& row : table.rows) {
      output << std::left << std::setw(kNameWidth) << name_of(table.kind) << std::right << std::setw(6) << ratio_of(row)
             << std::setw(2 * kCellWidth) << text_of(row.unprocessed.segmental_snr, 2) << std::setw(kCellWidth)
             << text_of(row.unprocessed.stoi, 4) << '\n';
    }
  }
}

void print_figures(std::ostream& output, const std::vector<Figure>& figures, const char* title) {
  if (figures.empty()) return;
  output << '\n' << title << '\n';
  for (const Figure& figure : figures)
    output << std::left << std::setw(22) << figure.system << std::right << std::setw(8) << text_of(figure.value, 2)
           << '\n';
}

const char* title_of(QuietTable::Kind kind) {
  switch (kind) {
    case QuietTable::Kind::microphone:
      return "speech alone, with the noise of the microphone: SI-SDR, dB";
    case QuietTable::Kind::silence:
      return "speech alone, with digital silence between the words: SI-SDR, dB";
    case QuietTable::Kind::stages:
      return "the same against what a chain of gain 1 makes of it: SI-SDR, dB";
  }
  return "";
}

/// Every voice, and the worst of each system.
void print_quiet(std::ostream& output, const QuietTable& table) {
  output << '\n' << title_of(table.kind) << '\n' << std::setw(kNameWidth + 6) << "";
  for (const std::string& system : table.systems) output << std::setw(kCellWidth) << system;
  output << '\n';
  const auto print_row = [&](const std::string& name, auto&& value) {
    output << std::left << std::setw(kNameWidth + 6) << name << std::right;
    for (std::size_t s = 0; s < table.systems.size(); ++s) output << std::setw(kCellWidth) << text_of(value(s), 1);
    output << '\n';
  };
  for (const QuietTable::Row& row : table.rows) print_row(row.voice, [&](std::size_t s) { return row.si_sdr[s]; });
  print_row("worst", [&](std::size_t s) { return table.worst(s); });
}

template <class Line>
void for_each_score(const Results& results, Line&& line) {
  for (const NoiseTable& table : results.noises) {
    for (const Measure& measure : kMeasures) {
      if (measure.of_transients_only && !is_transient(table.kind)) continue;
      for (const Row& row : table.rows) {
        for (std::size_t s = 0; s < table.systems.size(); ++s)
          line(table, row, s, measure, measure.of(row.systems[s], row.unprocessed));
      }
    }
  }
}

}  // namespace

void print_tables(std::ostream& output, const Results& results) {
  print_unprocessed(output, results);
  for (const Measure& measure : kMeasures) print_measure(output, results, measure);
  for (const QuietTable& table : results.quiet) print_quiet(output, table);
  print_figures(output, results.beam, "talker 60 degrees off axis: attenuation against the talker ahead, dB");
}

void print_tsv(std::ostream& output, const Results& results) {
  for_each_score(results,
                 [&](const NoiseTable& table, const Row& row, std::size_t s, const Measure& measure, double value) {
                   output << name_of(table.kind) << '\t' << ratio_of(row) << '\t' << table.systems[s] << '\t'
                          << measure.name << '\t' << value << '\n';
                 });
  for (const QuietTable& table : results.quiet) {
    for (std::size_t s = 0; s < table.systems.size(); ++s)
      output << table.name() << "\tworst\t" << table.systems[s] << "\tsi_sdr\t" << table.worst(s) << '\n';
  }
  for (const Figure& figure : results.beam)
    output << "beam\t\t" << figure.system << "\tattenuation\t" << figure.value << '\n';
}

void print_objective(std::ostream& output, const Results& results) {
  for_each_score(results,
                 [&](const NoiseTable& table, const Row& row, std::size_t s, const Measure& measure, double value) {
                   if (s == 0 && !row.snr_db)
                     output << name_of(table.kind) << '.' << measure.name << '=' << value << ' ';
                 });
  for (const QuietTable& table : results.quiet) {
    output << table.name() << ".si_sdr=" << table.worst(0) << ' ';
    output << table.name() << ".beamforming_si_sdr=" << table.worst(1) << ' ';
  }
  if (!results.beam.empty()) output << "beam.added=" << results.beam[0].value - results.beam[1].value << ' ';
  output << '\n';
}

}  // namespace sonivo::bench
