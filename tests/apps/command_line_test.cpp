#include "apps/tool/command_line.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace sonivo::tool {
namespace {

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

void expect_wrong_usage(const std::vector<std::string>& options, const std::string& message) {
  std::vector<std::string> arguments{"relay", "in.wav", "out.wav"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "error: " + message + "\n");
}

TEST(CommandLine, ShowsItsHelpAndVersion) {
  EXPECT_NE(run({"--help"}).output.find("relay"), std::string::npos);
  EXPECT_EQ(run({"--help"}).exit_code, 0);
  EXPECT_TRUE(run({"--version"}).output.starts_with("sonivo "));
  EXPECT_EQ(run({"--version"}).exit_code, 0);
}

TEST(CommandLine, ShowsTheOptionsAndAnExampleOfACommand) {
  const Outcome outcome = run({"relay", "--help"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.errors, "");
  for (const std::string text : {"--chain", "--params", "--model", "--strength", "--period", "--bits", "--render",
                                 "--drift", "--realtime", "--verbose", "Example:\n  sonivo relay "}) {
    EXPECT_NE(outcome.output.find(text), std::string::npos) << text;
  }
}

TEST(CommandLine, RefusesWhatItDoesNotKnow) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"fly"}, {"relay"}, {"relay", "in.wav"}, {"relay", "in.wav", "out.wav", "more"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(outcome.errors.starts_with("error: "));
    EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1);
  }
}

TEST(CommandLine, RefusesValuesOutOfRange) {
  for (const std::string text : {"47", "2049", "-480", "0x40", "480.5", "many", "99999999999"}) {
    expect_wrong_usage({"--period=" + text}, "--period takes 48 to 2048 frames, not '" + text + "'");
  }
  for (const std::string text : {"8", "32", "016"}) {
    expect_wrong_usage({"--bits=" + text}, "--bits takes 16 or 24, not '" + text + "'");
  }
  for (const std::string text : {"-500.1", "501", "nan", "inf", "fast"}) {
    expect_wrong_usage({"--drift=" + text}, "--drift takes -500 to 500 parts per million, not '" + text + "'");
  }
  for (const std::string text : {"-0.1", "1.01", "nan"}) {
    expect_wrong_usage({"--chain", "ai", "--strength=" + text}, "--strength takes 0 to 1, not '" + text + "'");
  }
  expect_wrong_usage({"--chain", "magic"}, "--chain takes none, keycancel, beamforming or ai, not 'magic'");
}

TEST(CommandLine, RefusesOptionsThatDoNotGoTogether) {
  expect_wrong_usage({"--params", "p"}, "--params needs a chain to set up; add --chain keycancel, beamforming or ai");
  expect_wrong_usage({"--model", "m"}, "--model needs --chain ai");
  expect_wrong_usage({"--chain", "keycancel", "--strength", "1"}, "--strength needs --chain ai");
  expect_wrong_usage({"--render", "--chain", "ai"},
                     "--render carries the speaker direction, which has no chain; leave out --chain");
}

TEST(CommandLine, RefusesNamesThatAreNoFiles) {
  const auto complaint_about = [](const std::string& input, const std::string& output) {
    const Outcome outcome = run({"relay", input, output});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.output, "");
    return outcome.errors;
  };
  EXPECT_EQ(complaint_about("-", "out.wav"), "error: IN must be a file: '-' for standard input is not supported\n");
  EXPECT_EQ(complaint_about("in.wav", "-"), "error: OUT must be a file: '-' for standard output is not supported\n");
  EXPECT_EQ(complaint_about("", "out.wav"), "error: IN takes the name of a file, not ''\n");
  EXPECT_EQ(complaint_about("in.wav", ""), "error: OUT takes the name of a file, not ''\n");
}

TEST(CommandLine, WritesOutControlCharactersOfItsArguments) {
  const Outcome failed = run({"relay", "/no\nwhere/\x1b[2Jin.wav", "out.wav"});
  EXPECT_EQ(failed.exit_code, 1);
  EXPECT_EQ(failed.errors,
            "error: cannot open '/no\\nwhere/\\x1b[2Jin.wav': No such file or directory; check its name and its "
            "permissions\n");
  expect_wrong_usage({"--period=4\x1b"}, "--period takes 48 to 2048 frames, not '4\\x1b'");
  expect_wrong_usage({"mo\nre"}, "The following argument was not expected: mo\\nre");
}

}  // namespace
}  // namespace sonivo::tool
