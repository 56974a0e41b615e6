#include "relay/virtual_device.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/sim/machine.h"

namespace sonivo::test {
namespace {

class VirtualDevicePath : public testing::Test {
 protected:
  std::optional<std::string> find(DataFlow flow, std::vector<DeviceInterface> interfaces) {
    machine.driver().set_interfaces(std::move(interfaces));
    return FindVirtualDevicePath(machine.seams().bus, flow);
  }

  sim::SimMachine machine;
};

TEST_F(VirtualDevicePath, IsLookedForAmongTheAudioInterfaces) {
  EXPECT_EQ(to_text(sim::kCategoryAudio), "{6994ad04-93ef-11d0-a3cc-00a0c9223196}");  // nothing is found under another
  EXPECT_NE(find(DataFlow::capture, {{R"(\\?\root\wavemicin)", "NorvellRelay"}}), std::nullopt);
}

TEST_F(VirtualDevicePath, CutsTheInterfacePathAtTheFilterNameAndAppendsTheDriversOwn) {
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root#media#0000#{guid}\wavemicin)", "NorvellRelay"}}),
            R"(\\?\root#media#0000#{guid}\VADrv\WaveMicIn)");
  EXPECT_EQ(find(DataFlow::render, {{R"(\\?\root#media#0000#{guid}\wavespeaker)", "NorvellRelay"}}),
            R"(\\?\root#media#0000#{guid}\VADrv\WaveSpeaker)");
}

TEST_F(VirtualDevicePath, IgnoresTheCaseOfThePathAndGivesItInLowerCase) {
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\ROOT#Media\WAVEMICIN)", "NorvellRelay"}}),
            R"(\\?\root#media\VADrv\WaveMicIn)");
}

TEST_F(VirtualDevicePath, DropsWhatFollowsTheFilterName) {
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root\wavemicin\more)", "NorvellRelay"}}), R"(\\?\root\VADrv\WaveMicIn)");
}

TEST_F(VirtualDevicePath, CutsAtTheFirstOfTwoFilterNames) {
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\a\wavemicin\b\wavemicin)", "NorvellRelay"}}), R"(\\?\a\VADrv\WaveMicIn)");
}

TEST_F(VirtualDevicePath, TakesOnlyTheServiceOfExactlyThisName) {
  for (const char* service : {"norvellrelay", "NorvellRelay2", "Norvell", "", "NORVELLRELAY", " NorvellRelay"}) {
    EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root\wavemicin)", service}}), std::nullopt) << service;
  }
}

TEST_F(VirtualDevicePath, EachDirectionWantsItsOwnFilter) {
  const std::vector<DeviceInterface> mic{{R"(\\?\root\wavemicin)", "NorvellRelay"}};
  const std::vector<DeviceInterface> speaker{{R"(\\?\root\wavespeaker)", "NorvellRelay"}};
  EXPECT_EQ(find(DataFlow::render, mic), std::nullopt);
  EXPECT_EQ(find(DataFlow::capture, speaker), std::nullopt);
}

TEST_F(VirtualDevicePath, TheFilterNameCountsOnlyWithItsSeparator) {
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root\mywavemicin)", "NorvellRelay"}}), std::nullopt);
}

TEST_F(VirtualDevicePath, TheFirstHitWins) {
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\zero\wavemicin)", "Other"},
                                     {R"(\\?\one\wavespeaker)", "NorvellRelay"},
                                     {R"(\\?\two\wavemicin)", "NorvellRelay"},
                                     {R"(\\?\three\wavemicin)", "NorvellRelay"}}),
            R"(\\?\two\VADrv\WaveMicIn)");
}

TEST_F(VirtualDevicePath, IsNoneWithoutInterfaces) { EXPECT_EQ(find(DataFlow::capture, {}), std::nullopt); }

TEST_F(VirtualDevicePath, OfTheNotebookIsTheDevicesOwn) {
  EXPECT_EQ(FindVirtualDevicePath(machine.seams().bus, DataFlow::capture),
            sim::SimDriver::device_path(sim::PinId::mic));
  EXPECT_EQ(FindVirtualDevicePath(machine.seams().bus, DataFlow::render),
            sim::SimDriver::device_path(sim::PinId::speaker));
}

}  // namespace
}  // namespace sonivo::test
