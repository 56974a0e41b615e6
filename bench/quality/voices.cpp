#include "quality/voices.h"

#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>

#include <array>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <vector>

#include "apps/tool/resample.h"

extern char** environ;

namespace sonivo::bench {

namespace {

namespace fs = std::filesystem;

struct Script {
  const char* voice;
  const char* words_per_minute;
  const char* pitch;
  const char* text;
};

constexpr std::array<Script, 5> kScripts{{
    {"en-us", "165", "45",
     "The microphone of this notebook hears more than one voice. <break time=\"500ms\"/>"
     "What should remain is the talker in front of it."},
    {"en-gb-x-rp", "150", "35",
     "A fan turns below the keys, and somebody is typing. <break time=\"600ms\"/>"
     "We meet on Thursday at a quarter past eight."},
    {"en+f3", "160", "60",
     "Please read the second page before you answer. <break time=\"700ms\"/>"
     "Six thick books fell off the shelf, and nobody noticed."},
    {"de+m3", "155", "50",
     "Das Fenster steht offen, und draussen regnet es. <break time=\"500ms\"/>"
     "Heute Nachmittag sprechen wir noch einmal darüber."},
    {"en+f4", "175", "70",
     "Could you send me the numbers of last year? <break time=\"600ms\"/>"
     "I should like to compare them with ours, if that is all right."},
}};

void speak_into(const fs::path& file, const Script& script) {
  const std::array<std::string, 11> words{
      "espeak-ng", "-m",         "-v", script.voice,  "-s",       script.words_per_minute,
      "-p",        script.pitch, "-w", file.string(), script.text};
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_t child = 0;
  int status = 0;
  if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
      waitpid(child, &status, 0) != child || status != 0) {
    throw std::runtime_error("espeak-ng does not speak; install it with tools/install-packages bench");
  }
}

Signal read(const fs::path& file) {
  SF_INFO info{};
  SNDFILE* const sound = sf_open(file.c_str(), SFM_READ, &info);
  if (sound == nullptr || info.channels != 1)
    throw std::runtime_error("'" + file.string() + "' is no voice; remove it");
  Signal samples(static_cast<std::size_t>(info.frames));
  const bool complete = sf_read_double(sound, samples.data(), info.frames) == info.frames;
  sf_close(sound);
  if (!complete) throw std::runtime_error("'" + file.string() + "' is damaged; remove it");
  return tool::resample(samples, static_cast<std::uint32_t>(info.samplerate), kRateHz);
}

/// Named by what is spoken and how, so that another text is another file.
fs::path file_of(const fs::path& cache, const Script& script) {
  const std::string all = std::string(script.voice) + script.words_per_minute + script.pitch + script.text;
  return cache / (std::string(script.voice) + "-" + std::to_string(std::hash<std::string>{}(all)) + ".wav");
}

Signal speech_of(const fs::path& cache, const Script& script) {
  const fs::path file = file_of(cache, script);
  if (!fs::exists(file)) {
    const fs::path unfinished = file.string() + ".new";
    speak_into(unfinished, script);
    fs::rename(unfinished, file);
  }
  const Signal spoken = read(file);
  Signal speech(samples_of_ms(kLeadMs));
  const double gain = std::sqrt(std::pow(10, kSpeechLevelDb / 10) / active_power(spoken));
  for (const double x : spoken) speech.push_back(gain * x);
  return speech;
}

}  // namespace

std::vector<Voice> speak(const fs::path& cache) {
  fs::create_directories(cache);
  std::vector<Voice> voices;
  for (const Script& script : kScripts) voices.push_back({script.voice, speech_of(cache, script)});
  return voices;
}

}  // namespace sonivo::bench
