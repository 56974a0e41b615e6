#include "driver/settings.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <set>

#include "base/trace.h"

namespace sonivo::driver {
namespace {

using control::Setting;
using control::SettingKind;

constexpr const char* kSettingsFile = "settings";
constexpr std::string_view kSettingsTitle = "sonivo settings 1";

bool is_durable(const Setting& setting) {
  return setting.get_code != control::GetHeadphone && setting.get_code != control::GetAispeechenhanceRegistrationMTG &&
         setting.get_code != control::GetAispeechenhanceRegDialog_Open_MTG;
}

std::vector<std::string> lines_of(const control::Store& store, const std::vector<std::string>& others) {
  std::vector<std::string> lines;
  for (const Setting& setting : control::settings()) {
    if (!is_durable(setting)) continue;
    lines.push_back(std::string(setting.name) + ' ' +
                    (setting.kind == SettingKind::text ? escaped(store.text(setting.get_code))
                                                       : std::to_string(store.number(setting.get_code))));
  }
  lines.insert(lines.end(), others.begin(), others.end());
  return lines;
}

bool sets_something(std::uint32_t code) {
  const auto all = control::settings();
  return code == control::NSV_SET_MODE_MTG ||
         std::any_of(all.begin(), all.end(), [&](const Setting& each) { return each.set_code == code; });
}

std::optional<std::uint32_t> number_in(std::string_view text) {
  std::uint32_t number = 0;
  const char* const text_end = text.data() + text.size();
  const auto [end, wrong] = std::from_chars(text.data(), text_end, number);
  if (wrong != std::errc{} || end != text_end) return std::nullopt;
  return number;
}

/// The setting that a line is about; null when this driver keeps none of that name.
const Setting* kept_setting(const std::string& line) {
  const Setting* const setting = control::find_setting(line.substr(0, line.find(' ')));
  return setting != nullptr && is_durable(*setting) ? setting : nullptr;
}

/// What is wrong with the line; empty when its value is now in the store, or means nothing to this version.
std::string take_over(const std::string& line, const Setting* setting, control::Store& store,
                      std::set<std::string>& seen) {
  const std::string name = setting->name;
  const std::size_t space = line.find(' ');
  if (space == line.npos) return name + " has no value";
  if (!seen.insert(name).second) return name + " is there twice";
  const std::string_view value = std::string_view(line).substr(space + 1);
  if (setting->kind == SettingKind::text) {
    const auto text = unescaped(value);
    if (!text || text->size() >= control::kTextCharacters) return name + " has no such text";
    store.set_text(setting->get_code, *text);
  } else {
    const auto number = number_in(value);
    if (!number) return name + " is no number";
    if (!setting->takes(*number)) {
      trace(TraceLevel::warning, "the settings have %s at %u, which means nothing; it is as in a new driver\n",
            setting->name, *number);
      return {};
    }
    store.set_number(setting->get_code, *number);
  }
  return {};
}

}  // namespace

Settings::Settings(StateFolder& folder) : folder_(folder) {
  std::set<std::string> seen;
  for (const std::string& line : folder_.load(kSettingsFile, kSettingsTitle)) {
    const Setting* const setting = kept_setting(line);
    if (setting == nullptr) {
      others_.push_back(line);
      continue;
    }
    const std::string wrong = take_over(line, setting, store_, seen);
    if (wrong.empty()) continue;
    folder_.set_aside(kSettingsFile, wrong);
    store_ = {};
    others_.clear();
    break;
  }
  kept_ = store_;
  lines_ = lines_of(store_, others_);
}

control::Answer Settings::answer(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output) {
  if (control::sets_nonsense(code, input)) return {.error = error::kInvalidParameter};
  const control::Answer answer = store_.answer(code, input, output);
  const bool repairs = unsure_ && answer.error == error::kNone && sets_something(code);
  if (!answer.changed && !repairs) return answer;
  if (auto lines = lines_of(store_, others_); repairs || lines != lines_) {
    if (const Error failed = folder_.save(kSettingsFile, kSettingsTitle, lines); failed != error::kNone) {
      store_ = kept_;
      unsure_ = true;
      return {.error = failed};
    }
    lines_ = std::move(lines);
    unsure_ = false;
  }
  kept_ = store_;
  return answer;
}

}  // namespace sonivo::driver
