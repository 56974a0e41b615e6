// Numbers and identifiers that others rely on too.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/guid.h"
#include "host_bench.h"

namespace sonivo::test {
namespace {

TEST(FixedNames, MessagesToTheMuteWindow) {
  EXPECT_EQ(WM_MIC_MUTE_STATE, 0x8000u);
  EXPECT_EQ(WM_MIC_REC_ON, 0x8001u);
  EXPECT_EQ(WM_MIC_REC_OFF, 0x8001u);
}

TEST(FixedNames, IdentifiersOfTheDriverAndTheDisplay) {
  EXPECT_EQ(to_text(control::kControlInterface), "{6d0939e3-4ce7-43b7-934e-581f2b942ff4}");
  EXPECT_EQ(to_text(kConsoleDisplayState), "{6fe69556-704a-47a0-8f24-c28d936fda47}");
}

TEST(FixedNames, AFileInTheFoldersPlaceLeavesTheNameInUse) {
  HostBench bench(kAISpeech);
  const std::filesystem::path folder = bench.folder.path() / "user" / "NorvellSonivo";
  std::ofstream(folder) << "a file";
  bench.start();
  EXPECT_TRUE(bench.running());
  EXPECT_EQ(bench.host->m_szEnhanceModelFolder, folder);
  EXPECT_EQ(bench.host->m_szEnhanceModelPath, (folder / "EnhanceModel.bin").string());
}

}  // namespace
}  // namespace sonivo::test
