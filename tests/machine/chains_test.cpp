#include <map>
#include <sstream>

#include "noisy_room.h"
#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

constexpr std::size_t kLead = 2 * 48000;  // in which a chain comes to know the room before the talker begins
/// Of sound over 60 mm, from one microphone to the other.
constexpr std::size_t kSideDelay = 8;

/// Somebody speaks in a room; an application records from the virtual microphone.
class ChainsTest : public OwnMachineTest {
 protected:
  void SetUp() override {
    OwnMachineTest::SetUp();
    if (!server_) return;
    speech_ = say("speech.wav", "en-gb", "I will type while I talk to you.");
    if (speech_.empty()) GTEST_SKIP() << "not installed: espeak-ng, sox";
    start_driver();
    wait_for_defaults();
  }

  /// A second of silence, then the sentence.
  Sound say(const std::string& file, const std::string& voice, const std::string& sentence) {
    server_->run({"espeak-ng", "-v", voice, "-s", "140", "-g", "3", "-w", folder("voice.wav"), sentence});
    server_->run({"sox", "-R", folder("voice.wav"), "-r", "48000", "-b", "16", folder(file), "gain", "-n", "-8", "pad",
                  "1", "0.6", "remix", "1", "1"});
    return sound_of_wav(folder(file));
  }

  /// With the chain that the service is to run, and whatever is set. Once more where the machine was too slow for it.
  Sound record(const Sound& room, const std::string& chain) {
    server_->folder().write("room.wav", wav_of_sound(room));
    start_service();
    Sound heard;
    for (int tries = 0; tries < 3; ++tries) {
      heard = record_once(chain);
      const std::string told = status().text;
      if (told.find("\"underruns\": 0") < told.find("\"render\"")) break;
    }
    end_service();
    return heard;
  }
  Sound record_once(const std::string& chain) {
    const std::string wav = folder("heard.wav");
    auto recorder = server_->record("norvell.relay.microphone", wav);
    EXPECT_TRUE(comes_true([&] { return status().has("\"chain\": \"" + chain + "\""); })) << status().text;
    EXPECT_TRUE(comes_true([&] { return frames_of_wav(wav).size() > 24000; }));
    server_->speak_into("notebook.microphone", folder("room.wav")).wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(600));  // what is still on its way
    recorder.end(2);
    return sound_of_wav(wav);
  }

  /// What `sonivo quality` tells of a recording after the lead, by the name of the row.
  std::map<std::string, double> judged(const Sound& room, const Sound& heard) {
    Sound part(speech_.size());
    const std::size_t begin = frames_behind(room, heard) + kLead;
    for (std::size_t n = 0; n < part.size() && begin + n < heard.size(); ++n) part[n] = heard[begin + n];
    server_->folder().write("part.wav", wav_of_sound(part));
    server_->folder().write("keys.wav", wav_of_sound(typing(speech_.size())));
    const Told told = sonivo({"quality", folder("speech.wav"), folder("part.wav"), "--strokes", folder("keys.wav")});
    EXPECT_EQ(told.code, 0) << told.text;
    std::map<std::string, double> figures;
    std::istringstream lines(told.text);
    for (std::string line; std::getline(lines, line);) {
      for (const char* row : {"STOI", "level in pauses", "strokes in pauses"}) {
        if (line.starts_with(row)) figures[row] = std::atof(line.c_str() + std::string(row).size());
      }
    }
    EXPECT_EQ(figures.size(), 3u) << told.text;
    return figures;
  }

  void set_up(const std::string& chain) {
    ASSERT_EQ(sonivo({"setup", "--microphone", "notebook.microphone", "--chain", chain}).code, 0);
  }

  Sound speech_;
};

TEST_F(ChainsTest, EachChainTakesTheNoiseAndTheStrokesOffTheVoice) {
  Sound room = fan(kLead + speech_.size(), 0.01);
  add(room, speech_, kLead);
  add(room, typing(speech_.size()), kLead);
  auto plain = judged(room, record(room, "none"));
  EXPECT_GT(plain["STOI"], 0.9) << "the voice is heard at all";
  for (const char* chain : {"keycancel", "beamforming", "ai"}) {
    SCOPED_TRACE(chain);
    set_up(chain);
    auto figures = judged(room, record(room, chain));
    EXPECT_LT(figures["level in pauses"], plain["level in pauses"] - 12);
    EXPECT_LT(figures["strokes in pauses"], plain["strokes in pauses"] - 12);
    EXPECT_GT(figures["STOI"], 0.85);
  }
  // Without the chain that the third one brings along, the network is left.
  ASSERT_EQ(sonivo({"settings", "set", "keyboard-cancel", "off", "beamforming", "off"}).code, 0);
  auto network = judged(room, record(room, "ai"));
  EXPECT_LT(network["level in pauses"], plain["level in pauses"] - 3);
  EXPECT_GT(network["STOI"], 0.9);
}

TEST_F(ChainsTest, TheBeamsTakeASecondTalkerFromTheSideOff) {
  const Sound other = say("other.wav", "en-us", "There is somebody else in here who never stops to talk at all.");
  Sound room(kLead + speech_.size());
  for (std::size_t n = 0; n + kSideDelay < room.size(); ++n) {
    const auto& frame = other[n % other.size()];
    room[n][0] += 0.5 * frame[0];
    room[n + kSideDelay][1] += 0.5 * frame[1];
  }
  add(room, speech_, kLead);
  set_up("keycancel");
  auto without = judged(room, record(room, "keycancel"));
  set_up("beamforming");
  auto with = judged(room, record(room, "beamforming"));
  EXPECT_LT(with["level in pauses"], without["level in pauses"] - 6);
  EXPECT_GT(with["STOI"], without["STOI"]);
}

}  // namespace
}  // namespace sonivo::test
