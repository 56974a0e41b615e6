#include "driver/settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "base/trace.h"
#include "failing_disk.h"
#include "raw_client.h"
#include "support/temporary_folder.h"

namespace sonivo::driver {
namespace {

using control::SettingKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A driver's settings, which may end and start again.
class KeptSettings : public testing::Test {
 protected:
  KeptSettings() { start(); }

  void start() {
    settings_.reset();
    folder_.reset();
    folder_.emplace(home_.path() / "state", disk_);
    settings_.emplace(*folder_);
  }
  control::Answer set(std::uint32_t code, std::uint32_t value) {
    return settings_->answer(code, test::bytes_of(value), {});
  }
  control::Answer set_text(std::uint32_t code, std::u16string_view text) {
    return settings_->answer(code, test::wire_text(text), {});
  }
  std::uint32_t number(std::uint32_t code) {
    const bool headphone = code == control::GetHeadphone;
    test::Bytes output(headphone ? 8 : 4);
    EXPECT_EQ(settings_->answer(code, test::Bytes(headphone ? 4u : 0u), output).error, error::kNone);
    return test::number_in(output);
  }
  test::Bytes text(std::uint32_t code) {
    test::Bytes output(control::kTextBytes);
    EXPECT_EQ(settings_->answer(code, {}, output).error, error::kNone);
    return output;
  }
  /// Steps of the disk that a change takes.
  int steps_of_a_change() {
    disk_.steps = 0;
    set(control::SetFunction, 3);
    return disk_.steps;
  }
  void write_file(const std::vector<std::string>& lines) {
    ASSERT_EQ(folder_->save("settings", "sonivo settings 1", lines), error::kNone);
  }

  test::TemporaryFolder home_;
  test::FailingDisk disk_;
  std::optional<StateFolder> folder_;
  std::optional<Settings> settings_;
  std::vector<std::string> log_;
  ScopedTraceSink sink_{[this](TraceLevel, std::string_view text) { log_.emplace_back(text); }};
};

bool lives_only_with_the_driver(const control::Setting& setting) {
  const std::string name = setting.name;
  return name == "headphone" || name == "enrolment" || name == "enrolment-dialog";
}

TEST_F(KeptSettings, EveryValueOutlivesTheDriverSaveThoseOfTheMachinesState) {
  // One that it doesn't start with, and where there are many to choose from another one for each.
  std::uint32_t count = 1'000'000;
  const auto another = [&](const control::Setting& setting) {
    ++count;
    if (setting.takes(count)) return count;
    return setting.initial == setting.lowest ? setting.highest : setting.lowest;
  };
  for (const control::Setting& each : control::settings()) {
    const std::uint32_t value = another(each);
    if (each.kind == SettingKind::text) {
      ASSERT_EQ(set_text(each.set_code, u"\u30c7 \\ " + std::u16string(1, static_cast<char16_t>(value))).error, 0u);
    } else {
      ASSERT_EQ(set(each.set_code, value).error, error::kNone) << each.name;
    }
  }
  start();
  count = 1'000'000;
  for (const control::Setting& each : control::settings()) {
    const std::uint32_t value = another(each);
    if (each.kind == SettingKind::text) {
      EXPECT_EQ(text(each.get_code), test::wire_text(u"\u30c7 \\ " + std::u16string(1, static_cast<char16_t>(value))))
          << each.name;
    } else {
      EXPECT_EQ(number(each.get_code), lives_only_with_the_driver(each) ? each.initial : value) << each.name;
    }
  }
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(KeptSettings, ANumberThatMeansNothingIsRefusedAndTheValueStays) {
  struct Range {
    std::uint32_t set_code, get_code, lowest, highest;
  };
  const Range ranges[]{{control::SetHeadphone, control::GetHeadphone, 0, 1},
                       {control::NSV_SET_LAUNCHED_MTG, control::NSV_GET_LAUNCHED_MTG, 0, 1},
                       {control::NSV_SET_ALL_SP_MTG, control::NSV_GET_ALL_SP_MTG, 0, 4},
                       {control::NSV_SET_ALL_HP_MTG, control::NSV_GET_ALL_HP_MTG, 0, 4},
                       {control::NSV_SET_MODE_MTG, control::NSV_GET_ALL_SP_MTG, 0, 4},
                       {control::SetKeyboardCancelMTG, control::GetKeyboardCancelMTG, 0, 1},
                       {control::NSV_SET_BEAMFORMING_UI_MTG, control::NSV_GET_BEAMFORMING_UI_MTG, 0, 1},
                       {control::SetAispeechenhanceModelNoMTG, control::GetAispeechenhanceModelNoMTG, 1, 3}};
  for (const Range& each : ranges) {
    for (const std::uint32_t good : {each.lowest, each.highest}) {
      EXPECT_EQ(set(each.set_code, good).error, error::kNone) << each.set_code;
      for (const std::uint32_t bad : {each.lowest - 1, each.highest + 1}) {
        EXPECT_EQ(set(each.set_code, bad).error, error::kInvalidParameter) << each.set_code;
        EXPECT_EQ(number(each.get_code), good) << each.set_code;
      }
    }
  }
  for (const std::uint32_t any : {0u, 103u, 0xFFFFFFFFu}) {
    EXPECT_EQ(set(control::SetFunctionMic, any).error, error::kNone);
    EXPECT_EQ(set(control::SetAispeechenhanceRegistrationMTG, any).error, error::kNone);
  }
}

TEST_F(KeptSettings, ANumberInTheFileThatMeansNothingIsLeftOutAlone) {
  write_file({"function 7", "model 9", "auto-exit 1"});
  start();
  EXPECT_EQ(number(control::GetAispeechenhanceModelNoMTG), 3u);
  EXPECT_EQ(number(control::GetFunction), 7u);
  EXPECT_EQ(number(control::GetAutoExit), 1u);
  EXPECT_THAT(log_, ElementsAre(HasSubstr("the settings have model at 9, which means nothing;")));
}

TEST_F(KeptSettings, AChangeIsOnTheDiskWhenItIsAnswered) {
  disk_.steps = 0;
  EXPECT_TRUE(set(control::SetFunction, 2).changed);
  EXPECT_GE(disk_.steps, 5);  // made, written, synced, renamed, and the folder synced
  EXPECT_THAT(folder_->load("settings", "sonivo settings 1"), testing::Contains("function 2"));
}

TEST_F(KeptSettings, AValueThatIsSetBackIsOnTheDiskToo) {
  for (const std::uint32_t value : {3u, 0u}) {
    ASSERT_EQ(set(control::SetFunction, value).error, error::kNone);
    EXPECT_THAT(folder_->load("settings", "sonivo settings 1"), testing::Contains("function " + std::to_string(value)));
  }
}

TEST_F(KeptSettings, WhatChangesNothingThatIsKeptWritesNothing) {
  disk_.steps = 0;
  EXPECT_EQ(set(control::SetHeadphone, 1).error, error::kNone);
  EXPECT_EQ(set(control::SetKeyboardCancelMTG, 1).error, error::kNone);
  EXPECT_EQ(disk_.steps, 0);
  EXPECT_EQ(number(control::GetHeadphone), 1u);
}

TEST_F(KeptSettings, AChangeThatCanNotBeWrittenFailsAndTheValueStays) {
  ASSERT_EQ(set(control::SetFunction, 2).error, error::kNone);
  ASSERT_EQ(set(control::SetHeadphone, 1).error, error::kNone);
  disk_.steps = 0;
  disk_.fail_at = 1;
  const control::Answer refused = set(control::SetAutoMuteMTG, 1);
  EXPECT_EQ(refused.error, error::kDiskFull);
  EXPECT_FALSE(refused.changed);
  EXPECT_FALSE(refused.event);
  EXPECT_EQ(number(control::NSV_GET_AUTO_MUTE_MTG), 0u);
  EXPECT_EQ(number(control::GetFunction), 2u);
  EXPECT_EQ(number(control::GetHeadphone), 1u);
  EXPECT_THAT(log_, ElementsAre(HasSubstr("settings can't be written: No space left on device")));

  disk_.fail_at = 0;
  EXPECT_EQ(set(control::SetAutoMuteMTG, 1).event, control::NSVDRV_CMD_AUTOMUTE_ON);
  start();
  EXPECT_EQ(number(control::NSV_GET_AUTO_MUTE_MTG), 1u);
}

TEST_F(KeptSettings, AChangeThatCanNotBeWrittenLeavesWhatAnEarlierDriverKept) {
  ASSERT_EQ(set(control::SetFunction, 2).error, error::kNone);
  ASSERT_EQ(set_text(control::SetCaptureEndpointId, u"mic").error, error::kNone);
  start();
  disk_.steps = 0;
  disk_.fail_at = 1;
  ASSERT_EQ(set(control::SetAutoMuteMTG, 1).error, error::kDiskFull);
  EXPECT_EQ(number(control::GetFunction), 2u);
  EXPECT_EQ(text(control::GetCaptureEndpointId), test::wire_text(u"mic"));
}

TEST_F(KeptSettings, AFailureAtTheVeryLastStepIsRepairedByTheNextChange) {
  ASSERT_EQ(set(control::SetFunction, 2).error, error::kNone);
  const int all = steps_of_a_change();
  disk_.steps = 0;
  disk_.fail_at = all;
  ASSERT_EQ(set(control::SetFunction, 4).error, error::kDiskFull);
  EXPECT_EQ(number(control::GetFunction), 3u);
  disk_.fail_at = 0;
  ASSERT_EQ(set(control::SetHeadphone, 1).error, error::kNone);
  start();
  EXPECT_EQ(number(control::GetFunction), 3u);
}

TEST_F(KeptSettings, AFileOfFewerNamesLeavesTheOthersAtTheirDefaults) {
  write_file({"function 7"});
  start();
  EXPECT_EQ(number(control::GetFunction), 7u);
  EXPECT_EQ(number(control::GetSonivoDrvGeneration), 8u);
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(KeptSettings, SettingTheOldValueAgainRepairsAFailureAtTheVeryLastStep) {
  const int all = steps_of_a_change();
  disk_.steps = 0;
  disk_.fail_at = all;
  ASSERT_EQ(set(control::SetFunction, 4).error, error::kDiskFull);
  disk_.steps = 0;
  disk_.fail_at = 1;
  EXPECT_EQ(set(control::SetFunction, 3).error, error::kDiskFull);
  disk_.fail_at = 0;
  disk_.steps = 0;
  EXPECT_EQ(number(control::GetFunction), 3u);
  EXPECT_EQ(disk_.steps, 0);  // a question writes nothing
  const control::Answer same = set(control::SetFunction, 3);
  EXPECT_EQ(same.error, error::kNone);
  EXPECT_FALSE(same.changed);
  EXPECT_EQ(disk_.steps, all);
  EXPECT_EQ(set(control::SetFunction, 3).error, error::kNone);
  EXPECT_EQ(disk_.steps, all) << "there is nothing left to repair";
  start();
  EXPECT_EQ(number(control::GetFunction), 3u);
}

TEST_F(KeptSettings, LinesWithNamesOfAnotherVersionStayAsTheyAre) {
  write_file({"later one  two ", "function 7", "headphone 1", "alone", "later again"});
  start();
  EXPECT_EQ(number(control::GetFunction), 7u);
  EXPECT_EQ(number(control::GetHeadphone), 0u);
  EXPECT_EQ(set(control::SetFunction, 8).error, error::kNone);
  start();
  EXPECT_EQ(set(control::SetFunction, 9).error, error::kNone);
  const auto lines = folder_->load("settings", "sonivo settings 1");
  ASSERT_GE(lines.size(), 4u);
  EXPECT_THAT((std::vector<std::string>{lines.end() - 4, lines.end()}),
              ElementsAre("later one  two ", "headphone 1", "alone", "later again"));
  EXPECT_THAT(lines, testing::Contains("function 9"));
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(KeptSettings, AFileThatMeansNothingIsSetAsideWhole) {
  const std::pair<const char*, const char*> cases[]{
      {"function", "function has no value"},        {"function 4294967296", "function is no number"},
      {"function -1", "function is no number"},     {"function ", "function is no number"},
      {"function 1 ", "function is no number"},     {"text-1 \\", "text-1 has no such text"},
      {"generation 5", "generation is there twice"}};
  for (const auto& [line, why] : cases) {
    log_.clear();
    std::filesystem::remove(home_ / "state/settings.damaged");
    write_file({"generation 5", "unknown 1", line});
    start();
    EXPECT_EQ(number(control::GetSonivoDrvGeneration), 8u) << line;
    EXPECT_THAT(log_, ElementsAre(HasSubstr(std::string("settings is damaged: ") + why + ";"))) << line;
    EXPECT_TRUE(std::filesystem::exists(home_ / "state/settings.damaged")) << line;
    EXPECT_FALSE(std::filesystem::exists(home_ / "state/settings")) << line;
  }
}

TEST_F(KeptSettings, OfAFileThatIsSetAsideNothingIsKept) {
  write_file({"unknown 1", "function x", "generation 5", "unknown 2"});
  start();
  EXPECT_EQ(number(control::GetSonivoDrvGeneration), 8u) << "after the line that means nothing";
  EXPECT_EQ(log_.size(), 1u);
  ASSERT_EQ(set(control::SetFunction, 2).error, error::kNone);
  const auto lines = folder_->load("settings", "sonivo settings 1");
  EXPECT_THAT(lines, testing::Contains("function 2"));
  EXPECT_THAT(lines, testing::Not(testing::Contains(testing::StartsWith("unknown"))));
}

TEST_F(KeptSettings, ATextOfMoreThanTheWireHoldsIsDamage) {
  write_file({"text-1 " + std::string(259, 'x')});
  start();
  EXPECT_EQ(text(control::GetAispeechenhanceText1MTG), test::wire_text(std::u16string(259, u'x')));
  write_file({"text-1 " + std::string(260, 'x')});
  start();
  EXPECT_EQ(text(control::GetAispeechenhanceText1MTG), test::wire_text(u""));
}

}  // namespace
}  // namespace sonivo::driver
