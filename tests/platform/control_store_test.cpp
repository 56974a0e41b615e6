#include "platform/control_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace sonivo::control {
namespace {

using testing::Each;

std::vector<std::byte> number_bytes(std::uint32_t value) {
  std::vector<std::byte> bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

std::vector<std::byte> text_bytes(const std::u16string& text) {
  std::vector<std::byte> bytes(kTextBytes);
  std::memcpy(bytes.data(), text.data(), text.size() * sizeof(char16_t));
  return bytes;
}

class ControlStoreTest : public testing::TestWithParam<Setting> {
 protected:
  static bool is_text() { return GetParam().kind == SettingKind::text; }
  static std::vector<std::byte> question() {
    return std::vector<std::byte>(GetParam().get_code == GetHeadphone ? 4 : 0);
  }
  static std::size_t answer_bytes() { return is_text() ? 520 : GetParam().get_code == GetHeadphone ? 8 : 4; }
  static std::vector<std::byte> input(std::uint32_t number, const std::u16string& text) {
    return is_text() ? text_bytes(text) : number_bytes(number);
  }
  Answer get(std::vector<std::byte>& output) { return store.answer(GetParam().get_code, question(), output); }
  Answer set(const std::vector<std::byte>& input) { return store.answer(GetParam().set_code, input, {}); }

  Store store;
};

TEST_P(ControlStoreTest, StartsAtItsInitialValue) {
  std::vector<std::byte> output(answer_bytes(), std::byte{0xEE});
  const Answer answer = get(output);
  EXPECT_EQ(answer.error, error::kNone);
  EXPECT_EQ(answer.transferred, answer_bytes());
  EXPECT_FALSE(answer.changed);
  auto expected = input(GetParam().initial, u"");
  expected.resize(answer_bytes());
  EXPECT_EQ(output, expected);
}

TEST_P(ControlStoreTest, AnswersWhatWasSet) {
  const auto value = input(0x01020304, u"a 声");
  EXPECT_EQ(set(value).error, error::kNone);
  std::vector<std::byte> output(answer_bytes() + 3, std::byte{0xEE});
  EXPECT_EQ(get(output).transferred, answer_bytes());
  EXPECT_TRUE(std::equal(value.begin(), value.end(), output.begin()));
  EXPECT_THAT(std::vector(output.begin() + static_cast<std::ptrdiff_t>(value.size()),
                          output.begin() + static_cast<std::ptrdiff_t>(answer_bytes())),
              Each(std::byte{0}));
  EXPECT_THAT(std::vector(output.begin() + static_cast<std::ptrdiff_t>(answer_bytes()), output.end()),
              Each(std::byte{0xEE}));
  if (is_text()) {
    EXPECT_EQ(store.text(GetParam().get_code), u"a 声");
  } else {
    EXPECT_EQ(store.number(GetParam().get_code), 0x01020304u);
  }
}

TEST_P(ControlStoreTest, TellsAChangeAndNoRepetition) {
  EXPECT_TRUE(set(input(77, u"new")).changed);
  const Answer again = set(input(77, u"new"));
  EXPECT_FALSE(again.changed);
  EXPECT_FALSE(again.event.has_value());
  EXPECT_TRUE(set(input(78, u"newer")).changed);
}

TEST_P(ControlStoreTest, LeavesAllOtherValuesAlone) {
  set(input(77, u"new"));
  Store fresh;
  for (const Setting& other : settings()) {
    if (other.get_code == GetParam().get_code) continue;
    if (other.kind == SettingKind::text) {
      EXPECT_EQ(store.text(other.get_code), u"") << other.name;
    } else {
      EXPECT_EQ(store.number(other.get_code), fresh.number(other.get_code)) << other.name;
    }
  }
}

TEST_P(ControlStoreTest, RefusesPayloadsOfAnyOtherSize) {
  const std::size_t size = is_text() ? 520 : 4;
  for (const std::size_t wrong : {std::size_t{0}, size - 1, size + 1}) {
    EXPECT_EQ(set(std::vector<std::byte>(wrong)).error, error::kInvalidParameter) << wrong;
  }
  std::vector<std::byte> output(answer_bytes());
  EXPECT_EQ(store.answer(GetParam().get_code, std::vector<std::byte>(question().size() + 1), output).error,
            error::kInvalidParameter);
}

TEST_P(ControlStoreTest, RefusesTooLittleRoomAndWritesNothing) {
  std::vector<std::byte> output(answer_bytes() - 1, std::byte{0xEE});
  const Answer answer = get(output);
  EXPECT_EQ(answer.error, error::kInsufficientBuffer);
  EXPECT_EQ(answer.transferred, 0u);
  EXPECT_THAT(output, Each(std::byte{0xEE}));
}

TEST_P(ControlStoreTest, IsFoundByItsName) {
  const Setting* found = find_setting(GetParam().name);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->get_code, GetParam().get_code);
}

std::string setting_name(const testing::TestParamInfo<Setting>& setting) {
  std::string name = setting.param.name;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

std::vector<Setting> all_settings() { return {settings().begin(), settings().end()}; }

INSTANTIATE_TEST_SUITE_P(Settings, ControlStoreTest, testing::ValuesIn(all_settings()), setting_name);

TEST(ControlStoreSettings, GoByAscendingCodesOfWhichEachIsOneSettings) {
  std::set<std::uint32_t> codes;
  std::uint32_t latest = 0;
  for (const Setting& each : settings()) {
    EXPECT_GT(each.get_code, latest) << each.name;
    latest = each.get_code;
    EXPECT_TRUE(codes.insert(each.get_code).second) << each.name;
    EXPECT_TRUE(codes.insert(each.set_code).second) << each.name;
  }
  EXPECT_EQ(find_setting("beam forming"), nullptr);
}

TEST(ControlStoreSettings, AreThoseThatTheServiceAsksFor) {
  // The getters of the control channel, without the two requests of its events.
  const std::set<std::uint32_t> expected{
      0x8000E03C, 0x8000E048, 0x8000E128, 0x8000E130, 0x8000E138, 0x8000E13C, 0x8000E14C, 0x8000E154, 0x8000E15C,
      0x8000E164, 0x8000E168, 0x8000E178, 0x8000E180, 0x8000E188, 0x8000E190, 0x8000E198, 0x8000E1A8, 0x8000E1B0,
      0x8000E1B8, 0x8000E1C0, 0x8000E1C8, 0x8000E1D0, 0x8000E1D8, 0x8000E1E0, 0x8000E1E8, 0x8000E1F0, 0x8000E1F8};
  std::set<std::uint32_t> codes;
  for (const Setting& each : settings()) codes.insert(each.get_code);
  EXPECT_EQ(codes, expected);
}

TEST(ControlStoreMode, SetsSpeakerAndHeadphonesAtOnce) {
  Store store;
  Answer answer = store.answer(0x8000E16C, number_bytes(3), {});
  EXPECT_EQ(answer.error, error::kNone);
  EXPECT_TRUE(answer.changed);
  EXPECT_EQ(store.number(NSV_GET_ALL_SP_MTG), 3u);
  EXPECT_EQ(store.number(NSV_GET_ALL_HP_MTG), 3u);
  EXPECT_FALSE(store.answer(0x8000E16C, number_bytes(3), {}).changed);
  for (const auto one : {NSV_SET_ALL_SP_MTG, NSV_SET_ALL_HP_MTG}) {
    store.answer(one, number_bytes(1), {});
    EXPECT_TRUE(store.answer(0x8000E16C, number_bytes(3), {}).changed) << "the other had another one";
  }
  answer = store.answer(0x8000E16C, std::vector<std::byte>(8), {});
  EXPECT_EQ(answer.error, error::kInvalidParameter);
  EXPECT_EQ(store.number(NSV_GET_ALL_SP_MTG), 3u);
}

class ControlStoreEvents : public testing::Test {
 protected:
  std::optional<std::uint32_t> event_of(std::uint32_t code, const std::vector<std::byte>& input) {
    return store.answer(code, input, {}).event;
  }

  Store store;
};

TEST_F(ControlStoreEvents, TellOfAutoMute) {
  EXPECT_EQ(event_of(SetAutoMuteMTG, number_bytes(1)), 12u);
  EXPECT_EQ(event_of(SetAutoMuteMTG, number_bytes(1)), std::nullopt);
  EXPECT_EQ(event_of(SetAutoMuteMTG, number_bytes(0)), 13u);
}

TEST_F(ControlStoreEvents, TellOfEndpoints) {
  EXPECT_EQ(event_of(SetCaptureEndpointId, text_bytes(u"mic")), 14u);
  EXPECT_EQ(event_of(SetCaptureEndpointId, text_bytes(u"mic")), std::nullopt);
  EXPECT_EQ(event_of(SetRenderEndpointId, text_bytes(u"speakers")), 15u);
  EXPECT_EQ(event_of(SetRenderEndpointId, text_bytes(u"")), 15u);
}

TEST_F(ControlStoreEvents, TellOfNothingElse) {
  for (const Setting& each : settings()) {
    if (each.get_code == NSV_GET_AUTO_MUTE_MTG || each.get_code == GetCaptureEndpointId ||
        each.get_code == GetRenderEndpointId) {
      continue;
    }
    const Answer answer =
        store.answer(each.set_code, each.kind == SettingKind::text ? text_bytes(u"new") : number_bytes(77), {});
    EXPECT_TRUE(answer.changed) << each.name;
    EXPECT_EQ(answer.event, std::nullopt) << each.name;
  }
}

TEST(ControlStoreTexts, NeedTheirEndOnTheWire) {
  Store store;
  EXPECT_EQ(store.answer(SetCaptureEndpointId, text_bytes(std::u16string(260, u'a')), {}).error,
            error::kInvalidParameter);
  EXPECT_EQ(store.text(GetCaptureEndpointId), u"");
  EXPECT_EQ(store.answer(SetCaptureEndpointId, text_bytes(std::u16string(259, u'a')), {}).error, error::kNone);
  EXPECT_EQ(store.text(GetCaptureEndpointId), std::u16string(259, u'a'));
}

TEST(ControlStoreTexts, EndAtTheFirstZeroAndAreCutAfter259Characters) {
  Store store;
  store.answer(SetCaptureEndpointId, text_bytes(std::u16string(u"mic\0left over", 13)), {});
  EXPECT_EQ(store.text(GetCaptureEndpointId), u"mic");
  store.set_text(GetCaptureEndpointId, std::u16string(300, u'b'));
  EXPECT_EQ(store.text(GetCaptureEndpointId), std::u16string(259, u'b'));
}

TEST(ControlStoreCodes, ThatAreUnknownOrOfTheEventsAreRefused) {
  Store store;
  std::vector<std::byte> output(1044);
  for (const std::uint32_t code : {0u, 0x8000E038u, 0x8000E0E4u, 0x8000E0E8u, 0x8000E144u, 0x8000E1FCu}) {
    EXPECT_EQ(store.answer(code, {}, output).error, error::kInvalidFunction) << code;
    EXPECT_EQ(store.answer(code, number_bytes(1), {}).error, error::kInvalidFunction) << code;
  }
}

}  // namespace
}  // namespace sonivo::control
