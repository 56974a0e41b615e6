#include "apps/tool/relay_report.h"

#include <gtest/gtest.h>

#include <sstream>

namespace sonivo::tool {
namespace {

/// A second in which 3 of 100 blocks were too much for the network, as it was played.
RelayedAudio hasty_second() {
  RelayedAudio relayed;
  relayed.audio.rate_hz = 48000;
  relayed.audio.bits = 16;
  relayed.audio.channels = 2;
  relayed.audio_seconds = 1;
  relayed.elapsed_seconds = 1;
  relayed.realtime = true;
  StreamStatistics& statistics = relayed.statistics;
  statistics.streams = 1;
  statistics.blocks = 100;
  statistics.unenhanced = 3;
  statistics.executions = 100;
  statistics.execute_sum_ns = 25'000'000;
  statistics.execute_max_ns = 1'234'567;
  statistics.fill_count = 4;
  statistics.fill_sum = 4 * 960;
  statistics.fill_min = 480;
  statistics.fill_max = 1440;
  return relayed;
}

std::string report_of(const RelayedAudio& relayed) {
  std::ostringstream text;
  print_relay_report(text, Direction::capture, relayed, {Latency::Outcome::measured, 4800});
  return text.str();
}

TEST(RelayReport, TellsOfBlocksWithoutTheNetworkAndOfTheTimeOfTheChain) {
  EXPECT_EQ(report_of(hasty_second()),
            "format            48000 Hz, 16 bits, 2 channels\n"
            "latency           4800 frames, 100.0 ms microphone to application\n"
            "blocks            100 of 10 ms\n"
            "unenhanced        3 blocks, for which the network was too late\n"
            "underruns         0\n"
            "overruns          0\n"
            "feedback changes  0\n"
            "ring fill         10.0 / 20.0 / 30.0 ms (lowest / mean / highest)\n"
            "processing        0.250 / 1.235 ms a block (mean / highest)\n"
            "speed             1 times real time\n");
}

TEST(RelayReport, SaysNothingOfWhatDidNotHappen) {
  RelayedAudio relayed = hasty_second();
  relayed.statistics.unenhanced = 0;
  EXPECT_EQ(report_of(relayed).find("unenhanced"), std::string::npos);
  relayed.realtime = false;  // in which case the chain waits for the network
  EXPECT_EQ(report_of(relayed).find("processing"), std::string::npos);
  relayed = hasty_second();
  relayed.statistics.executions = 0;
  EXPECT_EQ(report_of(relayed).find("processing"), std::string::npos) << "no chain";
}

TEST(RelayReport, CountsBlocksThatAChainSpoiled) {
  RelayedAudio relayed = hasty_second();
  relayed.statistics.silenced = 2;
  EXPECT_NE(report_of(relayed).find("silenced          2 blocks without a valid result\n"), std::string::npos);
}

}  // namespace
}  // namespace sonivo::tool
