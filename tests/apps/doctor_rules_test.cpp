#include "apps/tool/doctor_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "apps/tool/doctor_command.h"

namespace sonivo::tool {
namespace {

using Kind = Finding::Kind;

/// A notebook on which everything is as it should be.
MachineFacts well() {
  MachineFacts facts;
  facts.audio = {.reachable = true,
                 .answers = true,
                 .has_session_manager = true,
                 .endpoints = {{"mic", "Internal Microphone", DataFlow::capture, false, ""},
                               {"spk", "Speakers", DataFlow::render, false, ""},
                               {"relay.mic", "Norvell Audio Relay", DataFlow::capture, false, ""},
                               {"relay.spk", "Norvell Audio Relay", DataFlow::render, false, ""}},
                 .streams = {},
                 .default_microphone = "mic",
                 .default_speaker = "spk"};
  facts.session = {.logind = true, .id = "2", .active = true};
  facts.real_time = true;
  facts.chain = Chain::keycancel;
  facts.has_chain_parameters = true;
  facts.has_report = true;
  facts.service.emplace().driver_ready = true;
  return facts;
}

/// Each "subject: text | advice" of what is wrong.
std::vector<std::string> troubles(const MachineFacts& facts) {
  std::vector<std::string> all;
  for (const Finding& each : findings(facts)) {
    if (each.kind == Kind::trouble) all.push_back(each.subject + ": " + each.text + " | " + each.advice);
  }
  return all;
}

std::string the_trouble(const MachineFacts& facts) {
  const auto all = troubles(facts);
  EXPECT_EQ(all.size(), 1u) << testing::PrintToString(all);
  return all.empty() ? "" : all.front();
}

TEST(DoctorRules, AMachineOnWhichAllIsWellHasNoTroubleAndNeedsNoAdvice) {
  const auto all = findings(well());
  EXPECT_TRUE(is_well(all));
  for (const Finding& each : all) {
    EXPECT_EQ(each.kind, Kind::good) << each.text;
    EXPECT_EQ(each.advice, "") << each.text;
  }
}

TEST(DoctorRules, WithoutAnAudioServerNothingElseIsSaidOfItsDevices) {
  MachineFacts facts = well();
  facts.audio = {};
  EXPECT_EQ(the_trouble(facts),
            "pipewire: PipeWire is not running. | Start it: systemctl --user start pipewire wireplumber.");
}

TEST(DoctorRules, AnAudioServerThatHangs) {
  MachineFacts facts = well();
  facts.audio = {};
  facts.audio.reachable = true;
  EXPECT_EQ(
      the_trouble(facts),
      "pipewire: PipeWire runs, but does not answer. | Restart it: systemctl --user restart pipewire wireplumber.");
}

TEST(DoctorRules, WithoutASessionManagerThereAreNoDefaultsToMiss) {
  MachineFacts facts = well();
  facts.audio.has_session_manager = false;
  facts.audio.default_microphone = facts.audio.default_speaker = "";
  EXPECT_EQ(the_trouble(facts),
            "session-manager: PipeWire has no session manager, so that nobody connects programs with devices. | "
            "Start one: systemctl --user start wireplumber.");
}

TEST(DoctorRules, AMachineWithoutAMicrophone) {
  MachineFacts facts = well();
  facts.audio.default_microphone = "";
  EXPECT_EQ(the_trouble(facts),
            "microphone: There is no microphone. | Plug one in, or turn on the profile of the sound card that has one: "
            "wpctl status shows the cards.");
}

TEST(DoctorRules, AMachineWhoseOnlyMicrophoneIsTheVirtualOne) {
  MachineFacts facts = well();
  facts.audio.endpoints.erase(facts.audio.endpoints.begin());
  facts.audio.default_microphone = "relay.mic";
  EXPECT_THAT(the_trouble(facts), testing::StartsWith("microphone: There is no microphone. | "));
}

TEST(DoctorRules, ASpeakerThatWasChosenAndIsGone) {
  MachineFacts facts = well();
  facts.render_endpoint = "usb";
  EXPECT_EQ(the_trouble(facts),
            "speaker: The speaker that was chosen, 'usb', is not there. | Plug it in, or follow the default again: "
            "sonivo settings set render-endpoint default.");
}

TEST(DoctorRules, AMicrophoneThatWasChosenAndIsTheVirtualOneItself) {
  MachineFacts facts = well();
  facts.capture_endpoint = "relay.mic";
  EXPECT_EQ(the_trouble(facts),
            "microphone: The microphone behind 'Norvell Audio Relay' would be that one itself. | Follow the default "
            "again: sonivo settings set capture-endpoint default.");
}

TEST(DoctorRules, ADefaultThatIsTheVirtualMicrophoneItselfIsNoTrouble) {
  MachineFacts facts = well();
  facts.audio.default_microphone = "relay.mic";
  const auto hint = [&] {
    std::string all;
    for (const Finding& each : findings(facts)) {
      if (each.kind != Kind::good) all += each.text + " | " + each.advice;
    }
    return all;
  };
  EXPECT_EQ(hint(),
            "The default microphone is 'Norvell Audio Relay' itself, so that the default before it is used, or else "
            "the best that is there. | Make the real one the default, or choose its node: sonivo settings set "
            "capture-endpoint mic.");
  EXPECT_TRUE(is_well(findings(facts)));
  facts.audio.endpoints.push_back({"usb", "Headset Microphone", DataFlow::capture, false, ""});
  EXPECT_THAT(hint(), testing::EndsWith("sonivo settings set capture-endpoint NODE, which is one of mic, usb."));
  facts.capture_endpoint = "mic";
  EXPECT_EQ(hint(), "");
}

TEST(DoctorRules, ADeviceThatCantBeOpened) {
  MachineFacts facts = well();
  facts.audio.endpoints[0].fault = "Device or resource busy";
  EXPECT_EQ(the_trouble(facts),
            "microphone: The microphone 'Internal Microphone' can't be opened: Device or resource busy. | End other "
            "programs that use it past PipeWire, or unplug it and plug it in again.");
}

TEST(DoctorRules, AProgramThatHoldsADevicePastTheServer) {
  MachineFacts facts = well();
  facts.holders = {{"card0/pcm0c", "arecord", 123}};
  EXPECT_EQ(the_trouble(facts),
            "busy: arecord (process 123) holds the sound device card0/pcm0c past PipeWire, so that nobody else can use "
            "it. | End it, or have it use PipeWire.");
}

TEST(DoctorRules, AMuteOfEachDeviceInTheWay) {
  for (std::size_t i = 0; i < 4; ++i) {
    MachineFacts facts = well();
    facts.audio.endpoints[i].muted = true;
    const std::string device = i % 2 == 0 ? "microphone" : "speaker";
    EXPECT_EQ(the_trouble(facts), "mute: The " + device + " '" + facts.audio.endpoints[i].name +
                                      "' is muted. | Unmute it in the sound settings of the desktop.");
  }
}

TEST(DoctorRules, ADeviceThatIsTurnedDownToNothing) {
  for (std::size_t i = 0; i < 4; ++i) {
    MachineFacts facts = well();
    facts.audio.endpoints[i].is_at_zero = true;
    const std::string device = i % 2 == 0 ? "microphone" : "speaker";
    EXPECT_EQ(the_trouble(facts), "mute: The " + device + " '" + facts.audio.endpoints[i].name +
                                      "' is turned down to 0. | Turn it up in the sound settings of the desktop.");
  }
}

TEST(DoctorRules, AStreamOfTheServicesThatIsMutedOrTurnedDownToNothing) {
  constexpr const char* kAdvice =
      " | Change that in a mixer that lists applications, such as pavucontrol, or restart the service: systemctl "
      "--user "
      "restart NorvellSonivoService.";
  MachineFacts facts = well();
  facts.audio.streams = {{"Sonivo microphone", false, false}, {"Sonivo speaker", true, true}};
  EXPECT_EQ(the_trouble(facts), std::string("mute: The service's own stream 'Sonivo speaker' is muted.") + kAdvice);
  facts.audio.streams = {{"Sonivo microphone", false, true}};
  EXPECT_EQ(the_trouble(facts),
            std::string("mute: The service's own stream 'Sonivo microphone' is turned down to 0.") + kAdvice);
}

TEST(DoctorRules, BehindADefaultThatIsTheVirtualOneItselfTheDeviceOfTheServiceIsLookedAt) {
  for (std::size_t i = 0; i < 4; ++i) {
    MachineFacts facts = well();
    facts.audio.default_microphone = "relay.mic";
    facts.audio.default_speaker = "relay.spk";
    facts.audio.endpoints.push_back({"usb", "Webcam", DataFlow::capture, true, "busy"});
    facts.service->capture.endpoint = "mic";
    facts.service->render.endpoint = "spk";
    facts.audio.endpoints[i].muted = true;
    const std::string device = i % 2 == 0 ? "microphone" : "speaker";
    EXPECT_EQ(the_trouble(facts), "mute: The " + device + " '" + facts.audio.endpoints[i].name +
                                      "' is muted. | Unmute it in the sound settings of the desktop.");
  }
  MachineFacts facts = well();
  facts.audio.default_speaker = "relay.spk";
  facts.audio.endpoints[1].fault = "Device or resource busy";
  facts.service->render.endpoint = "spk";
  EXPECT_THAT(the_trouble(facts), testing::StartsWith("speaker: The speaker 'Speakers' can't be opened: Device"));
  facts.service->render.endpoint = "unplugged";
  EXPECT_THAT(troubles(facts), testing::IsEmpty());
}

TEST(DoctorRules, AMutedVirtualMicrophoneIsToldThoughTheRealOneCantBeOpened) {
  MachineFacts facts = well();
  facts.audio.endpoints[0].fault = "busy";
  facts.audio.endpoints[2].muted = true;
  EXPECT_THAT(troubles(facts),
              testing::ElementsAre(testing::StartsWith("microphone: "), testing::StartsWith("mute: ")));
}

TEST(DoctorRules, AMuteOfAnotherMicrophoneDoesntMatter) {
  MachineFacts facts = well();
  facts.audio.endpoints.push_back({"usb", "Webcam", DataFlow::capture, true, "busy"});
  EXPECT_THAT(troubles(facts), testing::IsEmpty());
}

TEST(DoctorRules, ADriverThatIsAbsentHidesWhatOnlyItKnows) {
  MachineFacts facts = well();
  facts.driver_fault = "the driver is not running: nothing listens at 'x'; start it: systemctl --user start y";
  facts.has_report = false;
  EXPECT_EQ(the_trouble(facts),
            "driver: The driver is not running: nothing listens at 'x'. | Start it: systemctl --user start y.");
}

TEST(DoctorRules, AServiceThatDoesntRunIsMissedButNotItsDevices) {
  MachineFacts facts = well();
  facts.has_report = false;
  facts.audio.endpoints.resize(2);
  EXPECT_EQ(the_trouble(facts),
            "service: The service does not run. | Start it: systemctl --user start NorvellSonivoService.");
}

TEST(DoctorRules, AServiceThatHangsIsOfNoUseThoughItsLatestReportIsWell) {
  MachineFacts facts = well();
  facts.silent_s = 16;
  EXPECT_EQ(the_trouble(facts),
            "service: The service has not answered for 16 s. | Restart it: systemctl --user restart "
            "NorvellSonivoService.");
}

TEST(DoctorRules, AServiceMayStillConnectWithADriverThatHasJustStarted) {
  MachineFacts facts = well();
  facts.has_report = false;
  facts.service.reset();
  facts.has_new_driver = true;
  const auto all = findings(facts);
  EXPECT_TRUE(is_well(all));
  const auto said = std::find_if(all.begin(), all.end(), [](const Finding& each) { return each.subject == "service"; });
  ASSERT_NE(said, all.end());
  EXPECT_EQ(said->text, "The driver has just started, and no service has connected with it yet.");
  EXPECT_EQ(said->advice, "Look again in a few seconds.");
}

TEST(DoctorRules, AServiceThatIsNotConnectedInTroubleOrOfAnotherVersion) {
  MachineFacts facts = well();
  facts.service->driver_ready = false;
  EXPECT_EQ(the_trouble(facts),
            "service: The service has no connection with the driver. | Restart it: systemctl --user restart "
            "NorvellSonivoService.");
  facts.service->driver_ready = true;
  facts.service->trouble = "the microphone can't be opened";
  EXPECT_EQ(the_trouble(facts),
            "service: The service tells of trouble: the microphone can't be opened. | See to what else is said here; "
            "journalctl --user -u NorvellSonivoService tells more.");
  facts.service.reset();
  facts.report_fault = "it is of version 1";
  EXPECT_EQ(the_trouble(facts),
            "service: What the service tells of itself can't be understood: it is of version 1. | Install the programs "
            "of one version, and restart them.");
}

TEST(DoctorRules, AServiceThatWaitsForItsSessionIsNoTrouble) {
  MachineFacts facts = well();
  facts.service->driver_ready = false;
  facts.service->pause = "locked";
  EXPECT_TRUE(is_well(findings(facts)));
}

TEST(DoctorRules, AVirtualSpeakerThatIsNotThereThoughTheServiceRuns) {
  MachineFacts facts = well();
  facts.audio.endpoints.pop_back();
  EXPECT_EQ(the_trouble(facts),
            "relay: The speaker \"Norvell Audio Relay\" is not there, though the service runs. | Restart the service: "
            "systemctl --user restart NorvellSonivoService.");
}

TEST(DoctorRules, AChainWithoutParameters) {
  MachineFacts facts = well();
  facts.chain = Chain::beamforming;
  facts.has_chain_parameters = false;
  EXPECT_EQ(the_trouble(facts),
            "chain: No microphone of this machine has the parameters of the chain beamforming. | Store them: sonivo "
            "setup.");
}

TEST(DoctorRules, WhereThereIsNoMicrophoneNobodyIsSentToStoreParameters) {
  MachineFacts facts = well();
  facts.audio.has_session_manager = false;
  facts.audio.endpoints = {facts.audio.endpoints[2], facts.audio.endpoints[3]};
  facts.has_chain_parameters = false;
  EXPECT_EQ(the_trouble(facts),
            "session-manager: PipeWire has no session manager, so that nobody connects programs with devices. | Start "
            "one: systemctl --user start wireplumber.");
}

TEST(DoctorRules, AMachineWithoutAChainIsWellAndIsToldOfSetup) {
  MachineFacts facts = well();
  facts.chain = Chain::none;
  facts.has_chain_parameters = false;
  const auto all = findings(facts);
  EXPECT_TRUE(is_well(all));
  EXPECT_THAT(all, testing::Contains(testing::Field(&Finding::advice, "Give it one: sonivo setup.")));
}

TEST(DoctorRules, AModelThatIsMissingMattersToTheThirdChainAlone) {
  MachineFacts facts = well();
  facts.model = "/models/m.bin";
  EXPECT_THAT(troubles(facts), testing::IsEmpty());
  facts.chain = Chain::ai;
  EXPECT_EQ(
      the_trouble(facts),
      "model: The model of the chain ai is missing: '/models/m.bin'. | Install the program again. Models of other "
      "sizes: sonivo settings set model.");
}

TEST(DoctorRules, FilesOfTheProgramTablesOfNamesAndRealTime) {
  MachineFacts facts = well();
  facts.missing_files = {"/share/par/keycancel.bin"};
  EXPECT_EQ(the_trouble(facts),
            "files: A file that belongs to the program is missing: '/share/par/keycancel.bin'. | Install the program "
            "again.");
  facts = well();
  facts.table_faults = {"Line 2 of the table of microphone names x isn't FRAGMENT = NAME."};
  EXPECT_EQ(
      the_trouble(facts),
      "names: Line 2 of the table of microphone names x isn't FRAGMENT = NAME. | Mend it; the service goes without "
      "it.");
  facts = well();
  facts.real_time = false;
  EXPECT_EQ(the_trouble(facts),
            "realtime: Real-time scheduling is refused to this user, so that audio may stutter under load. | Install "
            "rtkit, or allow the user a real-time priority of 10 in /etc/security/limits.conf.");
}

TEST(DoctorRules, ARefusalOfRealTimeByRealtimeKit) {
  MachineFacts facts = well();
  facts.real_time = false;
  facts.real_time_refusal = "Permission denied";
  EXPECT_EQ(the_trouble(facts),
            "realtime: Real-time scheduling is refused to this user, so that audio may stutter under load: Permission "
            "denied. | Allow the user a real-time priority of 10 in /etc/security/limits.conf.");
  facts.real_time_refusal = "Device or resource busy";
  EXPECT_TRUE(is_well(findings(facts))) << "it would be granted later";
  EXPECT_EQ(findings(facts).back().text, "Who grants real-time scheduling has been asked too often to answer now.");
}

TEST(DoctorRules, ASessionWithoutAudio) {
  MachineFacts facts = well();
  facts.session.active = false;
  EXPECT_EQ(the_trouble(facts),
            "session: Another session has the machine's screen, so that audio that is interrupted here does not "
            "come back. | Switch to this one: loginctl activate 2.");
  facts.session.id = "";
  EXPECT_EQ(
      the_trouble(facts),
      "session: Nobody is signed in as this user, so that no audio passes. | Sign in at the machine's own screen.");
  facts.is_root = true;
  EXPECT_EQ(the_trouble(facts),
            "session: Nobody is signed in as this user, so that no audio passes. | Run this as the user of the "
            "desktop, without sudo.");
  facts.session = {};  // without logind there is one session
  EXPECT_TRUE(is_well(findings(facts)));
}

TEST(DoctorRules, WhatIsPrintedHasNoControlCharacters) {
  std::ostringstream text;
  print_findings(text, {{Kind::trouble, "x", "A\x1b[2J.", "B\n."}, {Kind::hint, "y", "C.", ""}});
  EXPECT_EQ(text.str(), "trouble  A\\x1b[2J. B\\n.\nhint     C.\nSomething is wrong.\n");
  std::ostringstream json;
  print_findings_json(json, {{Kind::good, "x", "A.", ""}});
  EXPECT_EQ(json.str(),
            "{\n  \"well\": true,\n  \"findings\": [\n    {\n      \"kind\": \"ok\",\n      \"subject\": \"x\",\n"
            "      \"text\": \"A.\",\n      \"advice\": \"\"\n    }\n  ]\n}\n");
}

}  // namespace
}  // namespace sonivo::tool
