#include "host/effective_settings.h"

namespace sonivo {

std::uint32_t UserSetting(CSonivoDriverAccess& driver, SettingGetter getter) {
  std::uint32_t value = 1;
  return (driver.*getter)(&value) != 0 ? value : 1;  // some getters write 0 when they fail
}

void SetEnhance(CSonivoDriverAccess& driver, Effective effective) {
  const bool user = effective == Effective::user;
  driver.SetAispeechenhanceMTG(user ? UserSetting(driver, &CSonivoDriverAccess::GetAispeechenhance_UI_MTG) : 0);
}

void SetVoiceModel(CSonivoDriverAccess& driver, Effective effective) {
  const bool user = effective == Effective::user;
  driver.SetAispeechenhanceSetAiModelMTG(
      user ? UserSetting(driver, &CSonivoDriverAccess::GetAispeechenhanceSetAiModel_UI_MTG) : 0);
}

}  // namespace sonivo
