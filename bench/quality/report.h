#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "quality/results.h"

namespace sonivo::bench {

/// Tables for people.
void print_tables(std::ostream& output, const Results& results);

/// Every figure in a line of its own: part, ratio in dB or "mean", system, measure, value; tab-separated.
void print_tsv(std::ostream& output, const Results& results);

/// All of ours in one line of name=value, means over the signal-to-noise ratios.
void print_objective(std::ostream& output, const Results& results);

/// What is demanded, and what was measured.
struct Verdict {
  std::string demand;
  double measured;
  double limit;  ///< at least
  bool met() const { return measured >= limit; }
};

/// Those that the results allow.
std::vector<Verdict> verdicts(const Results& results);
void print_verdicts(std::ostream& output, const std::vector<Verdict>& verdicts);

}  // namespace sonivo::bench
