// The path of the virtual device, from the interfaces on the bus.

#include "relay/virtual_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using ::testing::Optional;

/// Bus with the given interfaces; nothing on it opens.
class FixedBus final : public DeviceBus {
 public:
  explicit FixedBus(std::vector<DeviceInterface> interfaces) : interfaces_(std::move(interfaces)) {}

  std::vector<DeviceInterface> interfaces(const Guid& category) override {
    asked_for = category;
    return interfaces_;
  }
  std::shared_ptr<Device> open(const std::string&, Sharing, Error& why) override {
    why = error::kFileNotFound;
    return nullptr;
  }
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast&, WindowHandle) override { return nullptr; }

  Guid asked_for;

 private:
  const std::vector<DeviceInterface> interfaces_;
};

std::optional<std::string> find(DataFlow flow, std::vector<DeviceInterface> interfaces) {
  FixedBus bus(std::move(interfaces));
  return FindVirtualDevicePath(bus, flow);
}

TEST(FindVirtualDevicePath, AsksForAudioInterfaces) {
  FixedBus bus({});
  EXPECT_EQ(FindVirtualDevicePath(bus, DataFlow::capture), std::nullopt);
  EXPECT_EQ(to_text(bus.asked_for), "{6994ad04-93ef-11d0-a3cc-00a0c9223196}");
}

TEST(FindVirtualDevicePath, CutsAtTheFilterNameAndAppendsDeviceAndFilterInTheirOwnCase) {
  const std::vector<DeviceInterface> bus{{R"(\\?\root#media#0#{x}\wavemicin)", "NorvellRelay"},
                                         {R"(\\?\root#media#0#{x}\wavespeaker)", "NorvellRelay"}};
  EXPECT_THAT(find(DataFlow::capture, bus), Optional(std::string(R"(\\?\root#media#0#{x}\VADrv\WaveMicIn)")));
  EXPECT_THAT(find(DataFlow::render, bus), Optional(std::string(R"(\\?\root#media#0#{x}\VADrv\WaveSpeaker)")));
}

TEST(FindVirtualDevicePath, FindsTheFilterNameInAnyCaseAndLowersThePath) {
  EXPECT_THAT(find(DataFlow::capture, {{R"(\\?\ROOT#Media\WAVEMICIN)", "NorvellRelay"}}),
              Optional(std::string(R"(\\?\root#media\VADrv\WaveMicIn)")));
}

TEST(FindVirtualDevicePath, DropsWhatFollowsTheFilterName) {
  EXPECT_THAT(find(DataFlow::render, {{R"(\\?\root\wavespeaker\0001)", "NorvellRelay"}}),
              Optional(std::string(R"(\\?\root\VADrv\WaveSpeaker)")));
}

TEST(FindVirtualDevicePath, TheServiceMustBeTheRelaysExactly) {
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root\wavemicin)", "norvellrelay"}}), std::nullopt);
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root\wavemicin)", "NorvellRelay2"}}), std::nullopt);
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root\wavemicin)", "Norvell"}}), std::nullopt);
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root\wavemicin)", ""}}), std::nullopt);
}

TEST(FindVirtualDevicePath, TheFilterNameOfTheOtherDirectionIsPassedOver) {
  EXPECT_EQ(find(DataFlow::capture, {{R"(\\?\root\wavespeaker)", "NorvellRelay"}}), std::nullopt);
  EXPECT_EQ(find(DataFlow::render, {{R"(\\?\root\wavemicin)", "NorvellRelay"}}), std::nullopt);
}

TEST(FindVirtualDevicePath, TheFirstHitEndsTheSearch) {
  EXPECT_THAT(find(DataFlow::capture, {{R"(\\?\other\wavemicin)", "HdAudService"},
                                       {R"(\\?\first\wavemicin)", "NorvellRelay"},
                                       {R"(\\?\second\wavemicin)", "NorvellRelay"}}),
              Optional(std::string(R"(\\?\first\VADrv\WaveMicIn)")));
}

}  // namespace
}  // namespace sonivo::test
