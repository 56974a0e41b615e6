#include "counting_audio.h"
#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

// Without a chain, once the gain ramp of the speakers has come to its end.
TEST_F(DrivenMachineTest, TheProgramsCarryAudioBitForBitBothWays) {
  const std::string counting = server_->folder().write("counting.wav", counting_wav(60 * 48000));
  start_service();
  const auto voice = server_->speak_into("notebook.microphone", counting);
  const auto player = server_->play(kVirtualSpeaker, counting);
  const auto recorder = server_->record(kVirtualMic, folder("microphone.wav"));
  const auto listener = server_->record("notebook.speakers", folder("speakers.wav"), true);
  for (const char* const file : {"microphone.wav", "speakers.wav"}) {
    EXPECT_TRUE(comes_true([&] { return longest_run(frames_of_wav(folder(file))) >= kOnePiece; })) << file;
  }
}

}  // namespace
}  // namespace sonivo::test
