// What is made of the physical microphone's name.

#include "host/mode_rules.h"
#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr const char* kBuiltIn = "内蔵マイク (Realtek High Definition Audio)";
constexpr const char* kIntel = "マイク配列 (デジタルマイク向けインテル® スマート・サウンド・テクノロジー)";
constexpr const char* kIntelEnglish = "Microphone Array (デジタルマイク向けインテル® スマート・サウンド・テクノロジー)";
constexpr const char* kEnglishOnly = "Microphone Array (Intel® Smart Sound Technology for Digital Microphones)";
constexpr const char* kOther = "Headset Microphone (USB Headset)";

class DeviceNameChange : public RulesBench, public ::testing::Test {
 protected:
  explicit DeviceNameChange(Notebook notebook) : RulesBench(notebook) {
    store_parameters();
    make_file(enrolled());
  }
  /// What the stream that opens now tells the chain.
  std::vector<std::string> opening(ChainScript& chain) {
    chain.clear();
    record();
    return chain.calls();
  }
  void change_to(const char* microphone) {
    use_microphone(microphone);
    asked();
    deviceNameChange(host);
  }
};

class BeamFormingNameChange : public DeviceNameChange {
 protected:
  BeamFormingNameChange() : DeviceNameChange(Notebook::beam_forming) {}
  std::vector<std::string> opening() { return DeviceNameChange::opening(*chains.beam_forming); }
};

TEST_F(BeamFormingNameChange, PassesKeyCancelAndBeamformingOnForEachBuiltInMicrophone) {
  for (const char* name : {kBuiltIn, kIntel, kIntelEnglish}) {
    host.m_bMicDeviceDirty = 1;
    change_to(name);
    EXPECT_THAT(asked(), ElementsAre(Asked{control::GetKeyboardCancelMTG}, Asked{control::GetBeamformingMTG},
                                     Asked{control::GetBeamformingMTG}))
        << name;
    EXPECT_EQ(host.m_bMicDeviceDirty, 0u) << name;
  }
}

TEST_F(BeamFormingNameChange, LeavesTheDriverLockFree) {
  use_microphone(kBuiltIn);
  EXPECT_EQ(held_during([this] { deviceNameChange(host); }), (Held{{control::GetKeyboardCancelMTG, false},
                                                                   {control::GetBeamformingMTG, false},
                                                                   {control::GetBeamformingMTG, false}}));
}

class BeamFormingMicrophone : public BeamFormingNameChange, public ::testing::WithParamInterface<const char*> {};

TEST_P(BeamFormingMicrophone, IsBuiltInAndGetsWhatTheDriverHas) {
  device.set_number(control::GetKeyboardCancelMTG, 0);
  device.set_number(control::GetBeamformingMTG, 2);
  change_to(GetParam());
  EXPECT_THAT(opening(), AllOf(Contains("SetKeyReductionActive(0)"), Contains("SetBeamFormingActive(1)")));
}

TEST_P(BeamFormingMicrophone, GetsNoBeamformingWhereTheDriverHasNone) {
  device.set_number(control::GetBeamformingMTG, 0);
  host.m_AudioControl.ChangeBeamFormingState(true);
  change_to(GetParam());
  EXPECT_THAT(opening(), AllOf(Contains("SetKeyReductionActive(1)"), Contains("SetBeamFormingActive(0)")));
}

TEST_P(BeamFormingMicrophone, GetsBothWhereTheDriverCantBeRead) {
  device.set_number(control::GetBeamformingMTG, 0);
  device.set_number(control::GetKeyboardCancelMTG, 0);
  device.fail(control::GetBeamformingMTG, 31);
  device.fail(control::GetKeyboardCancelMTG, 31);
  host.m_AudioControl.ChangeBeamFormingKeyCancelState(false);
  change_to(GetParam());
  EXPECT_THAT(opening(), AllOf(Contains("SetKeyReductionActive(1)"), Contains("SetBeamFormingActive(1)")));
}

TEST_P(BeamFormingMicrophone, GetsBeamformingWhereTheSecondReadFailsThoughTheFirstFoundNone) {
  device.set_number(control::GetBeamformingMTG, 0);
  script.fail(Step::control_request, 31, 3);
  change_to(GetParam());
  EXPECT_THAT(opening(), Contains("SetBeamFormingActive(1)"));
}

INSTANTIATE_TEST_SUITE_P(Names, BeamFormingMicrophone, ::testing::Values(kBuiltIn, kIntel, kIntelEnglish));

class ForeignBeamFormingMicrophone : public BeamFormingMicrophone {};

TEST_P(ForeignBeamFormingMicrophone, HasNoBeamforming) {
  host.m_AudioControl.ChangeBeamFormingState(true);
  change_to(GetParam());
  EXPECT_THAT(asked(), ElementsAre(Asked{control::GetKeyboardCancelMTG}, Asked{control::GetBeamformingMTG}));
  use_microphone("Microphone Array (Realtek High Definition Audio)");  // where the parameters are found
  EXPECT_THAT(opening(), AllOf(Contains("SetKeyReductionActive(1)"), Contains("SetBeamFormingActive(0)")));
}

TEST_P(ForeignBeamFormingMicrophone, IsWrittenDownAfterAChangeOnly) {
  change_to(GetParam());
  EXPECT_THAT(written(), IsEmpty());
  host.m_bMicDeviceDirty = 1;
  deviceNameChange(host);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 0}));
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  deviceNameChange(host);
  EXPECT_THAT(written(), IsEmpty());
}

TEST_P(ForeignBeamFormingMicrophone, CountsAsWrittenDownThoughTheDriverRefuses) {
  host.m_bMicDeviceDirty = 1;
  device.fail(control::SetBeamformingMTG, 31);
  change_to(GetParam());
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 0}));
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_EQ(log.count("[CSonivoDriverAccess] request 8000E18C failed: error 31\n"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Names, ForeignBeamFormingMicrophone, ::testing::Values(kOther, kEnglishOnly));

TEST_F(BeamFormingNameChange, TakesNoMicrophoneAtAllForAForeignOne) {
  host.m_bMicDeviceDirty = 1;
  deviceNameChange(host);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 0}));
}

TEST_F(BeamFormingNameChange, ProbesTheNamesInTheirOrder) {
  use_microphone(kOther);
  log.clear();
  const std::uint64_t before = script.count(Step::endpoint_open_properties);
  deviceNameChange(host);
  EXPECT_EQ(script.count(Step::endpoint_open_properties), before + 3);
  use_microphone(kIntel);
  const std::uint64_t second = script.count(Step::endpoint_open_properties);
  deviceNameChange(host);
  EXPECT_EQ(script.count(Step::endpoint_open_properties), second + 2);
  use_microphone(kBuiltIn);
  const std::uint64_t first = script.count(Step::endpoint_open_properties);
  deviceNameChange(host);
  EXPECT_EQ(script.count(Step::endpoint_open_properties), first + 1);
}

TEST_F(BeamFormingNameChange, TracesEachNameThatItProbes) {
  const auto probes = [&](const char* microphone) {
    use_microphone(microphone);
    log.clear();
    deviceNameChange(host);
    auto traces = log.traces();
    std::erase_if(traces, [](const std::string& text) { return text.find(" DEVICE_BUILT_IN") == std::string::npos; });
    return traces;
  };
  EXPECT_THAT(probes(kBuiltIn), ElementsAre("[deviceNameChange] DEVICE_BUILT_IN 1\n"));
  EXPECT_THAT(probes(kIntel),
              ElementsAre("[deviceNameChange] DEVICE_BUILT_IN 0\n", "[deviceNameChange] DEVICE_BUILT_IN_INTEL 1\n"));
  EXPECT_THAT(probes(kIntelEnglish),
              ElementsAre("[deviceNameChange] DEVICE_BUILT_IN 0\n", "[deviceNameChange] DEVICE_BUILT_IN_INTEL 0\n",
                          "[deviceNameChange] DEVICE_BUILT_IN_INTEL_ENG 1\n"));
  EXPECT_THAT(probes(kOther),
              ElementsAre("[deviceNameChange] DEVICE_BUILT_IN 0\n", "[deviceNameChange] DEVICE_BUILT_IN_INTEL 0\n",
                          "[deviceNameChange] DEVICE_BUILT_IN_INTEL_ENG 0\n"));
}

class SpeechNameChange : public DeviceNameChange {
 protected:
  SpeechNameChange() : DeviceNameChange(Notebook::ai_speech) {
    host.m_AudioControl.SetAISpeechEnhanceOpen();
    device.set_number(control::GetAispeechenhanceSetAiModelMTG, 1);
  }
  std::vector<std::string> opening() { return DeviceNameChange::opening(*chains.ai_speech); }
  /// Whether the chain was told to go over to the enrolled model.
  std::size_t swaps() const { return chains.ai_speech->count("SetAIModel(" + enrolled() + ")"); }
};

class IntelSpeechMicrophone : public SpeechNameChange, public ::testing::WithParamInterface<const char*> {};

TEST_P(IntelSpeechMicrophone, GetsWhatTheDriverHas) {
  host.m_bMicDeviceDirty = 1;
  device.set_number(control::GetKeyboardCancelMTG, 2);
  change_to(GetParam());
  EXPECT_THAT(asked(), ElementsAre(Asked{control::GetKeyboardCancelMTG}, Asked{control::GetBeamformingMTG},
                                   Asked{control::GetAispeechenhanceMTG},
                                   Asked{control::GetAispeechenhanceSetAiModelMTG}, Asked{control::GetBeamformingMTG}));
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_EQ(swaps(), 1u);
  EXPECT_THAT(opening(),
              IsSupersetOf({"SetKeyReductionActive(1)", "SetBeamFormingActive(1)", "SetAISpeechEnhanceActive(1)"}));
}

TEST_P(IntelSpeechMicrophone, GetsNothingWhereTheDriverHasNothing) {
  for (const auto code : {control::GetKeyboardCancelMTG, control::GetBeamformingMTG, control::GetAispeechenhanceMTG,
                          control::GetAispeechenhanceSetAiModelMTG}) {
    device.set_number(code, 0);
  }
  change_to(GetParam());
  EXPECT_EQ(swaps(), 0u);
  EXPECT_THAT(opening(),
              IsSupersetOf({"SetKeyReductionActive(0)", "SetBeamFormingActive(0)", "SetAISpeechEnhanceActive(0)"}));
}

TEST_P(IntelSpeechMicrophone, GetsAllWhereTheDriverCantBeRead) {
  for (const auto code : {control::GetKeyboardCancelMTG, control::GetBeamformingMTG, control::GetAispeechenhanceMTG,
                          control::GetAispeechenhanceSetAiModelMTG}) {
    device.set_number(code, 0);
    device.fail(code, 31);
  }
  change_to(GetParam());
  EXPECT_EQ(swaps(), 1u);
  EXPECT_THAT(opening(),
              IsSupersetOf({"SetKeyReductionActive(1)", "SetBeamFormingActive(1)", "SetAISpeechEnhanceActive(1)"}));
}

TEST_P(IntelSpeechMicrophone, ClearsBothSettingsOfAVoiceModelThatIsMissing) {
  std::filesystem::remove(enrolled());
  change_to(GetParam());
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetAispeechenhanceSetAiModelMTG, 0},
                                     Asked{control::SetAispeechenhanceSetAiModel_UI_MTG, 0}))
      << "once: the state of the second time is no change";
  EXPECT_EQ(host.m_LastTrouble.Latest().text, "the enrolled voice model is missing");
}

TEST_P(IntelSpeechMicrophone, GetsBeamformingThenTheModelThenTheEnhancement) {
  std::filesystem::remove(enrolled());
  use_microphone(GetParam());
  record();
  machine.run_for(100);
  chains.ai_speech->clear();
  std::size_t beamforming = 77;
  std::size_t enhancement = 77;
  script.before(Step::control_request, 6, [&] {  // the first that a missing model leads to
    machine.run_for(100);                        // the stream takes up what it has been told so far
    beamforming = chains.ai_speech->count("SetBeamFormingActive(1)");
    enhancement = chains.ai_speech->count("SetAISpeechEnhanceActive(1)");
  });
  asked();
  deviceNameChange(host);
  EXPECT_EQ(asked().at(5), (Asked{control::SetAispeechenhanceSetAiModelMTG, 0}));
  EXPECT_EQ(beamforming, 1u);
  EXPECT_EQ(enhancement, 0u);
  machine.run_for(100);
  EXPECT_EQ(chains.ai_speech->count("SetAISpeechEnhanceActive(1)"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Names, IntelSpeechMicrophone, ::testing::Values(kIntel, kIntelEnglish));

/// A microphone that gets the enhancement before the model, and the request by which a missing model is given up.
struct LastSteps {
  const char* name;
  std::uint64_t request;
};
class OtherSpeechMicrophone : public SpeechNameChange, public ::testing::WithParamInterface<LastSteps> {};

TEST_P(OtherSpeechMicrophone, GetsTheEnhancementThenTheModel) {
  std::filesystem::remove(enrolled());
  use_microphone(GetParam().name);
  record();
  machine.run_for(100);
  chains.ai_speech->clear();
  std::size_t enhancement = 77;
  script.before(Step::control_request, GetParam().request, [&] {
    machine.run_for(100);  // the stream takes up what it has been told so far
    enhancement = chains.ai_speech->count("SetAISpeechEnhanceActive(1)");
  });
  asked();
  deviceNameChange(host);
  EXPECT_EQ(asked().at(GetParam().request - 1), (Asked{control::SetAispeechenhanceSetAiModelMTG, 0}));
  EXPECT_EQ(enhancement, 1u);
}

INSTANTIATE_TEST_SUITE_P(Names, OtherSpeechMicrophone, ::testing::Values(LastSteps{kBuiltIn, 6}, LastSteps{kOther, 5}));

TEST_F(SpeechNameChange, LeavesTheThirdChainsBeamformingAloneForTheFirstName) {
  host.m_bMicDeviceDirty = 1;
  change_to(kBuiltIn);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_EQ(swaps(), 1u);
  EXPECT_THAT(opening(),
              IsSupersetOf({"SetKeyReductionActive(1)", "SetBeamFormingActive(0)", "SetAISpeechEnhanceActive(1)"}));
}

TEST_F(SpeechNameChange, TellsTheSecondChainForTheFirstName) {
  change_to(kBuiltIn);
  set_notebook(Notebook::beam_forming);
  EXPECT_THAT(DeviceNameChange::opening(*chains.beam_forming), Contains("SetBeamFormingActive(1)"));
}

TEST_F(SpeechNameChange, LeavesTheSecondChainAloneForTheOtherNames) {
  change_to(kIntel);
  set_notebook(Notebook::beam_forming);
  EXPECT_THAT(DeviceNameChange::opening(*chains.beam_forming), Contains("SetBeamFormingActive(0)"));
}

TEST_F(SpeechNameChange, ClearsBothSettingsOfAMissingVoiceModelForTheFirstNameToo) {
  std::filesystem::remove(enrolled());
  change_to(kBuiltIn);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetAispeechenhanceSetAiModelMTG, 0},
                                     Asked{control::SetAispeechenhanceSetAiModel_UI_MTG, 0}));
}

TEST_F(SpeechNameChange, TakesBeamformingFromAForeignMicrophoneAndLeavesItTheRest) {
  host.m_AudioControl.ChangeAISpeechEnhanceBeamFormingState(true);
  host.m_bMicDeviceDirty = 1;
  change_to(kOther);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 0}));
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_EQ(swaps(), 1u);
  use_microphone("Microphone Array (Realtek High Definition Audio)");
  EXPECT_THAT(opening(),
              IsSupersetOf({"SetKeyReductionActive(1)", "SetBeamFormingActive(0)", "SetAISpeechEnhanceActive(1)"}));
}

TEST_F(SpeechNameChange, ClearsBothSettingsOfAMissingVoiceModelForAForeignMicrophoneToo) {
  std::filesystem::remove(enrolled());
  change_to(kOther);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetAispeechenhanceSetAiModelMTG, 0},
                                     Asked{control::SetAispeechenhanceSetAiModel_UI_MTG, 0}));
}

TEST_F(SpeechNameChange, ConcludesAForeignMicrophoneThoughTheDriverRefuses) {
  host.m_bMicDeviceDirty = 1;
  device.fail(control::SetBeamformingMTG, 31);
  change_to(kOther);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 0}));
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
}

TEST_F(SpeechNameChange, WritesNothingForAForeignMicrophoneWithoutAChange) {
  change_to(kOther);
  EXPECT_THAT(written(), IsEmpty());
}

class OtherNameChange : public RulesBench, public ::testing::TestWithParam<Notebook> {};

TEST_P(OtherNameChange, ConcludesTheFirstTwoNamesOnly) {
  set_notebook(GetParam());
  const auto dirty_after = [&](const char* name) {
    use_microphone(name);
    host.m_bMicDeviceDirty = 1;
    deviceNameChange(host);
    return host.m_bMicDeviceDirty == 1;
  };
  EXPECT_FALSE(dirty_after(kBuiltIn));
  EXPECT_FALSE(dirty_after(kIntel));
  EXPECT_TRUE(dirty_after(kIntelEnglish));
  EXPECT_TRUE(dirty_after(kOther));
  EXPECT_THAT(written(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Notebooks, OtherNameChange, ::testing::Values(Notebook::plain, Notebook::key_cancel));

// ---- All three

TEST_F(BeamFormingNameChange, FollowsHeadphonesBeforeTheName) {
  use_microphone(kOther);
  device.set_number(control::GetHeadphone, 1);
  asked();
  FollowDevices(host);
  EXPECT_EQ(host.m_dwHeadPhone, 1u);
  EXPECT_EQ(host.m_bMicDeviceDirty, 0u);
  EXPECT_THAT(written(), ElementsAre(Asked{control::SetBeamformingMTG, 0}, Asked{control::SetBeamformingMTG, 0}))
      << "by the headphones, then by the name, which finds the change";
}

}  // namespace
}  // namespace sonivo::test
