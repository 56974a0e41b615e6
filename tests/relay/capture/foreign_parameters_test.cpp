// Values of other types than a blob under the keys of the strength and of the parameters.

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "ai_bench.h"
#include "classic_bench.h"

namespace sonivo::test {
namespace {

/// A text in UTF-16, as its reader gets it.
std::vector<std::uint8_t> wide_bytes(const std::string& ascii) {
  std::vector<std::uint8_t> bytes;
  for (const char c : ascii) {
    bytes.push_back(static_cast<std::uint8_t>(c));
    bytes.push_back(0);
  }
  return bytes;
}

const std::string kLongText = "a text that is longer than any parameter blob of these chains is";

class StoredStrength : public AIBench, public ::testing::Test {
 protected:
  StoredStrength() {
    make_file(enrolled());
    open();
  }
  void store(PropertyValue value) {
    bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_AI_Strength, std::move(value));
  }
  /// The call by which the strength is set.
  std::string set() {
    chain_.clear();
    relay_.UpdateAISpeechEnhanceSetAiModelState(on_ = !on_);
    return chain_.calls().back();
  }

 private:
  bool on_ = false;
};

TEST_F(StoredStrength, IsAFloat) {
  store_strength(0.25f);
  EXPECT_EQ(set(), "SetAISpeechEnhanceStrength(0.25)");
}

TEST_F(StoredStrength, OfAForeignTypeIsOne) {
  for (const std::uint16_t vt : std::initializer_list<std::uint16_t>{4, 5, 30}) {
    store(ForeignValue{vt});
    EXPECT_EQ(set(), "SetAISpeechEnhanceStrength(1)") << vt;
  }
}

TEST_F(StoredStrength, IsOneWhereTheStoreFails) {
  store_strength(0.25f);
  for (const Step step : {Step::fx_user_value, Step::fx_policy_config, Step::endpoints_list}) {
    bench_.machine.script().fail(step, kFail);
    EXPECT_EQ(set(), "SetAISpeechEnhanceStrength(1)") << to_string(step);
  }
}

TEST_F(StoredStrength, TakesTheLowByteOfANumberIntoAOne) {
  store(std::uint32_t{0xFFFFFF00});
  EXPECT_EQ(set(), "SetAISpeechEnhanceStrength(1)");
  store(std::uint32_t{0xFF});  // 1 + 255 / 2^23
  EXPECT_EQ(set(), "SetAISpeechEnhanceStrength(1.00003)");
}

TEST_F(StoredStrength, TakesTheFirstTwoCharactersOfAText) {
  store(std::string("\xE0\xA0\x80\xE3\xBC\x80") + kLongText);  // U+0800, U+3F00: 0x3F000800
  EXPECT_EQ(set(), "SetAISpeechEnhanceStrength(0.500122)");    // 0.5 (1 + 2048 / 2^23)
}

class TextAsParameters : public ClassicBench, public ::testing::TestWithParam<Notebook> {
 protected:
  TextAsParameters() : ClassicBench(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Under, TextAsParameters, ::testing::Values(Notebook::key_cancel, Notebook::beam_forming),
                         [](const auto& notebook) {
                           return notebook.param == Notebook::key_cancel ? "KeyCancel" : "BeamForming";
                         });

TEST_P(TextAsParameters, GoesToTheChainUpToItsSizeAndTheAudioFlows) {
  const bool key_cancel = GetParam() == Notebook::key_cancel;
  const std::ptrdiff_t flags = key_cancel ? 2 : 3;
  bench_.machine.fx().set_effect(sim::kMicArray, key_cancel ? PKEY_NVC_MTGMIC_KC_Param : PKEY_NVC_MTGMIC_BF_KC_Param,
                                 kLongText);
  stream(105);
  const auto wide = wide_bytes(kLongText);
  EXPECT_EQ(chain_.opened_with, std::vector(wide.begin() + flags, wide.begin() + flags + chain_.param_size));
  EXPECT_EQ(bench_.relay->RegNotifyResult(), RegNotifyStatus::running);
  EXPECT_EQ(bench_.relay->CaptureStatistics().blocks, 10u);
}

TEST_P(TextAsParameters, LeavesWhatItDoesNotHaveZero) {
  const bool key_cancel = GetParam() == Notebook::key_cancel;
  bench_.machine.fx().set_effect(sim::kMicArray, key_cancel ? PKEY_NVC_MTGMIC_KC_Param : PKEY_NVC_MTGMIC_BF_KC_Param,
                                 std::string("abc"));
  stream(15);
  std::vector<std::uint8_t> expected(chain_.param_size);
  const auto wide = wide_bytes("abc");
  std::copy(wide.begin() + (key_cancel ? 2 : 3), wide.end(), expected.begin());
  EXPECT_EQ(chain_.opened_with, expected);
}

class TextAsAIParameters : public AIBench, public ::testing::Test {};

TEST_F(TextAsAIParameters, GoesToTheThirdChainUpToItsSize) {
  bench_.machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param, kLongText);
  open();
  const auto wide = wide_bytes(kLongText);
  EXPECT_EQ(chain_.opened_with, std::vector(wide.begin() + 3, wide.begin() + 3 + chain_.param_size));
}

}  // namespace
}  // namespace sonivo::test
