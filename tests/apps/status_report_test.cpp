#include "apps/tool/status_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "apps/tool/status_command.h"

namespace sonivo::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

/// Each number of a stream is another one.
json stream_json(int first) {
  return {{"state", "ePhysicalStreaming"},
          {"endpoint", "endpoint-" + std::to_string(first)},
          {"endpoints", {"endpoint-" + std::to_string(first), "other-" + std::to_string(first)}},
          {"streams", first + 1},
          {"underruns", first + 2},
          {"overruns", first + 3},
          {"feedback", 1},
          {"fill_mean_ms", first + 4.25},
          {"fill_min_ms", first + 5.5}};
}

json capture_json() {
  json capture = stream_json(100);
  capture.update({{"blocks", 106},
                  {"silenced", 107},
                  {"unenhanced", 108},
                  {"chain_latency_ms", 111.25},
                  {"execute_mean_us", 109.5},
                  {"execute_max_us", 110.5},
                  {"load", 0.125}});
  return capture;
}

json report_json() {
  return {{"version", 5},
          {"generation", 8},
          {"function", 2},
          {"generation_mic", 5},
          {"function_mic", 9},
          {"chain", "ai"},
          {"driver_ready", true},
          {"pause", "none"},
          {"meeting_mode", 2},
          {"room_correction", true},
          {"headphones", true},
          {"auto_mute", false},
          {"capture", capture_json()},
          {"render", stream_json(200)},
          {"trouble", ""},
          {"last_trouble", "the speaker can't be opened"},
          {"last_trouble_ms", 301}};
}

std::string fault_of(const std::string& report) {
  try {
    read_service_report(report);
    return "none";
  } catch (const ReportFault& fault) {
    return fault.what();
  }
}

TEST(ServiceReport, HasWhatTheJsonTells) {
  const ServiceReport report = read_service_report(report_json().dump());
  EXPECT_EQ(report.generation, 8u);
  EXPECT_EQ(report.function, 2u);
  EXPECT_EQ(report.generation_mic, 5u);
  EXPECT_EQ(report.function_mic, 9u);
  EXPECT_EQ(report.chain, "ai");
  EXPECT_TRUE(report.driver_ready);
  EXPECT_EQ(report.pause, "none");
  EXPECT_EQ(report.meeting_mode, 2u);
  EXPECT_TRUE(report.room_correction);
  EXPECT_TRUE(report.headphones);
  EXPECT_FALSE(report.auto_mute);
  EXPECT_EQ(report.trouble, "");
  EXPECT_EQ(report.last_trouble, "the speaker can't be opened");
  EXPECT_EQ(report.last_trouble_ms, 301u);
  EXPECT_EQ(report.capture.endpoint, "endpoint-100");
  EXPECT_EQ(report.render.state, "ePhysicalStreaming");
  EXPECT_EQ(report.render.endpoint, "endpoint-200");
  EXPECT_EQ(report.render.streams, 201u);
  EXPECT_EQ(report.render.underruns, 202u);
  EXPECT_EQ(report.render.overruns, 203u);
  EXPECT_EQ(report.render.feedback, 1);
  EXPECT_EQ(report.render.fill_mean_ms, 204.25);
  EXPECT_EQ(report.render.fill_min_ms, 205.5);
  EXPECT_EQ(report.render.endpoints, (std::vector<std::string>{"endpoint-200", "other-200"}));
  EXPECT_EQ(report.capture.blocks, 106u);
  EXPECT_EQ(report.capture.silenced, 107u);
  EXPECT_EQ(report.capture.unenhanced, 108u);
  EXPECT_EQ(report.capture.chain_latency_ms, 111.25);
  EXPECT_EQ(report.capture.execute_mean_us, 109.5);
  EXPECT_EQ(report.capture.execute_max_us, 110.5);
  EXPECT_EQ(report.capture.load, 0.125);
}

TEST(ServiceReport, IsHealthyWhenItIsReadyAndHasNoTroubleNow) {
  json report = report_json();
  EXPECT_TRUE(read_service_report(report.dump()).is_healthy());
  report["trouble"] = "x";
  EXPECT_FALSE(read_service_report(report.dump()).is_healthy());
  report["trouble"] = "";
  report["driver_ready"] = false;
  EXPECT_FALSE(read_service_report(report.dump()).is_healthy());
}

TEST(ServiceReport, NeedsEachOfItsMembers) {
  const json whole = report_json();
  for (const auto& member : whole.items()) {
    json report = report_json();
    report.erase(member.key());
    EXPECT_EQ(fault_of(report.dump()), "it lacks " + member.key());
  }
  for (const std::string direction : {"capture", "render"}) {
    const json stream = report_json()[direction];
    for (const auto& member : stream.items()) {
      json report = report_json();
      report[direction].erase(member.key());
      EXPECT_EQ(fault_of(report.dump()), "it lacks " + direction + "." + member.key());
    }
  }
}

TEST(ServiceReport, NeedsMembersOfTheirKind) {
  const json whole = report_json();
  for (const auto& member : whole.items()) {
    if (member.key() == "version") continue;
    json report = report_json();
    report[member.key()] = nullptr;
    EXPECT_EQ(fault_of(report.dump()), "what it gives as " + member.key() + " makes no sense");
  }
  const json capture = capture_json();
  for (const auto& member : capture.items()) {
    json report = report_json();
    report["capture"][member.key()] = json::array({1});
    EXPECT_EQ(fault_of(report.dump()), "what it gives as capture." + member.key() + " makes no sense");
  }
}

TEST(ServiceReport, NeedsValuesThatMakeSense) {
  const auto with = [](const char* pointer, const json& value) {
    json report = report_json();
    report[json::json_pointer(pointer)] = value;
    return fault_of(report.dump());
  };
  EXPECT_EQ(with("/chain", "magic"), "what it gives as chain makes no sense");
  EXPECT_EQ(with("/pause", "coffee"), "what it gives as pause makes no sense");
  EXPECT_EQ(with("/capture/state", "eAsleep"), "what it gives as capture.state makes no sense");
  EXPECT_EQ(with("/generation", -1), "what it gives as generation makes no sense");
  EXPECT_EQ(with("/generation", 4294967296), "what it gives as generation makes no sense");
  EXPECT_EQ(with("/generation", 4294967295), "none");
  EXPECT_EQ(with("/render/streams", 1.5), "what it gives as render.streams makes no sense");
  EXPECT_EQ(with("/render/feedback", -1), "none");
  EXPECT_EQ(with("/render/feedback", 2), "what it gives as render.feedback makes no sense");
  EXPECT_EQ(with("/render/feedback", -2), "what it gives as render.feedback makes no sense");
  EXPECT_EQ(with("/render/feedback", 18446744073709551615u), "what it gives as render.feedback makes no sense");
  EXPECT_EQ(with("/capture/load", -0.5), "what it gives as capture.load makes no sense");
  EXPECT_EQ(with("/capture/load", 3), "none");
}

TEST(ServiceReport, OfAnotherVersionIsNotTrusted) {
  const std::string advice = ", and this program knows version 5; install a service and a sonivo of the same version";
  json report = report_json();
  report["version"] = 1;
  EXPECT_EQ(fault_of(report.dump()), "it is of version 1" + advice);
  report["version"] = "5";
  EXPECT_EQ(fault_of(report.dump()), "it is of version unknown" + advice);
  EXPECT_EQ(fault_of("{}"), "it lacks version");
}

TEST(ServiceReport, ThatIsNoJsonIsNotTrusted) {
  const std::string whole = report_json().dump();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(fault_of(whole.substr(0, length)), "it is no JSON object") << length;
  }
  EXPECT_EQ(fault_of(whole + "x"), "it is no JSON object");
  EXPECT_EQ(fault_of("[1]"), "it is no JSON object");
  EXPECT_EQ(fault_of(std::string(8192, '[')), "it is no JSON object");
}

constexpr control::Ages kFresh{.driver_ms = 100'000, .report_ms = 700};
constexpr control::Ages kNoReport{.driver_ms = 100'000};

std::string table_of(const MachineStatus& status) {
  std::ostringstream table;
  print_status(table, status);
  return table.str();
}

json json_of(const MachineStatus& status) {
  std::ostringstream text;
  print_status_json(text, status);
  return json::parse(text.str());
}

control::Store made_settings() {
  control::Store settings;
  settings.set_number(control::GetGenerationMic, 5);
  settings.set_number(control::GetFunctionMic, 8);
  settings.set_number(control::NSV_GET_LAUNCHED_MTG, 1);
  settings.set_number(control::NSV_GET_ALL_SP_MTG, 3);
  settings.set_number(control::GetBeamformingMTG, 0);
  settings.set_text(control::GetCaptureEndpointId, u"chosen");
  return settings;
}

TEST(Status, ShowsWhatDriverAndServiceTell) {
  EXPECT_EQ(table_of(machine_status("/run/driver.sock", made_settings(), report_json().dump(), kFresh, 7302)),
            "driver            answers at /run/driver.sock\n"
            "service           runs\n"
            "machine           generation 8, function 2; microphone generation 5, function 9\n"
            "gates             AI speech, mode threads\n"
            "chain             ai\n"
            "meeting mode      2 with room correction\n"  // 3 + 1 - 2
            "headphones        driver off, service on\n"
            "auto mute         off\n"
            "keyboard-cancel   user on, effective on\n"
            "beamforming       user on, effective off\n"
            "speech-enhance    user on, effective on\n"
            "voice-model       user off, effective off\n"
            "model             small\n"
            "enrolment         0\n"
            "microphone        set to chosen, uses endpoint-100\n"
            "  state           streams (ePhysicalStreaming); streams so far: 101\n"
            "  ring fill       104.2 ms mean, 105.5 ms lowest; the virtual clock runs faster\n"
            "  underruns       102, overruns 103\n"
            "  blocks          106, silenced 107, unenhanced 108\n"
            "  latency         111.2 ms of the chain, 104.2 ms of the ring\n"
            "  load            12.5 % of real time; a block takes 109.5 us, at most 110.5 us\n"
            "speaker           set to default, uses endpoint-200\n"
            "  state           streams (ePhysicalStreaming); streams so far: 201\n"
            "  ring fill       204.2 ms mean, 205.5 ms lowest; the virtual clock runs faster\n"
            "  underruns       202, overruns 203\n"
            "trouble           none\n"
            "last trouble      the speaker can't be opened, 7 s ago\n");
}

TEST(Status, ShowsTheChainThatRunsAndTheOneThatTheGatesCallFor) {
  json report = report_json();
  report["chain"] = "none";
  EXPECT_THAT(table_of(machine_status("s", {}, report.dump(), kFresh)),
              HasSubstr("\nchain             none now, ai by the gates\n"));
}

TEST(Status, ShowsGatesAndChainOfEachMachine) {
  struct Case {
    std::uint32_t generation_mic, function_mic;
    const char* gates;
    const char* chain;
    json flags;
  };
  const auto flags = [](bool key_cancel, bool beamforming, bool ai_speech) {
    return json({{"key_cancel", key_cancel},
                 {"beamforming", beamforming},
                 {"ai_speech", ai_speech},
                 {"mode_threads", beamforming || ai_speech}});
  };
  for (const Case& expected : {Case{2, 1, "key cancel", "keycancel", flags(true, false, false)},
                               Case{4, 2, "beamforming, mode threads", "beamforming", flags(false, true, false)},
                               Case{5, 8, "AI speech, mode threads", "ai", flags(false, false, true)},
                               Case{3, 1, "none", "none", flags(false, false, false)}}) {
    json report = report_json();
    report["generation_mic"] = expected.generation_mic;
    report["function_mic"] = expected.function_mic;
    report["chain"] = expected.chain;
    const MachineStatus running = machine_status("s", {}, report.dump(), kFresh);
    EXPECT_THAT(table_of(running), HasSubstr(std::string("\ngates             ") + expected.gates +
                                             "\nchain             " + expected.chain + "\n"));
    EXPECT_EQ(json_of(running)["gates"], expected.flags);

    control::Store settings;
    settings.set_number(control::GetGenerationMic, expected.generation_mic);
    settings.set_number(control::GetFunctionMic, expected.function_mic);
    const MachineStatus waiting = machine_status("s", settings, "", kNoReport);
    EXPECT_THAT(table_of(waiting), HasSubstr(std::string("\ngates             ") + expected.gates +
                                             "\nchain             " + expected.chain + ", once the service runs\n"));
    EXPECT_EQ(json_of(waiting)["gates"], expected.flags);
  }
}

TEST(Status, ShowsHowTheVirtualClockRuns) {
  for (const auto& [feedback, words] :
       {std::pair{-1, "slower"}, std::pair{0, "at its nominal rate"}, std::pair{1, "faster"}}) {
    json report = report_json();
    report["capture"]["feedback"] = feedback;
    EXPECT_THAT(table_of(machine_status("s", {}, report.dump(), kFresh)),
                HasSubstr(std::string("  ring fill       104.2 ms mean, 105.5 ms lowest; the virtual clock runs ") +
                          words + "\n"));
  }
}

TEST(Status, ShowsWhatDriverAndServiceSeeOtherwise) {
  json report = report_json();
  report["room_correction"] = false;
  report["auto_mute"] = true;
  control::Store settings;
  EXPECT_THAT(table_of(machine_status("s", settings, report.dump(), kFresh)),
              HasSubstr("\nmeeting mode      driver off, service 2\n"
                        "headphones        driver off, service on\n"
                        "auto mute         driver off, service on\n"));
  settings.set_number(control::NSV_GET_LAUNCHED_MTG, 1);
  settings.set_number(control::NSV_GET_ALL_SP_MTG, 1);
  EXPECT_THAT(table_of(machine_status("s", settings, report.dump(), kFresh)), HasSubstr("\nmeeting mode      2\n"));
  report["meeting_mode"] = 0;
  EXPECT_THAT(table_of(machine_status("s", settings, report.dump(), kFresh)),
              HasSubstr("\nmeeting mode      driver 2, service off\n"));
}

TEST(Status, ShowsPresentTroubleAndThatThereWasNone) {
  json report = report_json();
  report["trouble"] = "the driver is not connected";
  report["last_trouble"] = "";
  EXPECT_THAT(table_of(machine_status("s", {}, report.dump(), kFresh, 9000)),
              HasSubstr("\ntrouble           the driver is not connected\nlast trouble      none\n"));
}

TEST(Status, TellsWhatTheServiceWouldFind) {
  EXPECT_EQ(table_of(machine_status("/run/driver.sock", made_settings(), "", kNoReport)),
            "driver            answers at /run/driver.sock\n"
            "service           does not run; start NorvellSonivoService\n"
            "machine           generation 8, function 0; microphone generation 5, function 8\n"
            "gates             AI speech, mode threads\n"
            "chain             ai, once the service runs\n"
            "meeting mode      2 with room correction\n"
            "headphones        off\n"
            "auto mute         off\n"
            "keyboard-cancel   user on, effective on\n"
            "beamforming       user on, effective off\n"
            "speech-enhance    user on, effective on\n"
            "voice-model       user off, effective off\n"
            "model             small\n"
            "enrolment         0\n"
            "microphone        set to chosen\n"
            "speaker           set to default\n");
}

TEST(Status, FindsNoGateOnGenerationsWithoutMicrophoneFunctions) {
  control::Store settings = made_settings();
  for (const std::uint32_t generation : {7u, 9u}) {
    settings.set_number(control::GetSonivoDrvGeneration, generation);
    EXPECT_THAT(table_of(machine_status("s", settings, "", kNoReport)), HasSubstr("\ngates             none\n"));
  }
  settings.set_number(control::GetSonivoDrvGeneration, 10);
  EXPECT_THAT(table_of(machine_status("s", settings, "", kNoReport)),
              HasSubstr("\ngates             AI speech, mode threads\n"));
}

TEST(Status, ShowsStatesInWords) {
  const auto row_of = [](const char* state) {
    json report = report_json();
    report["render"]["state"] = state;
    return table_of(machine_status("s", {}, report.dump(), kFresh));
  };
  EXPECT_THAT(row_of("eWaitVirtualDriver"), HasSubstr("looks for the virtual device (eWaitVirtualDriver); "));
  EXPECT_THAT(row_of("eWaitVirtualStream"), HasSubstr("waits for an application (eWaitVirtualStream); "));
  EXPECT_THAT(row_of("eVirtualStreaming"), HasSubstr("opens the physical endpoint (eVirtualStreaming); "));
}

TEST(Status, LeavesOutBlocksWhereThereAreNone) {
  json report = report_json();
  report["capture"]["blocks"] = 0;
  EXPECT_THAT(table_of(machine_status("s", {}, report.dump(), kFresh)), Not(HasSubstr("load")));
}

TEST(Status, WritesOutControlCharactersOfTheReport) {
  json report = report_json();
  report["last_trouble"] = "a\n\x1b[2Jb";
  EXPECT_THAT(table_of(machine_status("s", {}, report.dump(), kFresh)),
              HasSubstr("last trouble      a\\n\\x1b[2Jb, 0 s ago\n"));
}

TEST(Status, TellsThatTheDriverHasJustStarted) {
  const auto status_after = [](std::uint64_t driver_ms) {
    return machine_status("s", {}, "", {.driver_ms = driver_ms});
  };
  EXPECT_THAT(table_of(status_after(1900)),
              HasSubstr("\nservice           has not connected yet: the driver started 1 s ago\n"));
  EXPECT_EQ(status_exit_code(status_after(1900)), 3);
  EXPECT_EQ(json_of(status_after(1900))["driver"]["running_ms"], 1900);
  EXPECT_THAT(table_of(status_after(8000)),
              HasSubstr("\nservice           does not run; start NorvellSonivoService\n"));
  EXPECT_THAT(table_of(machine_status("s", {}, report_json().dump(), {.driver_ms = 1900, .report_ms = 0})),
              HasSubstr("\nservice           runs\n"));
}

TEST(Status, TellsOfAServiceThatHangsOrIsStopped) {
  const auto status_after = [](std::uint64_t age_ms) {
    return machine_status("s", {}, report_json().dump(), {.driver_ms = 100'000, .report_ms = age_ms});
  };
  EXPECT_THAT(table_of(status_after(12'000)), HasSubstr("\nservice           runs\n"));
  EXPECT_EQ(status_exit_code(status_after(12'000)), 0) << "it publishes every 5 s";
  EXPECT_THAT(table_of(status_after(17'900)),
              HasSubstr("\nservice           has not answered for 17 s; restart it: systemctl --user restart "
                        "NorvellSonivoService\n"));
  EXPECT_EQ(status_exit_code(status_after(12'001)), 4);
  EXPECT_EQ(json_of(status_after(17'900))["health"], "trouble");
  EXPECT_EQ(json_of(status_after(17'900))["report_age_ms"], 17'900);
}

TEST(Status, TellsWhatAServiceWaitsForHoweverLong) {
  const auto status_in = [](const char* pause) {
    json report = report_json();
    report["pause"] = pause;
    report["driver_ready"] = false;
    return machine_status("s", {}, report.dump(), {.driver_ms = 100'000'000, .report_ms = 90'000'000});
  };
  EXPECT_THAT(table_of(status_in("locked")), HasSubstr("\nservice           waits until the session is unlocked\n"));
  EXPECT_THAT(table_of(status_in("asleep")), HasSubstr("\nservice           waits until the machine wakes\n"));
  EXPECT_EQ(status_exit_code(status_in("locked")), 0);
  EXPECT_EQ(json_of(status_in("locked"))["health"], "healthy");
  EXPECT_EQ(status_exit_code(status_in("none")), 4);
}

TEST(Status, HasAnExitCodeForEachHealth) {
  json report = report_json();
  EXPECT_EQ(status_exit_code(machine_status("s", {}, report.dump(), kFresh)), 0);
  EXPECT_EQ(status_exit_code(machine_status("s", {}, "", kNoReport)), 3);
  EXPECT_EQ(status_exit_code(machine_status("s", {}, "nothing", kFresh)), 4);
  report["driver_ready"] = false;
  EXPECT_EQ(status_exit_code(machine_status("s", {}, report.dump(), kFresh)), 4);
  report["driver_ready"] = true;
  report["trouble"] = "the microphone can't be opened";
  EXPECT_EQ(status_exit_code(machine_status("s", {}, report.dump(), kFresh)), 4);
}

TEST(Status, IsJsonOnDemand) {
  const json status = json_of(machine_status("/run/driver.sock", made_settings(), report_json().dump(), kFresh));
  EXPECT_EQ(status["health"], "healthy");
  EXPECT_EQ(status["driver"]["socket"], "/run/driver.sock");
  EXPECT_EQ(status["driver"]["settings"]["beamforming"], false);
  EXPECT_EQ(status["driver"]["settings"]["meeting-mode"], 4);
  EXPECT_EQ(status["driver"]["settings"]["capture-endpoint"], "chosen");
  EXPECT_EQ(status["gates"],
            json({{"key_cancel", false}, {"beamforming", false}, {"ai_speech", true}, {"mode_threads", true}}));
  EXPECT_EQ(status["service"], report_json());
  EXPECT_EQ(status["report_fault"], "");
  EXPECT_EQ(status["report_age_ms"], 700);

  EXPECT_EQ(json_of(machine_status("s", {}, "", kNoReport))["service"], nullptr);
  EXPECT_EQ(json_of(machine_status("s", {}, "", kNoReport))["health"], "no service");
  EXPECT_EQ(json_of(machine_status("s", {}, "", kNoReport))["report_age_ms"], nullptr);
  const json strange = json_of(machine_status("s", {}, "{\"version\":7}", kFresh));
  EXPECT_EQ(strange["health"], "trouble");
  EXPECT_EQ(strange["service"], nullptr);
  EXPECT_THAT(strange["report_fault"], HasSubstr("version 7"));
}

}  // namespace
}  // namespace sonivo::tool
