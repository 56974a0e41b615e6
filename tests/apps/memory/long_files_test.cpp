// What `sonivo enhance` needs for a file of ten minutes. The sanitizers keep what is freed, so not with them.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <vector>

#include "../../support/temporary_folder.h"
#include "../model_text.h"
#include "apps/tool/command_line.h"
#include "apps/tool/wav_file.h"

namespace sonivo::tool {
namespace {

class LongFiles : public testing::Test {
 protected:
  static constexpr std::size_t kMinutes = 10, kMinute = 16000 * 60;  // 38 MB as 32-bit float
  static constexpr long kMostKilobytes = 8000;

  static long peak_kilobytes() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
  }

  void write_minutes(const char* name, std::size_t minutes) const {
    OutputFile file(folder_ / name);
    WavOutput wav(file, 16000, 1, minutes * kMinute);
    const std::vector<float> minute(kMinute, 0.25f);
    for (std::size_t i = 0; i < minutes; ++i) wav.write(minute);
    wav.close();
    file.commit();
  }

  void enhance(const char* input) const {
    const std::vector<std::string> arguments{"enhance", folder_ / "model", folder_ / input, folder_ / "out.wav"};
    std::ostringstream output, errors;
    EXPECT_EQ(run_command_line(arguments, output, errors), 0) << errors.str();
  }

  /// What ten minutes need more than one.
  long growth(const test::ModelText& model) const {
    std::ofstream(folder_ / "model") << test::model_text(model);
    write_minutes("one.wav", 1);
    write_minutes("ten.wav", kMinutes);
    enhance("one.wav");
    const long before = peak_kilobytes();
    enhance("ten.wav");
    return peak_kilobytes() - before;
  }

  const sonivo::test::TemporaryFolder folder_;
};

TEST_F(LongFiles, NeedNoMoreThanShortOnes) { EXPECT_LT(growth({.gains = {1}}), kMostKilobytes); }

TEST_F(LongFiles, NeedNoMoreForWhatNobodyTakesOfAFlow) {
  const std::string flow = R"(<node type="AffineTransformNode" id="n"/>)"
                           R"(<link from_node="_input" from_port="_input" to_node="n" to_port="_input"/>)"
                           R"(<link from_node="n" from_port="_output" to_node="_output" to_port="_output"/>)"
                           R"(<link from_node="n" from_port="_output" to_node="_output" to_port="flowout_aside"/>)";
  EXPECT_LT(growth({.gains = {1}, .flow = flow}), kMostKilobytes);
}

}  // namespace
}  // namespace sonivo::tool
