#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "../driver/failing_disk.h"
#include "../platform/linux/running_driver.h"
#include "apps/tool/chain_parameters.h"
#include "apps/tool/endpoint_properties.h"
#include "apps/tool/failure.h"
#include "apps/tool/machine_chain.h"
#include "apps/tool/microphones.h"
#include "apps/tool/own_names.h"
#include "platform/linux/pipewire/friendly_names.h"
#include "relay/effect_properties.h"
#include "relay/endpoint_names.h"

namespace sonivo::tool {
namespace {

using control::FxHome;

// ---- Which microphone

const Microphone kWebcam{"usb.cam", "Webcam", true};
const Microphone kHeadset{"usb.head", "Headset", false};
const Microphone kAnalog{"pci.analog", "Built-in Audio (内蔵マイク (Realtek High Definition Audio))", false};
const Microphone kArray{"pci.dmic", "Digital Microphone (マイク配列 (デジタルマイク向けインテル)", false};

std::string failure_of(const std::function<void()>& act) {
  try {
    act();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "no failure";
}

TEST(Microphones, TheBuiltInOneIsTheArrayElseTheFirstThatIsKnown) {
  EXPECT_EQ(built_in_microphone(std::vector{kWebcam, kAnalog, kArray}).id, "pci.dmic");
  EXPECT_EQ(built_in_microphone(std::vector{kWebcam, kAnalog}).id, "pci.analog");
  EXPECT_EQ(
      failure_of([] { built_in_microphone(std::vector{kWebcam}); }),
      "no microphone is known as this machine's own; choose one with --microphone NAME; found: 'Webcam' (usb.cam)");
  EXPECT_THAT(failure_of([] { built_in_microphone({}); }), testing::EndsWith("; found: none"));
}

TEST(Microphones, AnExternalArrayIsNotTheNotebooks) {
  const Microphone external{"usb", "外付け マイク配列 (デジタルマイク向けインテル", false};
  EXPECT_FALSE(is_microphone_array(external));
  EXPECT_TRUE(is_microphone_array(kArray));
  EXPECT_FALSE(is_microphone_array(kAnalog));
}

TEST(Microphones, TheInstalledTableKnowsThoseOfNotebooksInTheLanguageOfAnyDesktop) {
  pipewire::FriendlyNames names;
  ASSERT_EQ(names.add_file(std::string(SONIVO_SHARE_FOLDER) + "/microphones"), "");
  const auto kind = [&](const char* description, const std::string& node) -> std::string {
    const Microphone microphone{node, names.name_of(description, node), false};
    if (!IsBuiltInMicrophone(microphone.name)) return "external";
    return is_microphone_array(microphone)                           ? "array"
           : microphone.name.find("内蔵マイク") != std::string::npos ? "single"
                                                                     : "";
  };
  const std::string intel = "alsa_input.pci-0000_00_1f.3";
  for (const char* const built_in : {"Built-in Audio", "Internes Audio", "Audio interne", "内部オーディオ"}) {
    EXPECT_EQ(kind(built_in, intel + ".analog-stereo"), "single") << built_in;
    EXPECT_EQ(kind(built_in, "alsa_input.pci-0000_00_1b.0.analog-stereo"), "single") << built_in;
    EXPECT_EQ(kind(built_in, "alsa_input.pci-0000_04_00.6.analog-stereo"), "single") << built_in;
    EXPECT_EQ(kind(built_in, intel + "-platform-skl_hda_dsp_generic.HiFi__hw_sofhdadsp_6__source"), "array")
        << built_in;
    EXPECT_EQ(kind(built_in, "alsa_input.pci-0000_04_00.5-platform-acp_pdm_mach.0.stereo-fallback"), "array")
        << built_in;
  }
  EXPECT_EQ(kind("Smart Sound Technology Audio Controller Digital Microphone", intel + ".HiFi__source"), "array");
  EXPECT_EQ(kind("Internal Microphone", "other"), "single");
  EXPECT_EQ(kind("Headset Mono Microphone", intel + "-platform-skl_hda_dsp_generic.HiFi__hw_sofhdadsp__source"),
            "external");
  EXPECT_EQ(kind("Webcam Analog Stereo", "alsa_input.usb-Webcam-02.analog-stereo"), "external");
  EXPECT_EQ(kind("Headset", "bluez_input.00_16_94_3E_00.6"), "external");
}

TEST(Microphones, OneIsCalledByItsIdItsNameOrAPartThatNoOtherHas) {
  const std::vector all{kWebcam, kHeadset, {"usb", "All of usb", false}};
  EXPECT_EQ(microphone_called("usb.cam", all).id, "usb.cam");
  EXPECT_EQ(microphone_called("usb", all).id, "usb") << "the whole id, though others have it as a part";
  EXPECT_EQ(microphone_called("HEAD", all).id, "usb.head");
  EXPECT_EQ(failure_of([&] { microphone_called("a", all); }),
            "'a' may be 'Webcam' (usb.cam), 'Headset' (usb.head), 'All of usb' (usb); write more of the name");
  EXPECT_THAT(failure_of([&] { microphone_called("x", all); }),
              testing::StartsWith("no microphone is called 'x'; found: "));
}

TEST(Microphones, OfASurveyAreItsSourcesButTheProgramsOwn) {
  pipewire::ServerSurvey survey;
  survey.endpoints = {{"a", "A", DataFlow::capture, false, ""},
                      {"s", "S", DataFlow::render, false, ""},
                      {"r", "Norvell Audio Relay", DataFlow::capture, false, ""},
                      {"b", "B", DataFlow::capture, false, ""}};
  survey.default_microphone = "b";
  const auto all = microphones_of(survey);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].id, "a");
  EXPECT_FALSE(all[0].is_default);
  EXPECT_EQ(all[1].name, "B");
  EXPECT_TRUE(all[1].is_default);
}

// ---- The user's table

class OwnNamesTest : public testing::Test {
 protected:
  std::string text() const {
    std::ifstream file(table_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void change(bool (OwnNames::*how)(const std::string&), const std::string& id) {
    OwnNames names(table_);
    EXPECT_TRUE((names.*how)(id));
    names.commit();
  }

  test::TemporaryFolder folder_;
  const std::string table_ = folder_ / "config/sonivo/microphones";
};

TEST_F(OwnNamesTest, AMicrophoneIsEnteredOnceAndTakenOut) {
  change(&OwnNames::add, "usb.head");
  EXPECT_EQ(text(), "usb.head = マイク配列 (デジタルマイク向けインテル\n");
  EXPECT_FALSE(OwnNames(table_).add("usb.head"));
  EXPECT_TRUE(pipewire::FriendlyNames().add_file(table_).empty());
  change(&OwnNames::remove, "usb.head");
  EXPECT_EQ(text(), "");
  EXPECT_FALSE(OwnNames(table_).remove("usb.head"));
}

TEST_F(OwnNamesTest, ALineWhoseEndLooksAlikeIsAnother) {
  change(&OwnNames::add, "my.usb.head");
  EXPECT_FALSE(OwnNames(table_).remove("usb.head"));
  change(&OwnNames::add, "usb.head");
  change(&OwnNames::remove, "usb.head");
  EXPECT_EQ(text(), "my.usb.head = マイク配列 (デジタルマイク向けインテル\n");
}

TEST_F(OwnNamesTest, WithoutACommitNothingChanges) {
  { EXPECT_TRUE(OwnNames(table_).add("usb.head")); }
  EXPECT_FALSE(std::filesystem::exists(table_));
  EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::path(table_).parent_path()));
}

TEST_F(OwnNamesTest, AnIdThatTheTableWouldReadOtherwiseIsRefused) {
  for (const char* id : {"", "a=b", "#a", " a", "a ", "a\nb"}) {
    EXPECT_THAT(failure_of([&] { OwnNames(table_).add(id); }), testing::HasSubstr("can't stand in a table")) << id;
    EXPECT_FALSE(OwnNames(table_).remove(id)) << id;
  }
}

// ---- What the driver keeps

class ChainParametersTest : public testing::Test {
 protected:
  std::optional<EndpointProperty> kept(FxHome home, const PropertyKey& key) { return endpoint_.find(home, key); }

  test::TemporaryFolder folder_;
  test::RunningDriver running_{folder_};
  DriverConnection driver_{running_.path()};
  EndpointProperties endpoint_{driver_, "mic"};
};

EndpointProperty filling(std::uint32_t pid, std::size_t bytes) {
  return {FxHome::user_store, {{}, pid}, control::kTypeBlob, std::vector<std::byte>(bytes)};
}

TEST_F(ChainParametersTest, AreKeptAsTheRelayReadsThem) {
  EXPECT_EQ(endpoint_.set(chain_properties(endpoint_, Chain::ai, std::nullopt, 0.25f)), 4);
  const auto key_cancel = kept(FxHome::user_store, PKEY_NVC_MTGMIC_KC_Param);
  ASSERT_TRUE(key_cancel.has_value());
  EXPECT_EQ(key_cancel->bytes.size(), 15808u + 2u);
  EXPECT_EQ(key_cancel->bytes[0], std::byte{1});
  EXPECT_EQ(key_cancel->bytes[1], std::byte{1});
  const auto beams = kept(FxHome::user_store, PKEY_NVC_MTGMIC_BF_KC_Param);
  ASSERT_TRUE(beams.has_value());
  EXPECT_EQ(beams->bytes.size(), 32636u + 3u);
  const auto strength = kept(FxHome::user_store, PKEY_NVC_AI_Strength);
  ASSERT_TRUE(strength.has_value());
  EXPECT_EQ(strength->bytes, (std::vector{std::byte{0}, std::byte{0}, std::byte{0x80}, std::byte{0x3E}}));
  const auto guid = kept(FxHome::effect_store, PKEY_AudioEndpoint_GUID);
  ASSERT_TRUE(guid.has_value());
  EXPECT_EQ(guid->type, control::kTypeText);
  EXPECT_EQ(guid->bytes.size(), 38u);
}

TEST_F(ChainParametersTest, AreNotSetAnewWhenTheyAreTheSameAndTheGuidStays) {
  endpoint_.set(chain_properties(endpoint_, Chain::keycancel, std::nullopt, std::nullopt));
  const auto guid = kept(FxHome::effect_store, PKEY_AudioEndpoint_GUID);
  EXPECT_EQ(endpoint_.set(chain_properties(endpoint_, Chain::keycancel, std::nullopt, std::nullopt)), 0);
  EXPECT_EQ(endpoint_.set(chain_properties(endpoint_, Chain::keycancel, std::nullopt, 1.0f)), 1);
  EXPECT_EQ(kept(FxHome::effect_store, PKEY_AudioEndpoint_GUID)->bytes, guid->bytes);
}

TEST_F(ChainParametersTest, AreToldAndTakenBack) {
  EXPECT_FALSE(stored_parameters(endpoint_).any());
  endpoint_.set(chain_properties(endpoint_, Chain::keycancel, std::nullopt, 0.5f));
  const StoredParameters stored = stored_parameters(endpoint_);
  EXPECT_TRUE(stored.key_cancel);
  EXPECT_TRUE(stored.beamforming);
  EXPECT_EQ(stored.strength, 0.5f);
  EXPECT_TRUE(remove_chain_properties(endpoint_));
  EXPECT_FALSE(stored_parameters(endpoint_).any());
  EXPECT_FALSE(kept(FxHome::effect_store, PKEY_AudioEndpoint_GUID).has_value());
  EXPECT_FALSE(remove_chain_properties(endpoint_));
}

TEST_F(ChainParametersTest, OfADriverThatHasNoRoomAreNotKeptInPart) {
  std::size_t room = control::kMaxFxTotalBytes;
  for (std::uint32_t pid = 1; room > 40000; ++pid) {
    const std::size_t bytes = std::min(room - 40000, control::kMaxFxValueBytes);
    endpoint_.set({filling(pid, bytes)});
    room -= bytes;
  }
  const auto former = filling(551, 3);
  endpoint_.set({{FxHome::user_store, PKEY_NVC_MTGMIC_KC_Param, former.type, former.bytes}});
  EXPECT_THAT(failure_of([&] { endpoint_.set(chain_properties(endpoint_, Chain::ai, std::nullopt, std::nullopt)); }),
              testing::StartsWith("the driver does not keep the parameters: its disk is full"));
  EXPECT_EQ(kept(FxHome::user_store, PKEY_NVC_MTGMIC_KC_Param)->bytes, former.bytes);
  EXPECT_FALSE(stored_parameters(endpoint_).beamforming);
  EXPECT_FALSE(kept(FxHome::effect_store, PKEY_AudioEndpoint_GUID).has_value());
}

TEST_F(ChainParametersTest, OfAnIdThatTheDriverCantTakeAreRefused) {
  EXPECT_THAT(failure_of([&] { EndpointProperties(driver_, ""); }), testing::HasSubstr("is no id of a microphone"));
  EXPECT_THAT(failure_of([&] { EndpointProperties(driver_, std::string(260, 'x')); }),
              testing::HasSubstr("is no id of a microphone"));
}

TEST_F(ChainParametersTest, TheNumbersOfAMachineCallForTheChainThatWasSet) {
  EXPECT_EQ(driver_chain(driver_), Chain::none);
  for (const char* name : {"keycancel", "beamforming", "ai", "none"}) {
    set_driver_chain(driver_, parse_chain(name));
    EXPECT_EQ(to_string(driver_chain(driver_)), name);
  }
  EXPECT_THROW(parse_chain("both"), UsageError);
}

TEST(MachineChain, WhicheverStepOfTheDiskFailsTheFormerChainHoldsOrTheNewOne) {
  test::FailingDisk disk;
  for (bool failed = true; failed;) {
    ++disk.fail_at;
    disk.steps = 0;
    failed = false;
    const test::TemporaryFolder folder;
    test::RunningDriver running(folder, disk);
    DriverConnection driver(running.path());
    Chain former = Chain::none;
    for (const Chain chain : {Chain::keycancel, Chain::ai, Chain::beamforming}) {
      if (failure_of([&] { set_driver_chain(driver, chain); }) != "no failure") {
        failed = true;
        EXPECT_THAT(driver_chain(driver), testing::AnyOf(former, chain)) << "step " << disk.fail_at;
        set_driver_chain(driver, chain);
      }
      EXPECT_EQ(driver_chain(driver), chain) << "step " << disk.fail_at;
      former = chain;
    }
  }
  EXPECT_GT(disk.fail_at, 6 * 5) << "settings that were written, with a new file, a write, two syncs and a rename each";
}

}  // namespace
}  // namespace sonivo::tool
