#include "apps/tool/params_command.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <sstream>

#include "../classic/params/built_in_text.h"
#include "apps/tool/command_line.h"
#include "classic/blob_file.h"
#include "classic/built_in_params.h"
#include "classic/par_listing.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

using classic::BeamFormingKeyCancelParam;
using classic::KeyCancelParam;
using classic::test::built_in_text;

/// The built-in set with what the second beam needs.
std::string beam_forming_text() {
  std::string text = built_in_text();
  for (const std::string name :
       {"g_floor_nn", "noi_ns_sub_coef_voice", "noi_ns_sub_coef_noise", "noi_nn_sub_coef_voice",
        "noi_nn_sub_coef_noise", "sig_nn_sub_coef_voice", "sig_nn_sub_coef_noise"}) {
    for (int i = 0; i < 12; ++i) text += "ns_nr." + name + "[" + std::to_string(i) + "] = 1\n";
  }
  text += "ns_nr.noise_mix_w[0] = 0\nns_nr.noise_mix_w[1] = 1\nns_nr.nn_mgn_voice = 1\nns_nr.nn_mgn_noise = 1\n";
  text += "ns_nr.nbin_avg_g_L = 2\nns_nr.nbin_avg_g_H = 50\n";
  for (const std::string pair : {"[0][0]", "[0][1]", "[1][0]", "[1][1]"}) {
    text += "fd_fbf_ain_flt" + pair + " = taps.bin\n";
  }
  return text;
}

struct Outcome {
  int exit_code = 0;
  std::string output;
  std::string errors;
};

Outcome run(const std::vector<std::string>& arguments) {
  std::ostringstream output;
  std::ostringstream errors;
  const int exit_code = run_command_line(arguments, output, errors);
  return {exit_code, output.str(), errors.str()};
}

class ParamsCommand : public testing::Test {
 protected:
  Outcome build(const std::string& kind, const std::string& text) {
    folder_.write("in.par", text);
    return run({"params", "build", kind, par_, blob_});
  }

  void expect_failure(const Outcome& outcome, const std::string& output, const std::string& error) {
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.output, output);
    EXPECT_EQ(outcome.errors, "error: " + error + "\n");
    EXPECT_FALSE(std::filesystem::exists(blob_));
  }

  const TemporaryFolder folder_;
  const std::string par_ = folder_ / "in.par";
  const std::string blob_ = folder_ / "out.blob";
};

TEST_F(ParamsCommand, BuildsAKeyCancelBlob) {
  const Outcome outcome = build("keycancel", built_in_text());
  EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "");
  KeyCancelParam expected = classic::NrModelParam();
  expected.version_minor = 4;
  EXPECT_EQ(bytes_of_file(blob_), std::string(reinterpret_cast<const char*>(&expected), sizeof expected));
  EXPECT_EQ(folder_.entries(), (std::vector<std::string>{"in.par", "out.blob"}));
}

TEST_F(ParamsCommand, BuildsABeamFormingBlob) {
  folder_.write("taps.bin", std::string(3072, '\0'));
  const Outcome outcome = build("beamforming", beam_forming_text());
  EXPECT_EQ(outcome.exit_code, 0) << outcome.output << outcome.errors;
  const auto param = std::make_unique<BeamFormingKeyCancelParam>();
  ASSERT_EQ(classic::load_blob(blob_, *param), classic::BlobFileResult::done);
  EXPECT_EQ(param->version_major, 1);
  EXPECT_EQ(param->ns_nr.nbin_avg_g_H, 50);
  EXPECT_EQ(std::memcmp(&param->noise, &classic::NrModelParam().noise, sizeof param->noise), 0);
}

TEST_F(ParamsCommand, NamesTheKeysThatAreMissingAndWritesNothing) {
  std::string text = built_in_text();
  for (const std::string key : {"vds.th_coef = ", "paramID = "}) {
    text.insert(text.find(key), "#");
  }
  expect_failure(build("keycancel", text),
                 "vds.th_coef is not include par file\nparamID is not include par file\nparametre error\n",
                 "'" + par_ + "' makes no blob; mend the keys named on standard output");
  EXPECT_EQ(folder_.entries(), std::vector<std::string>{"in.par"});
}

TEST_F(ParamsCommand, KeepsAnOlderBlobWhenItFails) {
  folder_.write("out.blob", "older");
  folder_.write("in.par", "");
  EXPECT_EQ(run({"params", "build", "keycancel", par_, blob_}).exit_code, 1);
  EXPECT_EQ(bytes_of_file(blob_), "older");
}

TEST_F(ParamsCommand, RefusesTooManyGroupsAndTooManyBandsInOne) {
  const std::string error =
      "no chain can run on '" + par_ +
      "': pulse_sup has more than 3 groups, more than 3 bands in one or a band outside; mend the keys that say so";
  // The first line of a key counts.
  expect_failure(build("keycancel", "pulse_sup.npm_num = 4\n" + built_in_text()),
                 "npm_num must be less than NS_NR_MAX_NPM_NUM", error);
  for (const std::string group : {"0", "2"}) {  // the second of them is not in use
    expect_failure(build("keycancel", "pulse_sup.npm_band_num[" + group + "] = 4\n" + built_in_text()),
                   "npm_band_num must be less than NS_NR_MAX_NPM_BAND_NUM", error);
  }
}

TEST_F(ParamsCommand, RefusesWhatNoChainCanRunOn) {
  std::string text = built_in_text();
  const std::string line = "pulse_sup_delay.delay = 128";
  text.replace(text.find(line), line.size(), "pulse_sup_delay.delay = -1");
  expect_failure(build("keycancel", text), "",
                 "no chain can run on '" + par_ +
                     "': pulse_sup_delay is not 0 to 8192 floats in blocks of 128; mend the keys that say so");
}

TEST_F(ParamsCommand, NamesTheKeyThatMakesNoFiniteNumber) {
  const std::string rest = "; mend the keys that say so";
  // The first line of a key counts.
  for (const std::string line : {"pwr_bf.PWCup = 0", "ns_nr.g_floor_ns[3] = 9999", "ns_nr.comp_pwc_dn = 0"}) {
    const std::string key = line.substr(0, line.find(' '));
    expect_failure(build("keycancel", line + "\n" + built_in_text()), "",
                   "no chain can run on '" + par_ + "': " + key + " makes no finite number" + rest);
  }
  folder_.write("taps.bin", std::string(3072, '\xFF'));
  expect_failure(build("beamforming", beam_forming_text()), "",
                 "no chain can run on '" + par_ + "': fd_fbf_ain_flt[0][0] makes no finite number" + rest);
  EXPECT_EQ(folder_.entries(), (std::vector<std::string>{"in.par", "taps.bin"}));
}

TEST_F(ParamsCommand, RefusesToReadWhatIsNoFile) {
  expect_failure(
      run({"params", "build", "keycancel", folder_ / "none.par", blob_}), "",
      "cannot open '" + (folder_ / "none.par") + "': No such file or directory; check its name and its permissions");
  expect_failure(run({"params", "build", "keycancel", folder_ / "", blob_}), "",
                 "'" + (folder_ / "") + "' is a folder; give a parameter file");
  expect_failure(run({"params", "build", "keycancel", "/dev/null", blob_}), "",
                 "'/dev/null' is a pipe or a device; give a parameter file");
  expect_failure(run({"params", "show", "/dev/null"}), "", "'/dev/null' is a pipe or a device; give a parameter blob");
}

TEST_F(ParamsCommand, RefusesToOverwriteItsInput) {
  folder_.write("in.par", "a = 1\n");
  const Outcome outcome = run({"params", "build", "keycancel", par_, par_});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.errors, "error: '" + par_ + "' is the input itself; choose another name for the output\n");
  EXPECT_EQ(bytes_of_file(par_), "a = 1\n");
}

TEST_F(ParamsCommand, RefusesToOverwriteAFilter) {
  const std::string taps(3072, '\0');
  folder_.write("taps.bin", taps);
  folder_.write("in.par", beam_forming_text());
  std::filesystem::create_hard_link(folder_ / "taps.bin", folder_ / "same.bin");
  for (const std::string& name : {folder_ / "taps.bin", folder_ / "same.bin"}) {
    const Outcome outcome = run({"params", "build", "beamforming", par_, name});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.errors,
              "error: '" + name + "' is a filter file of the parameters itself; choose another name for the output\n");
    EXPECT_EQ(bytes_of_file(name), taps);
  }
}

TEST_F(ParamsCommand, DoesNotWaitForAFilterInAPipe) {
  ASSERT_EQ(::mkfifo((folder_ / "taps.bin").c_str(), 0600), 0);
  const Outcome outcome = build("beamforming", beam_forming_text());
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(outcome.output.starts_with("fd_fbf_ain_flt[0][0] is bad value\ncan not open " + (folder_ / "taps.bin")))
      << outcome.output;
  EXPECT_FALSE(std::filesystem::exists(blob_));
}

TEST_F(ParamsCommand, RefusesAMissingFolder) {
  folder_.write("in.par", built_in_text());
  const Outcome outcome = run({"params", "build", "keycancel", par_, folder_ / "none/out.blob"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(outcome.errors.starts_with("error: cannot create '")) << outcome.errors;
}

TEST_F(ParamsCommand, ShowsTheBlobThatItsSizeTells) {
  const KeyCancelParam& one = classic::NrModelParam();
  ASSERT_EQ(classic::store_blob(blob_, one), classic::BlobFileResult::done);
  const Outcome shown = run({"params", "show", blob_});
  EXPECT_EQ(shown.exit_code, 0);
  EXPECT_EQ(shown.errors, "");
  std::ostringstream listing;
  classic::list_fields(listing, one);
  EXPECT_EQ(shown.output, listing.str());

  const auto two = std::make_unique<BeamFormingKeyCancelParam>();
  ASSERT_EQ(classic::store_blob(blob_, *two), classic::BlobFileResult::done);
  EXPECT_NE(run({"params", "show", blob_}).output.find("32628  paramID"), std::string::npos);
}

TEST_F(ParamsCommand, ShowsNothingOfAnotherSize) {
  for (const std::size_t size : {0u, 15807u, 15809u, 32635u, 32637u}) {
    folder_.write("in.blob", std::string(size, 'x'));
    const Outcome outcome = run({"params", "show", folder_ / "in.blob"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "error: '" + (folder_ / "in.blob") + "' holds " + std::to_string(size) +
                                  " bytes; give a blob of 15808 (keycancel) or 32636 (beamforming)\n");
  }
}

TEST_F(ParamsCommand, RefusesWhatMakesNoSense) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"params"},
                                                    {"params", "melt"},
                                                    {"params", "build"},
                                                    {"params", "build", "keycancel", par_},
                                                    {"params", "build", "keycancel", par_, blob_, "more"},
                                                    {"params", "show"},
                                                    {"params", "show", blob_, "more"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(outcome.errors.starts_with("error: ")) << outcome.errors;
    EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1);
  }
  const Outcome kind = run({"params", "build", "magic", par_, blob_});
  EXPECT_EQ(kind.exit_code, 2);
  EXPECT_EQ(kind.errors, "error: KIND takes keycancel or beamforming, not 'magic'\n");
}

TEST_F(ParamsCommand, ShowsHelpWithAnExample) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"params", "--help"}, {"params", "build", "--help"}, {"params", "show", "--help"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_NE(outcome.output.find("Example:\n  sonivo params "), std::string::npos) << outcome.output;
  }
}

}  // namespace
}  // namespace sonivo::tool
