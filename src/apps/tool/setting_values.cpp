#include "apps/tool/setting_values.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <string_view>

#include "apps/tool/failure.h"
#include "apps/tool/numbers.h"
#include "base/text.h"
#include "relay/model_table.h"

namespace sonivo::tool {

namespace {

using control::Setting;
using control::Store;

enum class ValueKind { flag, number, position, mode, model, enrolment, text, endpoint };

constexpr std::uint32_t kHighestMode = 4;
constexpr std::uint32_t kHighestPosition = kHighestMode + 1;

struct NamedNumber {
  const char* name;
  std::uint32_t number;
};
constexpr std::array kModelNames{NamedNumber{"large", kFirstModelNo}, NamedNumber{"medium", 2},
                                 NamedNumber{"small", kLastModelNo}};
constexpr std::array kEnrolmentNames{NamedNumber{"start", 20}, NamedNumber{"running", 30}, NamedNumber{"abort", 40}};
constexpr std::array kFlagNames{NamedNumber{"off", 0}, NamedNumber{"on", 1}};

struct Layers {
  std::uint32_t effective;
  std::uint32_t user;
};
constexpr std::array kLayers{
    Layers{control::GetKeyboardCancelMTG, control::NSV_GET_KEYCANSEL_UI_MTG},
    Layers{control::GetBeamformingMTG, control::NSV_GET_BEAMFORMING_UI_MTG},
    Layers{control::GetAispeechenhanceMTG, control::GetAispeechenhance_UI_MTG},
    Layers{control::GetAispeechenhanceSetAiModelMTG, control::GetAispeechenhanceSetAiModel_UI_MTG}};

ValueKind kind_of(const Setting& setting) {
  switch (setting.get_code) {
    case control::GetSonivoDrvGeneration:
    case control::GetFunction:
    case control::GetFunctionMic:
    case control::GetGenerationMic:
      return ValueKind::number;
    case control::NSV_GET_LAUNCHED_MTG:
      return ValueKind::position;
    case control::NSV_GET_ALL_SP_MTG:
    case control::NSV_GET_ALL_HP_MTG:
      return ValueKind::mode;
    case control::GetAispeechenhanceModelNoMTG:
      return ValueKind::model;
    case control::GetAispeechenhanceRegistrationMTG:
      return ValueKind::enrolment;
    case control::GetRenderEndpointId:
    case control::GetCaptureEndpointId:
      return ValueKind::endpoint;
    default:
      return setting.kind == control::SettingKind::text ? ValueKind::text : ValueKind::flag;
  }
}

const Setting& setting_of(std::uint32_t get_code) {
  const auto all = control::settings();
  return *std::find_if(all.begin(), all.end(), [&](const Setting& each) { return each.get_code == get_code; });
}

std::optional<std::uint32_t> number_called(std::span<const NamedNumber> names, const std::string& text) {
  for (const NamedNumber& each : names) {
    if (text == each.name) return each.number;
  }
  return std::nullopt;
}

std::optional<std::string> name_for(std::span<const NamedNumber> names, std::uint32_t number) {
  for (const NamedNumber& each : names) {
    if (number == each.number) return each.name;
  }
  return std::nullopt;
}

UsageError refusal_of(const Setting& setting, const std::string& takes, const std::string& value) {
  return UsageError(std::string(setting.name) + " takes " + takes + ", not '" + value + "'");
}

/// A name of the list, or a number from lowest to highest. `takes` says so in a message.
std::uint32_t number_from(const Setting& setting, const std::string& value, std::span<const NamedNumber> names,
                          std::uint32_t lowest, std::uint32_t highest, const char* takes) {
  if (const auto named = number_called(names, value)) return *named;
  const auto number = parse_whole_number(value);
  if (!number || *number < lowest || *number > highest) throw refusal_of(setting, takes, value);
  return *number;
}

std::uint32_t parse_number(const Setting& setting, ValueKind kind, const std::string& value) {
  switch (kind) {
    case ValueKind::flag:
      return number_from(setting, value, kFlagNames, 0, 1, "on or off");
    case ValueKind::position:
      return number_from(setting, value, std::span(kFlagNames).first(1), 0, kHighestPosition, "off or 1 to 5");
    case ValueKind::mode:
      return number_from(setting, value, {}, 0, kHighestMode, "0 to 4");
    case ValueKind::model:
      return number_from(setting, value, kModelNames, kFirstModelNo, kLastModelNo, "small, medium or large");
    case ValueKind::enrolment:
      return number_from(setting, value, kEnrolmentNames, 0, UINT32_MAX, "start, abort or a whole number");
    default:
      return number_from(setting, value, {}, 0, UINT32_MAX, "a whole number");
  }
}

std::u16string parse_text(const Setting& setting, const std::string& value) {
  std::u16string text = to_utf16(value);
  if (to_utf8(text) != value) throw refusal_of(setting, "text in UTF-8", value);
  if (text.size() >= control::kTextCharacters) {
    throw UsageError(std::string(setting.name) + " takes at most 259 characters of UTF-16, not " +
                     std::to_string(text.size()));
  }
  return text;
}

/// Changes of one character that lead from one name to the other.
std::size_t edit_distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

std::string advice_for(const std::string& name) {
  constexpr std::size_t kStillAlike = 3;
  const auto all = control::settings();
  const auto distance = [&](const Setting& each) { return edit_distance(to_lower_ascii(name), each.name); };
  const auto nearest = std::min_element(all.begin(), all.end(),
                                        [&](const Setting& a, const Setting& b) { return distance(a) < distance(b); });
  if (distance(*nearest) <= std::min(kStillAlike, name.size() / 2)) {
    return "did you mean '" + std::string(nearest->name) + "'?";
  }
  std::string list;
  for (const Setting& each : all) list += (list.empty() ? "" : ", ") + std::string(each.name);
  return "there are " + list;
}

std::uint32_t position_in(const Store& store) {
  return store.number(control::NSV_GET_LAUNCHED_MTG) == 0 ? 0 : store.number(control::NSV_GET_ALL_SP_MTG) + 1;
}

/// The position of the meeting mode; every other setting as the driver holds it.
std::uint32_t shown_number(const Store& store, const Setting& setting) {
  return setting.get_code == control::NSV_GET_LAUNCHED_MTG ? position_in(store) : store.number(setting.get_code);
}

std::optional<std::string> word_for(ValueKind kind, std::uint32_t number) {
  switch (kind) {
    case ValueKind::flag:
      return name_for(kFlagNames, number);
    case ValueKind::position:
      return name_for(std::span(kFlagNames).first(1), number);
    case ValueKind::model:
      return name_for(kModelNames, number);
    case ValueKind::enrolment:
      return name_for(kEnrolmentNames, number);
    default:
      return std::nullopt;
  }
}

}  // namespace

const Setting& setting_named(const std::string& name) {
  const Setting* const setting = control::find_setting(name);
  if (setting == nullptr) throw UsageError("no setting is called '" + name + "'; " + advice_for(name));
  return *setting;
}

bool is_of_the_machine(const Setting& setting) {
  return kind_of(setting) == ValueKind::number || setting.get_code == control::GetHeadphone;
}

const Setting* user_layer(const Setting& setting) {
  const auto layers = std::find_if(kLayers.begin(), kLayers.end(),
                                   [&](const Layers& each) { return each.effective == setting.get_code; });
  return layers == kLayers.end() ? nullptr : &setting_of(layers->user);
}

bool is_user_layer(const Setting& setting) {
  return std::any_of(kLayers.begin(), kLayers.end(), [&](const Layers& each) { return each.user == setting.get_code; });
}

void add_requests(std::vector<SetRequest>& requests, const Setting& setting, const std::string& value) {
  const ValueKind kind = kind_of(setting);
  if (kind == ValueKind::text || kind == ValueKind::endpoint) {
    const bool is_default = kind == ValueKind::endpoint && value == "default";
    requests.push_back({setting.set_code, is_default ? std::u16string() : parse_text(setting, value), setting.name});
    return;
  }
  const std::uint32_t number = parse_number(setting, kind, value);
  if (kind == ValueKind::position) {
    if (number != 0) requests.push_back({control::NSV_SET_MODE_MTG, number - 1, setting.name});
    requests.push_back({setting.set_code, number == 0 ? 0u : 1u, setting.name});
    return;
  }
  if (const Setting* const user = user_layer(setting)) requests.push_back({user->set_code, number, user->name});
  requests.push_back({setting.set_code, number, setting.name});
}

std::string value_text(const Store& store, const Setting& setting) {
  const ValueKind kind = kind_of(setting);
  if (setting.kind == control::SettingKind::text) {
    const std::string text = to_utf8(store.text(setting.get_code));
    return kind == ValueKind::endpoint && text.empty() ? "default" : text;
  }
  const std::uint32_t number = shown_number(store, setting);
  return word_for(kind, number).value_or(std::to_string(number));
}

nlohmann::ordered_json value_json(const Store& store, const Setting& setting) {
  if (setting.kind == control::SettingKind::text) return to_utf8(store.text(setting.get_code));
  const ValueKind kind = kind_of(setting);
  const std::uint32_t number = shown_number(store, setting);
  if (kind == ValueKind::flag && number <= 1) return number == 1;
  const auto word = word_for(kind, number);
  if (word && kind != ValueKind::position && kind != ValueKind::flag) return *word;
  return number;
}

nlohmann::ordered_json settings_json(const Store& store) {
  nlohmann::ordered_json json;
  for (const Setting& each : control::settings()) json[each.name] = value_json(store, each);
  return json;
}

}  // namespace sonivo::tool
