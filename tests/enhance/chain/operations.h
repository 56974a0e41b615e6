#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "enhance/ai_speech_enhance.h"

namespace sonivo::test {

struct Operation {
  std::string name;
  std::function<int(CAISpeechEnhance&)> call;
};

/// All operations that need an open chain, with arguments that it takes; Close, which has a code of its own, apart.
inline std::vector<Operation> operations_that_need_open() {
  static std::uint16_t word = 0;
  static float number = 0.0f;
  static float block[4 * 480];
  static char text[64];
  static const std::uint16_t param[32636 / 2]{};
  using Chain = CAISpeechEnhance;
  return {
      {"Run", [](Chain& c) { return c.Run(); }},
      {"Stop", [](Chain& c) { return c.Stop(); }},
      {"Execute", [](Chain& c) { return c.Execute(block); }},
      {"ResetBuffer", [](Chain& c) { return c.ResetBuffer(); }},
      {"SetParam", [](Chain& c) { return c.SetParam(param); }},
      {"GetParamID", [](Chain& c) { return c.GetParamID(&word); }},
      {"SetAIModel", [](Chain& c) { return c.SetAIModel("none"); }},
      {"GetAIModelID", [](Chain& c) { return c.GetAIModelID(text); }},
      {"SetAISpeechEnhanceActive", [](Chain& c) { return c.SetAISpeechEnhanceActive(1); }},
      {"GetAISpeechEnhanceActive", [](Chain& c) { return c.GetAISpeechEnhanceActive(&word); }},
      {"SetAISpeechEnhanceStrength", [](Chain& c) { return c.SetAISpeechEnhanceStrength(1.0f); }},
      {"GetAISpeechEnhanceStrength", [](Chain& c) { return c.GetAISpeechEnhanceStrength(&number); }},
      {"SetBeamFormingActive", [](Chain& c) { return c.SetBeamFormingActive(1); }},
      {"GetBeamFormingActive", [](Chain& c) { return c.GetBeamFormingActive(&word); }},
      {"SetKeyReductionActive", [](Chain& c) { return c.SetKeyReductionActive(1); }},
      {"GetKeyReductionActive", [](Chain& c) { return c.GetKeyReductionActive(&word); }},
      {"SetNoiseReductionActive", [](Chain& c) { return c.SetNoiseReductionActive(1); }},
      {"GetNoiseReductionActive", [](Chain& c) { return c.GetNoiseReductionActive(&word); }},
      {"SetSamplingRate", [](Chain& c) { return c.SetSamplingRate(48000.0f); }},
      {"GetSamplingRate", [](Chain& c) { return c.GetSamplingRate(&number); }},
      {"SetChannel", [](Chain& c) { return c.SetChannel(1); }},
      {"GetChannel", [](Chain& c) { return c.GetChannel(&word); }},
      {"SetDataLength", [](Chain& c) { return c.SetDataLength(480); }},
      {"GetDataLength", [](Chain& c) { return c.GetDataLength(&word); }},
      {"MakeAIModel", [](Chain& c) { return c.MakeAIModel("b", "e", "w", "o", 0); }},
      {"PauseMakeAIModel", [](Chain& c) { return c.PauseMakeAIModel(); }},
      {"ResumeMakeAIModel", [](Chain& c) { return c.ResumeMakeAIModel(); }},
      {"QuitMakeAIModel", [](Chain& c) { return c.QuitMakeAIModel(); }},
      {"OpenRecFile", [](Chain& c) { return c.OpenRecFile("none"); }},
      {"Rec", [](Chain& c) { return c.Rec(block); }},
      {"CloseRecFile", [](Chain& c) { return c.CloseRecFile(); }},
  };
}

}  // namespace sonivo::test
