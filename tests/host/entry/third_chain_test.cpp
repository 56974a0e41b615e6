// The third chain from the start of the service to its end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "base/text.h"
#include "host_bench.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace c = control;

struct ThirdChainBench : HostBench {
  explicit ThirdChainBench(const Model& model = kAISpeech) : HostBench(model) { store_parameters(); }

  std::string model(const char* name) const { return (folder.path() / "models" / name).string(); }
  std::string enrolled() const { return (folder.path() / "user" / "NorvellSonivo" / "EnhanceModel.bin").string(); }
  std::string open_call() const {
    return "Open(" + model("model_se_streaming_RTF0.10_v2.bin") + ", 48000, 2, 480, 20, 20)";
  }
  std::vector<std::string> calls_of(const std::string& name) const {
    auto calls = chains.ai_speech->calls();
    std::erase_if(calls, [&](const std::string& call) { return !call.starts_with(name); });
    return calls;
  }
};

TEST(ThirdChain, IsOpenedOnceWithTheModelOfTheThirdRow) {
  ThirdChainBench bench;
  bench.start(1000);
  EXPECT_THAT(bench.calls_of("Open"), ElementsAre(bench.open_call()));
}

TEST(ThirdChain, IsLeftAloneOnOtherMachines) {
  for (const Model& model : {kPlain, kKeyCancel, kBeamForming}) {
    ThirdChainBench bench(model);
    bench.chains.ai_speech->clear();
    bench.start(1000);
    bench.end_session();
    EXPECT_THAT(bench.chains.ai_speech->calls(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(bench.folder.path() / "user" / "NorvellSonivo"));
  }
}

TEST(ThirdChain, ClosesAfterTheThreadsAndBeforeTheRelay) {
  ThirdChainBench bench;
  bench.machine.driver().open_recorder(pcm_format(48000, 16, 2));
  bench.start(1000);
  ASSERT_GT(bench.chains.ai_speech->count("Execute"), 0u);
  std::vector<std::string> left{"never closed"};
  std::uint64_t relays_ended = 77;
  bench.chains.ai_speech->during("Close", [&] {
    left = bench.threads();
    relays_ended = bench.machine.script().count(sim::Step::endpoints_unregister);
  });
  bench.end_session();
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_THAT(left, IsEmpty());
  EXPECT_EQ(relays_ended, 0u);
  const auto calls = bench.chains.ai_speech->calls();
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[calls.size() - 2], "Stop");
  EXPECT_EQ(calls.back(), "Close");
}

TEST(ThirdChain, ThatDoesNotOpenStopsNothingElse) {
  ThirdChainBench bench;
  bench.chains.ai_speech->answer("Open", 3);
  bench.start(1000);
  EXPECT_THAT(bench.calls_of("Open"), ElementsAre(bench.open_call()));
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread", "ChangeThread", "ChangeRegistryThread",
                                           "ChangeRegistryThread_Quit"));
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
  bench.end_session();
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_THAT(bench.calls_of("Close"), IsEmpty());
}

TEST(ThirdChain, EnrolsIntoTheFolderThatStartUpMade) {
  ThirdChainBench bench;
  const std::string recordings = (bench.folder.path() / "recordings").string();
  std::filesystem::create_directory(recordings);
  bench.driver().set_text(c::GetAispeechenhanceWavFolderMTG, to_utf16(recordings));
  bench.driver().set_text(c::GetAispeechenhanceWavFileMTG, u"voice.wav");
  bench.start(1000);
  bench.driver().set_number(c::GetAispeechenhanceRegistrationMTG, 20);
  bench.store_parameters();  // any property of the endpoint
  bench.run_for(100);
  EXPECT_THAT(bench.calls_of("MakeAIModel"),
              ElementsAre("MakeAIModel(" + bench.model("model_tsse_streaming_rtf0.10_v2.bin") + ", " +
                          bench.model("model_spkenc_rtf0.10_v2.bin") + ", " + recordings + "/voice.wav, " +
                          bench.enrolled() + ", 0)"));
}

TEST(ThirdChain, StaysOpenThroughAReboot) {
  ThirdChainBench bench;
  bench.start(1000);
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.machine.session().unlock();
  bench.run_for(3000);
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
  EXPECT_THAT(bench.calls_of("Open"), ElementsAre(bench.open_call()));
  EXPECT_THAT(bench.calls_of("Close"), IsEmpty());
}

}  // namespace
}  // namespace sonivo::test
