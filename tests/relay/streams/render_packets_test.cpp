// With which flags the render stream gives its packets back, into memory that was full of garbage.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "observed_speaker.h"
#include "stream_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;

constexpr std::uint32_t kSilent = 2;

/// A render stream whose virtual speaker is filled by `period` frames at a time.
struct ObservedRender {
  explicit ObservedRender(std::uint32_t period)
      : machine({.pins = {.virtual_period = period, .trim_ppm = 0}}),
        speakers(machine.endpoints(), kCdStereo.nBlockAlign),
        stream(seams()) {}

  void play_for(std::uint32_t ms) {
    machine.driver().open_player(kCdStereo, sim::memory_source(numbered_pcm(48000, 16, 2)));
    stream.SetEndpointId(sim::kSpeakers);
    stream.Start();
    machine.run_for(ms);
  }

  sim::SimMachine machine;
  ObservedSpeakers speakers;
  CRenderInterface stream;

 private:
  Machine seams() {
    const Machine real = machine.seams();
    return {.clock = real.clock,
            .events = real.events,
            .threads = real.threads,
            .bus = real.bus,
            .endpoints = speakers,
            .fx_properties = real.fx_properties,
            .session = real.session,
            .power = real.power,
            .desktop = real.desktop,
            .processes = real.processes,
            .folders = real.folders};
  }
};

TEST(RenderPackets, AreSilentAtTheOpeningAndUntilTheLeadIsComplete) {
  ObservedRender render(480);
  render.play_for(45);
  EXPECT_THAT(render.speakers.released(),
              ElementsAre(ReleasedPacket{960, kSilent}, ReleasedPacket{480, kSilent}, ReleasedPacket{480, kSilent},
                          ReleasedPacket{480, 0}, ReleasedPacket{480, 0}));
}

TEST(RenderPackets, LeaveNoGarbageToBePlayed) {
  ObservedRender render(480);
  render.play_for(45);
  const std::vector<std::byte> played = render.machine.endpoint(sim::kSpeakers).played();
  EXPECT_EQ(played, std::vector<std::byte>(4 * 480 * kCdStereo.nBlockAlign));
}

TEST(RenderPackets, AreSilentInAnUnderrun) {
  ObservedRender render(1919);
  render.play_for(65);
  const std::size_t before = render.speakers.released().size();
  EXPECT_EQ(render.speakers.released().back(), (ReleasedPacket{480, 0}));
  render.machine.run_for(10);
  ASSERT_EQ(render.speakers.released().size(), before + 2);
  EXPECT_EQ(render.speakers.released()[before], (ReleasedPacket{480, kSilent}));
  EXPECT_EQ(render.speakers.released()[before + 1], (ReleasedPacket{960, kSilent})) << "of the opening that follows";
}

TEST(RenderPackets, AreAsManyFramesAsTheEndpointHasRoomFor) {
  ObservedRender render(480);
  render.play_for(55);
  // While the stream sleeps over one packet of the endpoint, two are played.
  render.machine.script().before(sim::Step::wait_any, 1,
                                 [&] { render.machine.scheduler().pass(15 * sim::kMillisecond); });
  render.machine.run_for(30);
  EXPECT_THAT(render.speakers.released(), ::testing::Contains(ReleasedPacket{960, 0}));
}

}  // namespace
}  // namespace sonivo::test
