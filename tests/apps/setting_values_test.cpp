#include "apps/tool/setting_values.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <span>

#include "apps/tool/failure.h"
#include "base/text.h"

namespace sonivo::tool {
namespace {

using control::find_setting;
using control::Store;

std::vector<SetRequest> requests_for(const std::string& name, const std::string& value) {
  std::vector<SetRequest> requests;
  add_requests(requests, setting_named(name), value);
  return requests;
}

std::string complaint_about(const std::string& name, const std::string& value) {
  try {
    requests_for(name, value);
    return "none";
  } catch (const UsageError& error) {
    return error.what();
  }
}

/// What a store holds after requests to it.
Store after(const std::string& name, const std::string& value, Store store = {}) {
  for (const SetRequest& each : requests_for(name, value)) {
    control::Answer answer;
    if (const auto* const number = std::get_if<std::uint32_t>(&each.value)) {
      answer = store.answer(each.code, std::as_bytes(std::span(number, 1)), {});
    } else {
      control::WireText text{};
      std::get<std::u16string>(each.value).copy(text.data(), text.size() - 1);
      answer = store.answer(each.code, std::as_bytes(std::span(text)), {});
    }
    EXPECT_EQ(answer.error, error::kNone) << name << ' ' << value;
  }
  return store;
}

std::string text_after(const std::string& name, const std::string& value) {
  return value_text(after(name, value), *find_setting(name));
}

TEST(SettingValues, AMeetingModeIsShownAsItIsTakenWhateverModeTheDriverHolds) {
  const control::Setting& mode = setting_named("speaker-mode");
  ASSERT_FALSE(mode.takes(5));
  for (std::uint32_t number = 0; mode.takes(number); ++number) {
    Store store;
    store.set_number(control::NSV_GET_LAUNCHED_MTG, 1);
    store.set_number(control::NSV_GET_ALL_SP_MTG, number);
    const std::string shown = value_text(store, setting_named("meeting-mode"));
    EXPECT_EQ(after("meeting-mode", shown).number(control::NSV_GET_ALL_SP_MTG), number) << shown;
  }
}

TEST(SettingValues, AreTakenInTheFormThatTheyAreShownIn) {
  const std::vector<std::pair<std::string, std::string>> values{{"headphone", "on"},
                                                                {"generation", "10"},
                                                                {"meeting-mode", "off"},
                                                                {"meeting-mode", "5"},
                                                                {"speaker-mode", "4"},
                                                                {"auto-exit", "on"},
                                                                {"function", "4294967295"},
                                                                {"render-endpoint", "sink"},
                                                                {"auto-mute", "on"},
                                                                {"function-mic", "8"},
                                                                {"generation-mic", "5"},
                                                                {"headphone-mode", "1"},
                                                                {"capture-endpoint", "sourc"},
                                                                {"keyboard-cancel", "off"},
                                                                {"keyboard-cancel-user", "off"},
                                                                {"beamforming", "off"},
                                                                {"beamforming-user", "off"},
                                                                {"speech-enhance", "off"},
                                                                {"speech-enhance-user", "off"},
                                                                {"voice-model", "on"},
                                                                {"voice-model-user", "on"},
                                                                {"enrolment-file", "me.wav"},
                                                                {"enrolment-folder", "/a"},
                                                                {"text-1", "one"},
                                                                {"text-2", "two"},
                                                                {"model", "large"},
                                                                {"enrolment", "running"},
                                                                {"enrolment-dialog", "on"}};
  std::set<std::string> seen;
  for (const auto& [name, value] : values) {
    EXPECT_EQ(text_after(name, value), value) << name;
    seen.insert(name);
  }
  EXPECT_EQ(seen.size(), control::settings().size());
}

TEST(SettingValues, HaveNumbersForWords) {
  EXPECT_EQ(text_after("auto-mute", "1"), "on");
  EXPECT_EQ(text_after("beamforming", "0"), "off");
  EXPECT_EQ(text_after("model", "1"), "large");
  EXPECT_EQ(text_after("model", "2"), "medium");
  EXPECT_EQ(text_after("model", "3"), "small");
  EXPECT_EQ(text_after("enrolment", "20"), "start");
  EXPECT_EQ(text_after("enrolment", "abort"), "abort");
  EXPECT_EQ(after("enrolment", "abort").number(control::GetAispeechenhanceRegistrationMTG), 40u);
  EXPECT_EQ(text_after("enrolment", "103"), "103");
  EXPECT_EQ(text_after("meeting-mode", "0"), "off");
}

TEST(SettingValues, GoIntoBothLayersOfAFunction) {
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> layers{
      {control::GetKeyboardCancelMTG, control::NSV_GET_KEYCANSEL_UI_MTG},
      {control::GetBeamformingMTG, control::NSV_GET_BEAMFORMING_UI_MTG},
      {control::GetAispeechenhanceMTG, control::GetAispeechenhance_UI_MTG},
      {control::GetAispeechenhanceSetAiModelMTG, control::GetAispeechenhanceSetAiModel_UI_MTG}};
  const std::vector<std::string> names{"keyboard-cancel", "beamforming", "speech-enhance", "voice-model"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const bool was_on = Store().number(layers[i].first) == 1;
    const std::string other = was_on ? "off" : "on";
    const Store both = after(names[i], other);
    EXPECT_EQ(both.number(layers[i].first), was_on ? 0u : 1u) << names[i];
    EXPECT_EQ(both.number(layers[i].second), was_on ? 0u : 1u) << names[i];
    const Store one = after(names[i] + "-user", other);
    EXPECT_EQ(one.number(layers[i].first), was_on ? 1u : 0u) << names[i];
    EXPECT_EQ(one.number(layers[i].second), was_on ? 0u : 1u) << names[i];
    EXPECT_STREQ(user_layer(setting_named(names[i]))->name, (names[i] + "-user").c_str());
    EXPECT_TRUE(is_user_layer(setting_named(names[i] + "-user")));
    EXPECT_FALSE(is_user_layer(setting_named(names[i])));
    EXPECT_EQ(user_layer(setting_named(names[i] + "-user")), nullptr);
  }
}

TEST(SettingValues, OfTheMeetingModeSetTheModesToo) {
  const Store on = after("meeting-mode", "3");
  EXPECT_EQ(on.number(control::NSV_GET_LAUNCHED_MTG), 1u);
  EXPECT_EQ(on.number(control::NSV_GET_ALL_SP_MTG), 2u);
  EXPECT_EQ(on.number(control::NSV_GET_ALL_HP_MTG), 2u);
  const Store off = after("meeting-mode", "off", on);
  EXPECT_EQ(off.number(control::NSV_GET_LAUNCHED_MTG), 0u);
  EXPECT_EQ(off.number(control::NSV_GET_ALL_SP_MTG), 2u);
}

TEST(SettingValues, OfEndpointsMayBeTheDefault) {
  EXPECT_EQ(text_after("capture-endpoint", "default"), "default");
  EXPECT_EQ(after("capture-endpoint", "default", after("capture-endpoint", "mic")).text(control::GetCaptureEndpointId),
            u"");
  EXPECT_EQ(text_after("render-endpoint", ""), "default");
  EXPECT_EQ(after("text-1", "default").text(control::GetAispeechenhanceText1MTG), u"default");
}

TEST(SettingValues, AreTextOfAtMost259Characters) {
  EXPECT_EQ(text_after("text-1", std::string(259, 'x')), std::string(259, 'x'));
  EXPECT_EQ(complaint_about("text-1", std::string(260, 'x')), "text-1 takes at most 259 characters of UTF-16, not 260");
  std::string wide;  // of two characters each
  for (int i = 0; i < 129; ++i) wide += "\xF0\x9F\x8E\xA4";
  EXPECT_EQ(text_after("text-1", wide), wide);
  EXPECT_EQ(complaint_about("text-1", wide + "xy"), "text-1 takes at most 259 characters of UTF-16, not 260");
  EXPECT_EQ(complaint_about("render-endpoint", "\xC3"), "render-endpoint takes text in UTF-8, not '\xC3'");
}

TEST(SettingValues, ThatMakeNoSenseAreRefused) {
  for (const std::string value : {"yes", "2", "", "ON", " on"}) {
    EXPECT_EQ(complaint_about("auto-mute", value), "auto-mute takes on or off, not '" + value + "'");
  }
  EXPECT_EQ(complaint_about("meeting-mode", "6"), "meeting-mode takes off or 1 to 5, not '6'");
  EXPECT_EQ(complaint_about("meeting-mode", "on"), "meeting-mode takes off or 1 to 5, not 'on'");
  EXPECT_EQ(complaint_about("speaker-mode", "5"), "speaker-mode takes 0 to 4, not '5'");
  EXPECT_EQ(complaint_about("headphone-mode", "off"), "headphone-mode takes 0 to 4, not 'off'");
  EXPECT_EQ(complaint_about("model", "0"), "model takes small, medium or large, not '0'");
  EXPECT_EQ(complaint_about("model", "4"), "model takes small, medium or large, not '4'");
  EXPECT_EQ(complaint_about("enrolment", "now"), "enrolment takes start, abort or a whole number, not 'now'");
  EXPECT_EQ(complaint_about("generation", "4294967296"), "generation takes a whole number, not '4294967296'");
}

TEST(SettingValues, AreShownAsNumbersWhereThereIsNoWord) {
  Store store;
  store.set_number(control::NSV_GET_AUTO_MUTE_MTG, 7);
  store.set_number(control::GetAispeechenhanceModelNoMTG, 9);
  EXPECT_EQ(value_text(store, *find_setting("auto-mute")), "7");
  EXPECT_EQ(value_json(store, *find_setting("auto-mute")), 7);
  EXPECT_EQ(value_text(store, *find_setting("model")), "9");
  EXPECT_EQ(value_json(store, *find_setting("model")), 9);
}

TEST(SettingValues, AreJsonOfTheirKind) {
  const auto json = settings_json(after("capture-endpoint", "m\"ic"));
  EXPECT_EQ(json.size(), control::settings().size());
  EXPECT_EQ(json["capture-endpoint"], "m\"ic");
  EXPECT_EQ(json["render-endpoint"], "");
  EXPECT_EQ(json["beamforming"], true);
  EXPECT_EQ(json["auto-mute"], false);
  EXPECT_EQ(json["meeting-mode"], 0);
  EXPECT_EQ(json["model"], "small");
  EXPECT_EQ(json["generation"], 8);
  EXPECT_EQ(json["enrolment"], 0);
}

TEST(SettingValues, OfTheMachineAreKnown) {
  std::set<std::string> names;
  for (const control::Setting& each : control::settings()) {
    if (is_of_the_machine(each)) names.insert(each.name);
  }
  EXPECT_EQ(names, (std::set<std::string>{"headphone", "generation", "function", "function-mic", "generation-mic"}));
}

std::string advice_about(const std::string& name) {
  try {
    setting_named(name);
    return "none";
  } catch (const UsageError& error) {
    return error.what();
  }
}

TEST(SettingNames, ThatAreNoneLeadToTheNearest) {
  EXPECT_EQ(advice_about("keyboard-cancle"), "no setting is called 'keyboard-cancle'; did you mean 'keyboard-cancel'?");
  EXPECT_EQ(advice_about("auto_mute"), "no setting is called 'auto_mute'; did you mean 'auto-mute'?");
  EXPECT_EQ(advice_about("BEAMFORMING"), "no setting is called 'BEAMFORMING'; did you mean 'beamforming'?");
  EXPECT_EQ(advice_about("modle"), "no setting is called 'modle'; did you mean 'model'?");
}

TEST(SettingNames, ThatAreLikeNoneLeadToAllThereAre) {
  for (const std::string name : {"volume-of-speaker", "x", ""}) {
    const std::string advice = advice_about(name);
    EXPECT_TRUE(advice.starts_with("no setting is called '" + name + "'; there are headphone, ")) << advice;
    for (const control::Setting& each : control::settings()) {
      EXPECT_NE(advice.find(each.name), std::string::npos) << each.name;
    }
  }
}

}  // namespace
}  // namespace sonivo::tool
