// How good the classic chains are, against public noise suppressors over the same recordings, which are made on the
// spot. Prints tables and a verdict on each target; ends with 1 when one is missed or nothing can be measured.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "quality/params.h"
#include "quality/report.h"

namespace {

using namespace sonivo;

struct Options {
  std::optional<std::string> key_cancel;
  std::optional<std::string> beam_forming;
  std::vector<std::string> only;
  std::string cache = "build/quality";
  std::string tsv;
  bool objective = false;
  bool follow = false;
  bool quick = false;
};

void write_tsv(const std::string& path, const bench::Results& results) {
  std::ofstream file(path);
  bench::print_tsv(file, results);
  if (!file.flush()) throw std::runtime_error("cannot write '" + path + "'");
}

/// Measures the parameter files that standard input names, one a line, and answers each with a line.
void follow(const bench::QualitySet& set, bench::Plan& plan) {
  for (std::string path; std::getline(std::cin, path);) {
    if (path.ends_with("beamforming.par")) {
      plan.beam_forming = bench::read_params<classic::BeamFormingKeyCancelParam>(path, "beamforming");
    } else {
      plan.key_cancel = bench::read_params<classic::KeyCancelParam>(path, "keycancel");
    }
    bench::print_objective(std::cout, set.measure(plan));
    std::cout.flush();
  }
}

bool run(const Options& options) {
  bench::Plan plan;
  plan.key_cancel = bench::read_params<classic::KeyCancelParam>(options.key_cancel, "keycancel");
  plan.beam_forming = bench::read_params<classic::BeamFormingKeyCancelParam>(options.beam_forming, "beamforming");
  plan.only = options.only;
  plan.alone = options.objective || options.follow;
  plan.quick = options.quick;
  plan.cache = options.cache;
  const bench::QualitySet set(plan);
  if (options.follow) {
    follow(set, plan);
    return true;
  }
  const bench::Results results = set.measure(plan);
  if (!options.tsv.empty()) write_tsv(options.tsv, results);
  if (options.objective) {
    bench::print_objective(std::cout, results);
    return true;
  }
  bench::print_tables(std::cout, results);
  const auto verdicts = bench::verdicts(results);
  bench::print_verdicts(std::cout, verdicts);
  return std::all_of(verdicts.begin(), verdicts.end(), [](const bench::Verdict& verdict) { return verdict.met(); });
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Measures the classic chains against public noise suppressors.", "quality");
  app.footer("Example:\n  quality --params-keycancel share/par/keycancel.par --only keys\n");
  Options options;
  app.add_option("--params-keycancel", options.key_cancel, "parameters of the key-cancel chain (default: the shipped)")
      ->type_name("BLOB|PAR");
  app.add_option("--params-beamforming", options.beam_forming, "those of the beamforming chain (default: the shipped)")
      ->type_name("BLOB|PAR");
  app.add_option("--only", options.only, "parts of the whole")
      ->type_name("NAME")
      ->check(CLI::IsMember(bench::part_names()));
  app.add_option("--cache", options.cache, "folder of the spoken voices (default build/quality)")->type_name("FOLDER");
  app.add_option("--tsv", options.tsv, "write every figure into this file")->type_name("FILE");
  app.add_flag("--objective", options.objective, "without the peers; all figures in one line, no verdict");
  app.add_flag("--follow", options.follow,
               "for tuning: measures the par files named on standard input, answers each with such a line");
  app.add_flag("--quick", options.quick, "two voices at 5 dB only");
  try {
    app.parse(argc, argv);
    return run(options) ? 0 : 1;
  } catch (const CLI::Success& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& error) {
    std::cerr << "error: " << error.what() << '\n';
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "error: " << error.what() << '\n';
    return 1;
  }
}
