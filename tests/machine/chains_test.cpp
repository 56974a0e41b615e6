#include <cstdlib>
#include <functional>
#include <optional>
#include <sstream>

#include "noisy_room.h"
#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

constexpr std::size_t kLead = 2 * 48000;  // in which a chain comes to know the room before the talker begins
/// Of sound over 60 mm, from one microphone to the other.
constexpr std::size_t kSideDelay = 8;
/// A machine that is busy with something else lets audio fall out now and then.
constexpr int kRounds = 6;

/// What is left of the noise and of the strokes where nobody speaks, in dB of full scale, and how intelligible the
/// voice is, up to 1.
struct Figures {
  double pauses = 0;
  double strokes = 0;
  double stoi = 0;
};

/// Somebody speaks in a room; an application records from the virtual microphone.
class ChainsTest : public WithChains<DrivenMachineTest> {
 protected:
  void SetUp() override {
    WithChains::SetUp();
    if (!server_) return;
    speech_ = say("speech.wav", "en-gb", "I will type while I talk to you.");
    if (speech_.empty()) GTEST_SKIP() << "not installed: espeak-ng, sox";
    server_->folder().write("keys.wav", wav_of_sound(typing(speech_.size())));
  }

  /// A second of silence, then the sentence.
  Sound say(const std::string& file, const std::string& voice, const std::string& sentence) {
    server_->run({"espeak-ng", "-v", voice, "-s", "140", "-g", "3", "-w", folder("voice.wav"), sentence});
    server_->run({"sox", "-R", folder("voice.wav"), "-r", "48000", "-b", "16", folder(file), "gain", "-n", "-8", "pad",
                  "1", "0.6", "remix", "1", "1"});
    return sound_of_wav(folder(file));
  }
  Sound noisy_room() const {
    Sound room = fan(kLead + speech_.size(), 0.01);
    add(room, speech_, kLead);
    add(room, typing(speech_.size()), kLead);
    return room;
  }
  void set_up(const std::string& chain) {
    ASSERT_EQ(sonivo({"setup", "--microphone", "notebook.microphone", "--chain", chain}).code, 0);
  }

  /// Of a sound in which the room begins at this frame, by `sonivo quality`; none where the voice isn't found in it.
  std::optional<Figures> judged(const Sound& sound, std::size_t begin) {
    Sound part(speech_.size());
    for (std::size_t n = 0; n < part.size() && begin + kLead + n < sound.size(); ++n)
      part[n] = sound[begin + kLead + n];
    server_->folder().write("part.wav", wav_of_sound(part));
    latest_ = sonivo({"quality", folder("speech.wav"), folder("part.wav"), "--strokes", folder("keys.wav")});
    if (latest_.code != 0) return std::nullopt;
    const auto row = [&](const std::string& name) {
      const std::size_t at = latest_.text.find(name);
      return at != latest_.text.npos ? std::atof(latest_.text.c_str() + at + name.size()) : 0.0;
    };
    return Figures{.pauses = row("level in pauses"), .strokes = row("strokes in pauses"), .stoi = row("STOI")};
  }

  /// Whether the room is heard like that through the service, which is to run this chain, in one of a few rounds.
  bool is_heard(const Sound& room, const std::string& chain, const std::function<bool(const Figures&)>& as_wanted) {
    const std::string played = server_->folder().write("room.wav", wav_of_sound(room));
    const std::string wav = folder("heard.wav");
    start_service();
    const auto recorder = server_->record("norvell.relay.microphone", wav);
    EXPECT_TRUE(comes_true([&] { return status().has("\"chain\": \"" + chain + "\""); })) << status().text;
    EXPECT_TRUE(comes_true([&] { return frames_of_wav(wav).size() > 24000; }));
    bool heard = false;
    for (int round = 0; round < kRounds && !heard; ++round) {
      const std::size_t before = frames_of_wav(wav).size();
      auto voice = server_->speak_into("notebook.microphone", played);
      comes_true([&] { return voice.has_ended(); });
      std::this_thread::sleep_for(std::chrono::milliseconds(600));  // what is still on its way
      Sound sound = sound_of_wav(wav);
      sound.erase(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(before));
      const auto figures = judged(sound, frames_behind(room, sound));
      heard = figures && as_wanted(*figures);
    }
    end_service();
    return heard;
  }

  Sound speech_;
  Told latest_;
};

TEST_F(ChainsTest, WithoutAChainTheRoomIsHeardAsItIs) {
  const Sound room = noisy_room();
  const auto itself = judged(room, 0);
  ASSERT_TRUE(itself.has_value()) << latest_.text;
  EXPECT_TRUE(is_heard(room, "none", [&](const Figures& heard) {
    return std::fabs(heard.pauses - itself->pauses) < 0.5 && std::fabs(heard.strokes - itself->strokes) < 1.5 &&
           heard.stoi > itself->stoi - 0.02;
  })) << latest_.text;
}

class EachChain : public ChainsTest, public testing::WithParamInterface<const char*> {};

TEST_P(EachChain, TakesTheNoiseAndTheStrokesOffTheVoice) {
  const Sound room = noisy_room();
  const auto itself = judged(room, 0);
  ASSERT_TRUE(itself.has_value()) << latest_.text;
  set_up(GetParam());
  EXPECT_TRUE(is_heard(room, GetParam(), [&](const Figures& heard) {
    return heard.pauses < itself->pauses - 12 && heard.strokes < itself->strokes - 12 && heard.stoi > 0.85;
  })) << latest_.text;
}

INSTANTIATE_TEST_SUITE_P(Chains, EachChain, testing::Values("keycancel", "beamforming", "ai"));

TEST_F(ChainsTest, TheNetworkTakesNoiseOffByItself) {
  const Sound room = noisy_room();
  const auto itself = judged(room, 0);
  ASSERT_TRUE(itself.has_value()) << latest_.text;
  set_up("ai");
  ASSERT_EQ(sonivo({"settings", "set", "keyboard-cancel", "off", "beamforming", "off"}).code, 0);
  EXPECT_TRUE(is_heard(room, "ai", [&](const Figures& heard) {
    return heard.pauses < itself->pauses - 3 && heard.stoi > 0.9;
  })) << latest_.text;
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
  const auto itself = judged(room, 0);
  ASSERT_TRUE(itself.has_value()) << latest_.text;
  set_up("beamforming");
  EXPECT_TRUE(is_heard(room, "beamforming", [&](const Figures& heard) {
    return heard.pauses < itself->pauses - 10 && heard.stoi > 0.85;
  })) << latest_.text;
}

}  // namespace
}  // namespace sonivo::test
