#include "platform/control_store.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace sonivo::control {
namespace {

constexpr auto kNumber = SettingKind::number;
constexpr auto kText = SettingKind::text;

/// Room correction comes with 2 more than the highest position of the panel, of which the mode is one less.
constexpr std::uint32_t kHighestMode = 4;

constexpr Setting flag(const char* name, std::uint32_t get_code, std::uint32_t set_code, std::uint32_t initial) {
  return {name, kNumber, get_code, set_code, initial, 0, 1};
}

constexpr std::array kSettings{
    flag("headphone", GetHeadphone, SetHeadphone, 0),
    Setting{"generation", kNumber, GetSonivoDrvGeneration, SetSonivoDrvGeneration, 8},
    flag("meeting-mode", NSV_GET_LAUNCHED_MTG, NSV_SET_LAUNCHED_MTG, 0),
    Setting{"speaker-mode", kNumber, NSV_GET_ALL_SP_MTG, NSV_SET_ALL_SP_MTG, 0, 0, kHighestMode},
    flag("auto-exit", GetAutoExit, SetAutoExit, 0),
    Setting{"function", kNumber, GetFunction, SetFunction},
    Setting{"render-endpoint", kText, GetRenderEndpointId, SetRenderEndpointId},
    Setting{"capture-endpoint", kText, GetCaptureEndpointId, SetCaptureEndpointId},
    flag("auto-mute", NSV_GET_AUTO_MUTE_MTG, SetAutoMuteMTG, 0),
    Setting{"function-mic", kNumber, GetFunctionMic, SetFunctionMic},
    Setting{"generation-mic", kNumber, GetGenerationMic, SetGenerationMic},
    Setting{"headphone-mode", kNumber, NSV_GET_ALL_HP_MTG, NSV_SET_ALL_HP_MTG, 0, 0, kHighestMode},
    flag("keyboard-cancel", GetKeyboardCancelMTG, SetKeyboardCancelMTG, 1),
    flag("keyboard-cancel-user", NSV_GET_KEYCANSEL_UI_MTG, SetKeyboardCancel_UI_MTG, 1),
    flag("beamforming", GetBeamformingMTG, SetBeamformingMTG, 1),
    flag("beamforming-user", NSV_GET_BEAMFORMING_UI_MTG, NSV_SET_BEAMFORMING_UI_MTG, 1),
    flag("speech-enhance", GetAispeechenhanceMTG, SetAispeechenhanceMTG, 1),
    Setting{"enrolment-file", kText, GetAispeechenhanceWavFileMTG, SetAispeechenhanceWavFileMTG},
    Setting{"enrolment-folder", kText, GetAispeechenhanceWavFolderMTG, SetAispeechenhanceWavFolderMTG},
    Setting{"text-1", kText, GetAispeechenhanceText1MTG, SetAispeechenhanceText1MTG},
    Setting{"text-2", kText, GetAispeechenhanceText2MTG, SetAispeechenhanceText2MTG},
    Setting{"model", kNumber, GetAispeechenhanceModelNoMTG, SetAispeechenhanceModelNoMTG, 3, 1, 3},
    Setting{"enrolment", kNumber, GetAispeechenhanceRegistrationMTG, SetAispeechenhanceRegistrationMTG},
    flag("voice-model", GetAispeechenhanceSetAiModelMTG, SetAispeechenhanceSetAiModelMTG, 0),
    flag("speech-enhance-user", GetAispeechenhance_UI_MTG, SetAispeechenhance_UI_MTG, 1),
    flag("voice-model-user", GetAispeechenhanceSetAiModel_UI_MTG, SetAispeechenhanceSetAiModel_UI_MTG, 0),
    flag("enrolment-dialog", GetAispeechenhanceRegDialog_Open_MTG, SetAispeechenhanceRegDialog_Open_MTG, 0),
};

/// Input of a getter: only one has any.
std::size_t question_bytes(const Setting& setting) { return setting.get_code == GetHeadphone ? 4 : 0; }

std::size_t answer_bytes(const Setting& setting) {
  if (setting.kind == SettingKind::text) return kTextBytes;
  return setting.get_code == GetHeadphone ? 8 : 4;
}

std::optional<std::uint32_t> read_number(std::span<const std::byte> input) {
  std::uint32_t value = 0;
  if (input.size() != sizeof value) return std::nullopt;
  std::memcpy(&value, input.data(), sizeof value);
  return value;
}

std::optional<std::u16string> read_text(std::span<const std::byte> input) {
  WireText text;
  if (input.size() != sizeof text) return std::nullopt;
  std::memcpy(text.data(), input.data(), sizeof text);
  const auto end = std::find(text.begin(), text.end(), u'\0');
  if (end == text.end()) return std::nullopt;
  return std::u16string(text.begin(), end);
}

std::optional<std::uint32_t> event_of(const Setting& setting, std::uint32_t number) {
  switch (setting.get_code) {
    case NSV_GET_AUTO_MUTE_MTG:
      return number == 1 ? NSVDRV_CMD_AUTOMUTE_ON : NSVDRV_CMD_AUTOMUTE_OFF;
    case GetCaptureEndpointId:
      return NSVDRV_CMD_DEV_MIC;
    case GetRenderEndpointId:
      return NSVDRV_CMD_DEV_SPK;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::span<const Setting> settings() { return kSettings; }

const Setting* find_setting(const std::string& name) {
  const auto found =
      std::find_if(kSettings.begin(), kSettings.end(), [&](const Setting& each) { return name == each.name; });
  return found == kSettings.end() ? nullptr : &*found;
}

bool sets_nonsense(std::uint32_t code, std::span<const std::byte> input) {
  const auto value = read_number(input);
  if (code == NSV_SET_MODE_MTG) return value && *value > kHighestMode;
  return value && std::any_of(kSettings.begin(), kSettings.end(), [&](const Setting& each) {
           return each.set_code == code && each.kind == kNumber && !each.takes(*value);
         });
}

Store::Store() {
  for (const Setting& setting : kSettings) {
    if (setting.kind == SettingKind::text) {
      texts_[setting.get_code];
    } else {
      numbers_[setting.get_code] = setting.initial;
    }
  }
}

void Store::set_text(std::uint32_t get_code, std::u16string_view value) {
  texts_.at(get_code) = value.substr(0, kTextCharacters - 1);
}

Answer Store::answer(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output) {
  if (code == NSV_SET_MODE_MTG) return set_mode(input);
  for (const Setting& setting : kSettings) {
    if (code == setting.get_code) return get(setting, input, output);
    if (code == setting.set_code) return set(setting, input);
  }
  return {.error = error::kInvalidFunction};
}

Answer Store::get(const Setting& setting, std::span<const std::byte> input, std::span<std::byte> output) const {
  if (input.size() != question_bytes(setting)) return {.error = error::kInvalidParameter};
  const std::size_t bytes = answer_bytes(setting);
  if (output.size() < bytes) return {.error = error::kInsufficientBuffer};
  std::fill_n(output.begin(), bytes, std::byte{0});
  if (setting.kind == SettingKind::text) {
    const std::u16string& text = texts_.at(setting.get_code);
    std::memcpy(output.data(), text.data(), text.size() * sizeof(char16_t));
  } else {
    const std::uint32_t value = numbers_.at(setting.get_code);
    std::memcpy(output.data(), &value, sizeof value);
  }
  return {.transferred = static_cast<std::uint32_t>(bytes)};
}

Answer Store::set(const Setting& setting, std::span<const std::byte> input) {
  Answer answer;
  if (setting.kind == SettingKind::text) {
    const auto text = read_text(input);
    if (!text) return {.error = error::kInvalidParameter};
    answer.changed = *text != texts_.at(setting.get_code);
    set_text(setting.get_code, *text);
    if (answer.changed) answer.event = event_of(setting, 0);
  } else {
    const auto value = read_number(input);
    if (!value) return {.error = error::kInvalidParameter};
    answer.changed = *value != number(setting.get_code);
    set_number(setting.get_code, *value);
    if (answer.changed) answer.event = event_of(setting, *value);
  }
  return answer;
}

Answer Store::set_mode(std::span<const std::byte> input) {
  const auto mode = read_number(input);
  if (!mode) return {.error = error::kInvalidParameter};
  const bool changed = number(NSV_GET_ALL_SP_MTG) != *mode || number(NSV_GET_ALL_HP_MTG) != *mode;
  set_number(NSV_GET_ALL_SP_MTG, *mode);
  set_number(NSV_GET_ALL_HP_MTG, *mode);
  return {.changed = changed};
}

}  // namespace sonivo::control
