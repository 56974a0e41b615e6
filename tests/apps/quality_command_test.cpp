#include "apps/tool/quality_command.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>

#include "apps/tool/command_line.h"
#include "apps/tool/wav_file.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

/// Words of noise with pauses of digital silence; the channels behind the first are something else.
FloatAudio words(std::uint32_t rate_hz = 48000, std::uint16_t channels = 1, double seconds = 2) {
  FloatAudio audio{rate_hz, channels, {}};
  std::minstd_rand random(4);
  std::minstd_rand other(40u + channels);
  std::normal_distribution<float> normal(0, 0.1f);
  std::uniform_real_distribution<float> uniform(-0.3f, 0.3f);
  for (std::size_t n = 0; n < static_cast<std::size_t>(seconds * rate_hz); ++n) {
    const double t = static_cast<double>(n) / rate_hz;
    const auto loudness = static_cast<float>(std::fmod(t, 1.0) < 0.7 ? std::pow(std::sin(3.14 * t / 0.35), 2) : 0);
    audio.samples.push_back(loudness * normal(random));
    for (std::uint16_t c = 1; c < channels; ++c) audio.samples.push_back(uniform(other));
  }
  return audio;
}

FloatAudio delayed(const FloatAudio& audio, std::size_t frames, float gain = 1) {
  FloatAudio late = audio;
  for (float& x : late.samples) x *= gain;
  late.samples.insert(late.samples.begin(), frames * audio.channels, 0.0f);
  return late;
}

struct Outcome {
  int exit_code = 0;
  std::string table;
  std::string errors;
};

Outcome run(const std::vector<std::string>& arguments) {
  std::ostringstream output;
  std::ostringstream errors;
  const int exit_code = run_command_line(arguments, output, errors);
  return {exit_code, output.str(), errors.str()};
}

class QualityCommand : public testing::Test {
 protected:
  std::string write(const std::string& name, const FloatAudio& audio) {
    OutputFile file(folder_ / name);
    write_wav(file, audio);
    file.commit();
    return folder_ / name;
  }

  Outcome compare(const FloatAudio& reference, const FloatAudio& test, std::vector<std::string> options = {}) {
    std::vector<std::string> arguments{"quality", write("ref.wav", reference), write("test.wav", test)};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run(arguments);
  }

  void expect_failure(const Outcome& outcome, int exit_code, const std::string& message) {
    EXPECT_EQ(outcome.exit_code, exit_code);
    EXPECT_EQ(outcome.table, "");
    EXPECT_EQ(outcome.errors, "error: " + message + "\n");
  }

  const TemporaryFolder folder_;
};

TEST_F(QualityCommand, TakesOutTheDelayAndPrintsATable) {
  const Outcome outcome = compare(words(), delayed(words(), 480, 0.5f));
  EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
  EXPECT_EQ(outcome.table,
            "delay             480 frames, 10.0 ms\n"
            "SI-SDR            inf dB\n"
            "segmental SNR     6.02 dB\n"  // -20 lg(1 - 0.5)
            "STOI              1.0000\n"
            "level in pauses   -inf dB of full scale\n");
}

TEST_F(QualityCommand, TakesTheDelayThatIsGiven) {
  const Outcome outcome = compare(words(), delayed(words(), 480), {"--delay", "480"});
  EXPECT_TRUE(outcome.table.starts_with("delay             480 frames, 10.0 ms\n")) << outcome.table;
  EXPECT_NE(outcome.table.find("segmental SNR     35.00 dB\n"), std::string::npos) << outcome.table;
  const Outcome wrong = compare(words(), delayed(words(), 480), {"--delay", "0"});
  EXPECT_TRUE(wrong.table.starts_with("delay             0 frames, 0.0 ms\n")) << wrong.table;
  EXPECT_EQ(wrong.table.find("segmental SNR     35.00 dB\n"), std::string::npos) << wrong.table;
}

TEST_F(QualityCommand, ComparesWhatBothHave) {
  const std::string whole = write("ref.wav", words());
  FloatAudio start = words();
  start.samples.resize(60000);
  EXPECT_EQ(run({"quality", whole, write("start.wav", start)}).table,
            "delay             0 frames, 0.0 ms\n"
            "compared          1.250 s of 2.000 s\n"
            "SI-SDR            inf dB\n"
            "segmental SNR     35.00 dB\n"
            "STOI              1.0000\n"
            "level in pauses   -inf dB of full scale\n");
  EXPECT_TRUE(run({"quality", whole, write("late.wav", delayed(start, 480))})
                  .table.starts_with("delay             480 frames, 10.0 ms\ncompared          1.250 s of 2.000 s\n"));
}

TEST_F(QualityCommand, TakesATestThatIsEarly) {
  for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--delay", "-4800"}}) {
    const Outcome outcome = compare(delayed(words(), 4800), words(), options);
    EXPECT_TRUE(
        outcome.table.starts_with("delay             -4800 frames, -100.0 ms\n"
                                  "compared          2.000 s of 2.100 s\n"
                                  "SI-SDR            inf dB\n"
                                  "segmental SNR     35.00 dB\n"))
        << outcome.table << outcome.errors;
  }
}

TEST_F(QualityCommand, SaysThatThePolarityIsInverted) {
  const Outcome outcome = compare(words(), delayed(words(), 480, -1));
  EXPECT_TRUE(
      outcome.table.starts_with("delay             480 frames, 10.0 ms\n"
                                "polarity          inverted, which counts as noise in the segmental SNR\n"
                                "SI-SDR            inf dB\n"
                                "segmental SNR     -6.02 dB\n"))  // -20 lg(1 + 1)
      << outcome.table << outcome.errors;
}

TEST_F(QualityCommand, MeasuresNothingAtADelayOfHalfASecondOrMore) {
  const auto expect_limit = [&](const Outcome& outcome, const std::string& frames, const std::string& ms) {
    expect_failure(outcome, 1,
                   "'" + folder_ / "test.wav" + "' seems to have a delay of " + frames + " frames, " + ms +
                       " ms, and less than 0.5 s is searched; give it with --delay " + frames);
  };
  const FloatAudio word = words(48000, 1, 0.3);  // short, since what is searched grows with it
  EXPECT_EQ(compare(word, delayed(word, 23999)).exit_code, 0);
  expect_limit(compare(word, delayed(word, 24000)), "24000", "500.0");
  expect_limit(compare(word, delayed(word, 60000)), "60000", "1250.0");
  expect_limit(compare(delayed(word, 30000), word), "-30000", "-625.0");
  EXPECT_EQ(compare(word, delayed(word, 60000), {"--delay", "60000"}).exit_code, 0);
}

TEST_F(QualityCommand, FailsOnSamplesThatAreNoNumbers) {
  for (const float none : {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()}) {
    FloatAudio broken = words();
    broken.samples[777] = none;
    const std::string rest = "' has a sample that is no finite number, in frame 777; make it again";
    expect_failure(compare(broken, words()), 1, "'" + folder_ / "ref.wav" + rest);
    expect_failure(compare(words(), broken), 1, "'" + folder_ / "test.wav" + rest);
  }
  FloatAudio second_channel = words(48000, 2);
  second_channel.samples[777] = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(compare(second_channel, words()).exit_code, 0);
}

TEST_F(QualityCommand, ComparesTheFirstChannels) {
  const Outcome outcome = compare(words(48000, 2), words(48000, 3));
  EXPECT_NE(outcome.table.find("segmental SNR     35.00 dB\n"), std::string::npos) << outcome.table << outcome.errors;
}

TEST_F(QualityCommand, SaysWhatCannotBeMeasured) {
  FloatAudio blip{48000, 1, std::vector<float>(1000)};
  blip.samples[500] = 0.5f;
  const Outcome outcome = compare(blip, blip);
  EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
  EXPECT_EQ(outcome.table,
            "delay             0 frames, 0.0 ms\n"
            "SI-SDR            inf dB\n"
            "segmental SNR     not measurable\n"
            "STOI              not measurable\n"
            "level in pauses   not measurable\n");
}

TEST_F(QualityCommand, FailsOnASilentReference) {
  FloatAudio silent = words();
  std::fill(silent.samples.begin(), silent.samples.end(), 0.0f);
  expect_failure(compare(silent, words()), 1, "'" + folder_ / "ref.wav" + "' is silent; give the clean speech");
}

TEST_F(QualityCommand, FailsOnStrangers) {
  FloatAudio stranger = words(48000, 1, 1);
  std::minstd_rand random(5);
  for (float& x : stranger.samples) x = static_cast<float>(random() % 1000) / 1000 - 0.5f;
  expect_failure(compare(words(48000, 1, 0.25), stranger), 1,  // of which there is one window to look for
                 "'" + folder_ / "test.wav" + "' does not resemble '" + folder_ / "ref.wav" +
                     "' within 2 s of delay; give its delay with --delay FRAMES if it should");
}

TEST_F(QualityCommand, FailsOnDifferentRates) {
  expect_failure(
      compare(words(48000), words(44100)), 1,
      "'" + folder_ / "ref.wav" + "' and '" + folder_ / "test.wav" + "' differ in rate; convert one of them");
}

TEST_F(QualityCommand, FailsOnADelayLongerThanTheFile) {
  expect_failure(compare(words(), words(), {"--delay", "96000"}), 1,
                 "'" + folder_ / "test.wav" + "' is shorter than its delay; give a longer one");
  expect_failure(compare(words(), words(), {"--delay", "-96000"}), 1,
                 "'" + folder_ / "ref.wav" + "' is shorter than the delay; give a longer one");
}

TEST_F(QualityCommand, FailsWithoutItsFiles) {
  const std::string here = write("ref.wav", words());
  const std::string missing = folder_ / "none.wav";
  for (const auto& arguments : {std::vector<std::string>{"quality", here, missing}, {"quality", missing, here}}) {
    expect_failure(run(arguments), 1,
                   "cannot open '" + missing + "': No such file or directory; check its name and its permissions");
  }
}

TEST_F(QualityCommand, RefusesWrongUsage) {
  expect_failure(run({"quality", "a.wav", "b.wav", "--delay", "--3"}), 2,
                 "--delay takes a whole number of frames, not '--3'");
  expect_failure(run({"quality", "-", "b.wav"}), 2, "REF must be a file: '-' for standard input is not supported");
  expect_failure(run({"quality", "a.wav", "-"}), 2, "TEST must be a file: '-' for standard input is not supported");
  EXPECT_EQ(run({"quality", "a.wav"}).exit_code, 2);
}

TEST_F(QualityCommand, ShowsItsHelpWithAnExample) {
  const Outcome outcome = run({"quality", "--help"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.table.find("--delay"), std::string::npos);
  EXPECT_NE(outcome.table.find("Example:\n  sonivo quality "), std::string::npos);
}

}  // namespace
}  // namespace sonivo::tool
