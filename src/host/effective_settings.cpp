#include "host/effective_settings.h"

namespace sonivo {

void SetEnhance(CSonivoDriverAccess& driver, Effective effective) {
  std::uint32_t value = 1;
  if (effective == Effective::user) driver.GetAispeechenhance_UI_MTG(&value);
  driver.SetAispeechenhanceMTG(effective == Effective::user ? value : 0);
}

void SetVoiceModel(CSonivoDriverAccess& driver, Effective effective) {
  std::uint32_t value = 1;
  if (effective == Effective::user) driver.GetAispeechenhanceSetAiModel_UI_MTG(&value);
  driver.SetAispeechenhanceSetAiModelMTG(effective == Effective::user ? value : 0);
}

}  // namespace sonivo
