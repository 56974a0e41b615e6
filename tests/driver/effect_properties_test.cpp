#include "driver/effect_properties.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "base/trace.h"
#include "driver/property_lines.h"
#include "failing_disk.h"
#include "raw_client.h"
#include "support/temporary_folder.h"

namespace sonivo::driver {
namespace {

using control::FxAddress;
using control::FxHome;
using test::Bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr Guid kFormat{0x654091D5, 0x0AC4, 0x4FC2, {0xB6, 0xD4, 0xC9, 0xE8, 0x1F, 0x24, 0x81, 0x6E}};

Bytes address_of(FxHome home = FxHome::effect_store, std::uint32_t pid = 551, std::u16string_view endpoint = u"mic") {
  FxAddress address{.home = home, .pid = pid, .fmtid = kFormat};
  endpoint.copy(address.endpoint.data(), address.endpoint.size());
  return test::bytes_of(address);
}

Bytes joined(const Bytes& address, std::uint32_t type, const Bytes& value) {
  Bytes input = address;
  const Bytes wire_type = test::bytes_of(type);
  input.insert(input.end(), wire_type.begin(), wire_type.end());
  input.insert(input.end(), value.begin(), value.end());
  return input;
}

class EffectPropertiesTest : public testing::Test {
 protected:
  EffectPropertiesTest() { start(); }

  void start() {
    properties_.reset();
    folder_.reset();
    folder_.emplace(home_.path() / "state", disk_);
    properties_.emplace(*folder_);
  }
  Error set(const Bytes& address, std::uint32_t type, const Bytes& value) {
    return properties_->set(joined(address, type, value)).error;
  }
  /// Type and bytes as they come over the wire; empty when there are none.
  Bytes get(const Bytes& address) {
    Bytes output(4 + control::kMaxFxValueBytes);
    const control::Answer answer = properties_->get(address, output);
    EXPECT_TRUE(answer.error == error::kNone || answer.error == error::kNotFound);
    output.resize(answer.transferred);
    return output;
  }

  test::TemporaryFolder home_;
  test::FailingDisk disk_;
  std::optional<StateFolder> folder_;
  std::optional<EffectProperties> properties_;
  std::vector<std::string> log_;
  ScopedTraceSink sink_{[this](TraceLevel, std::string_view text) { log_.emplace_back(text); }};
};

TEST_F(EffectPropertiesTest, ValuesOutliveTheDriver) {
  Bytes blob(control::kMaxFxValueBytes);
  for (std::size_t i = 0; i < blob.size(); ++i) blob[i] = static_cast<std::byte>(i * 7);
  ASSERT_EQ(set(address_of(), control::kTypeBlob, blob), error::kNone);
  ASSERT_EQ(set(address_of(FxHome::user_store), control::kTypeNumber, test::bytes_of(9u)), error::kNone);
  ASSERT_EQ(set(address_of(FxHome::effect_store, 551, u"\u30de\u30a4\u30af \\"), 11, {}), error::kNone);
  ASSERT_EQ(set(address_of(FxHome::effect_store, 552), control::kTypeText, {}), error::kNone);
  ASSERT_EQ(properties_->remove(address_of(FxHome::effect_store, 552)).error, error::kNone);
  start();
  EXPECT_EQ(get(address_of()), joined({}, control::kTypeBlob, blob));
  EXPECT_EQ(get(address_of(FxHome::user_store)), joined({}, control::kTypeNumber, test::bytes_of(9u)));
  EXPECT_EQ(get(address_of(FxHome::effect_store, 551, u"\u30de\u30a4\u30af \\")), joined({}, 11, {}));
  EXPECT_EQ(get(address_of(FxHome::effect_store, 552)), Bytes());
  EXPECT_EQ(get(address_of(FxHome::device_properties)), Bytes());
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(EffectPropertiesTest, WhicheverStepOfWritingFailsNothingIsChanged) {
  ASSERT_EQ(set(address_of(), 11, Bytes(1)), error::kNone);
  const int steps = disk_.steps;
  ASSERT_EQ(steps, 5);  // new file, write, sync, rename, sync of the folder
  for (int step = 1; step <= steps; ++step) {
    const std::uint64_t before = properties_->latest_change(u"mic");
    disk_.steps = 0;
    disk_.fail_at = step;
    EXPECT_EQ(set(address_of(), 11, Bytes(2)), error::kDiskFull) << step;
    EXPECT_EQ(get(address_of()), joined({}, 11, Bytes(1))) << step;
    disk_.steps = 0;
    EXPECT_EQ(properties_->remove(address_of()).error, error::kDiskFull) << step;
    EXPECT_EQ(get(address_of()), joined({}, 11, Bytes(1))) << step;
    EXPECT_EQ(properties_->latest_change(u"mic"), before) << step;
    disk_.fail_at = 0;
    if (step < steps) start();  // the file has what was answered
    EXPECT_EQ(get(address_of()), joined({}, 11, Bytes(1))) << step;
  }
}

TEST_F(EffectPropertiesTest, TheOldStateAskedForAgainRepairsAFailureAtTheVeryLastStep) {
  disk_.steps = 0;
  ASSERT_EQ(set(address_of(), 11, Bytes(1)), error::kNone);
  const int all = disk_.steps;
  const Bytes other = address_of(FxHome::effect_store, 552);
  for (const bool removes : {false, true}) {
    disk_.steps = 0;
    disk_.fail_at = all;
    ASSERT_EQ(removes ? set(other, 11, {}) : set(address_of(), 11, Bytes(2)), error::kDiskFull);
    disk_.fail_at = 0;
    disk_.steps = 0;
    if (removes) {
      EXPECT_EQ(properties_->remove(other).error, error::kNotFound);
    } else {
      const control::Answer same = properties_->set(joined(address_of(), 11, Bytes(1)));
      EXPECT_EQ(same.error, error::kNone);
      EXPECT_FALSE(same.changed);
    }
    EXPECT_EQ(disk_.steps, all);
    EXPECT_EQ(set(address_of(), 11, Bytes(1)), error::kNone);
    EXPECT_EQ(disk_.steps, all) << "there is nothing left to repair";
    start();
    Bytes output(5);
    EXPECT_EQ(properties_->get(address_of(), output).transferred, 5u);
    EXPECT_EQ(properties_->get(other, output).error, error::kNotFound);
  }
}

TEST_F(EffectPropertiesTest, RequestsOfAnotherFormAreRefused) {
  Bytes output(100);
  const std::u16string endless(260, u'x');
  for (const Bytes& address :
       {Bytes(543), Bytes(545), address_of(static_cast<FxHome>(3)), address_of(FxHome::effect_store, 1, u""),
        address_of(FxHome::effect_store, 1, endless)}) {
    EXPECT_EQ(properties_->get(address, output).error, error::kInvalidParameter);
    EXPECT_EQ(properties_->remove(address).error, error::kInvalidParameter);
  }
  EXPECT_EQ(properties_->set(address_of()).error, error::kInvalidParameter);
  EXPECT_EQ(set(address_of(FxHome::effect_store, 1, endless), 11, {}), error::kInvalidParameter);
  EXPECT_EQ(set(address_of(), 0, {}), error::kInvalidParameter);
  EXPECT_EQ(set(address_of(), 0x10000, {}), error::kInvalidParameter);
  EXPECT_EQ(set(address_of(), control::kTypeNumber, Bytes(3)), error::kInvalidParameter);
  EXPECT_EQ(set(address_of(), control::kTypeText, Bytes(1, std::byte{0xFF})), error::kInvalidParameter);
  EXPECT_EQ(set(address_of(), control::kTypeBlob, Bytes(control::kMaxFxValueBytes + 1)), error::kInvalidParameter);
  EXPECT_EQ(properties_->remove(address_of()).error, error::kNotFound);
}

TEST_F(EffectPropertiesTest, TooLittleRoomForAValueIsTold) {
  ASSERT_EQ(set(address_of(), 11, Bytes(6)), error::kNone);
  Bytes output(9);
  EXPECT_EQ(properties_->get(address_of(), output).error, error::kInsufficientBuffer);
  output.resize(10);
  EXPECT_EQ(properties_->get(address_of(), output).transferred, 10u);
}

TEST_F(EffectPropertiesTest, MoreBytesThanAllTogetherMayHaveAreRefused) {
  const Bytes most(control::kMaxFxValueBytes);
  const auto count = static_cast<std::uint32_t>(control::kMaxFxTotalBytes / control::kMaxFxValueBytes);
  for (std::uint32_t pid = 0; pid < count; ++pid) {
    ASSERT_EQ(set(address_of(FxHome::effect_store, pid), 11, most), error::kNone) << pid;
  }
  EXPECT_EQ(set(address_of(FxHome::effect_store, count), 11, Bytes(1)), error::kDiskFull);
  EXPECT_EQ(properties_->remove(address_of(FxHome::effect_store, 0)).error, error::kNone);
  EXPECT_EQ(set(address_of(FxHome::effect_store, count), 11, Bytes(1)), error::kNone);
  EXPECT_EQ(set(address_of(FxHome::effect_store, count + 1), 11, Bytes(1)), error::kNone);
  EXPECT_EQ(set(address_of(FxHome::effect_store, count), 11, most), error::kDiskFull) << "in place of a smaller one";
  EXPECT_EQ(get(address_of(FxHome::effect_store, count)), joined({}, 11, Bytes(1)));
}

TEST_F(EffectPropertiesTest, WhatChangesNothingWritesNothing) {
  ASSERT_EQ(set(address_of(), 11, Bytes(1)), error::kNone);
  disk_.steps = 0;
  EXPECT_EQ(set(address_of(), 11, Bytes(1)), error::kNone);
  EXPECT_EQ(properties_->remove(address_of(FxHome::user_store)).error, error::kNotFound);
  EXPECT_EQ(disk_.steps, 0);
}

TEST_F(EffectPropertiesTest, MoreValuesThanThereMayBeAreRefused) {
  std::vector<std::string> lines;
  for (std::size_t pid = 0; pid < control::kMaxFxValues; ++pid) {
    lines.push_back("1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} " + std::to_string(pid) + " 11 00 mic");
  }
  ASSERT_EQ(folder_->save("effect-properties", "sonivo effect properties 1", lines), error::kNone);
  start();
  const Bytes another = address_of(FxHome::effect_store, control::kMaxFxValues);
  EXPECT_EQ(set(another, 11, {}), error::kDiskFull);
  EXPECT_EQ(get(another), Bytes());
  EXPECT_EQ(set(address_of(FxHome::effect_store, 0), 11, Bytes(2)), error::kNone) << "in place of the former value";
  EXPECT_EQ(properties_->remove(address_of(FxHome::effect_store, 0)).error, error::kNone);
  EXPECT_EQ(set(another, 11, {}), error::kNone);
}

TEST_F(EffectPropertiesTest, AChangeCountsForItsEndpoint) {
  ASSERT_EQ(set(address_of(), 11, {}), error::kNone);
  const std::uint64_t mic = properties_->latest_change(u"mic");
  const std::uint64_t other = properties_->latest_change(u"other");
  EXPECT_NE(mic, 0u);
  EXPECT_NE(other, 0u);
  ASSERT_EQ(set(address_of(), 11, {}), error::kNone);
  ASSERT_EQ(set(address_of(FxHome::device_properties), 11, {}), error::kNone);
  EXPECT_EQ(properties_->latest_change(u"mic"), mic);
  ASSERT_EQ(properties_->remove(address_of()).error, error::kNone);
  EXPECT_NE(properties_->latest_change(u"mic"), mic);
  EXPECT_EQ(properties_->latest_change(u"other"), other);
  properties_->touch_all();
  EXPECT_NE(properties_->latest_change(u"other"), other);
}

TEST_F(EffectPropertiesTest, NoChangeIsMissedAmongManyEndpoints) {
  for (int i = 0; i < 300; ++i) {
    const std::u16string endpoint = u"mic" + std::u16string(1, static_cast<char16_t>(u'a' + i));
    const std::uint64_t before = properties_->latest_change(endpoint);
    ASSERT_EQ(set(address_of(FxHome::effect_store, 1, endpoint), 11, {}), error::kNone);
    EXPECT_NE(properties_->latest_change(endpoint), before) << i;
  }
}

TEST_F(EffectPropertiesTest, AmongMoreEndpointsThanAreToldApartAChangeCountsForAll) {
  const auto change_first = [&](int count) {
    for (int i = 0; i < count; ++i) {
      const std::u16string endpoint = u"mic" + std::u16string(1, static_cast<char16_t>(u'a' + i));
      ASSERT_EQ(set(address_of(FxHome::effect_store, 1, endpoint), 11, {}), error::kNone);
    }
  };
  const std::uint64_t before = properties_->latest_change(u"other");
  change_first(256);
  EXPECT_EQ(properties_->latest_change(u"other"), before);
  change_first(257);
  EXPECT_NE(properties_->latest_change(u"other"), before);
}

TEST_F(EffectPropertiesTest, AnEndpointIsFoundByIdAndByGuid) {
  FxAddress address{.home = FxHome::device_properties,
                    .pid = control::kEndpointGuidKey.pid,
                    .fmtid = control::kEndpointGuidKey.fmtid};
  std::u16string_view(u"mic").copy(address.endpoint.data(), 3);
  ASSERT_EQ(set(test::bytes_of(address), control::kTypeText, {std::byte{'{'}, std::byte{'A'}, std::byte{'}'}}), 0u);
  EXPECT_EQ(properties_->find_endpoint(u"mic"), u"mic");
  EXPECT_EQ(properties_->find_endpoint(u"{a}"), u"mic");
  EXPECT_EQ(properties_->find_endpoint(u"{b}"), std::nullopt);
  ASSERT_EQ(set(address_of(), control::kTypeText, {std::byte{'{'}, std::byte{'b'}, std::byte{'}'}}), error::kNone);
  EXPECT_EQ(properties_->find_endpoint(u"{b}"), std::nullopt) << "some other text";
  ASSERT_EQ(set(test::bytes_of(address), control::kTypeBlob, {std::byte{'{'}, std::byte{'b'}, std::byte{'}'}}), 0u);
  EXPECT_EQ(properties_->find_endpoint(u"{b}"), std::nullopt) << "no text";
  EXPECT_EQ(properties_->find_endpoint(u""), std::nullopt);
}

TEST_F(EffectPropertiesTest, AFileThatHoldsNoPropertyIsSetAside) {
  const std::string sound = "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 11 00ff mic";
  for (const std::vector<std::string>& lines :
       std::vector<std::vector<std::string>>{{sound, "nothing"}, {sound, sound}}) {
    log_.clear();
    ASSERT_EQ(folder_->save("effect-properties", "sonivo effect properties 1", lines), error::kNone);
    start();
    EXPECT_EQ(get(address_of()), Bytes());
    EXPECT_THAT(log_, ElementsAre(HasSubstr("effect-properties is damaged")));
  }
  ASSERT_EQ(folder_->save("effect-properties", "sonivo effect properties 1", {sound}), error::kNone);
  start();
  EXPECT_EQ(get(address_of()), joined({}, 11, {std::byte{0}, std::byte{0xFF}}));
}

TEST(PropertyLines, AnythingButTheOneFormIsNone) {
  const EffectProperties::Address address{FxHome::effect_store, u"a b", {kFormat, 551}};
  const EffectProperties::Value value{control::kTypeNumber, test::bytes_of(0x01020304u)};
  const std::string line = property_line(address, value);
  EXPECT_EQ(line, "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 19 04030201 a b");
  EXPECT_EQ(property_of_line(line), std::pair(address, value));
  const char* const wrong[] = {
      "",
      "1",
      "3 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 19 04030201 a",
      "1 {654091D5-0ac4-4fc2-b6d4-c9e81f24816e} 551 19 04030201 a",
      "1 654091d5-0ac4-4fc2-b6d4-c9e81f24816e 551 19 04030201 a",
      "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e}  551 19 04030201 a",
      "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} -1 19 04030201 a",
      "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 19 040302 a",
      "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 11 040 a",
      "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 11 0G a",
      "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 0 04 a",
      "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 11 04",
      "1 {654091d5-0ac4-4fc2-b6d4-c9e81f24816e} 551 11 04 \\",
  };
  for (const char* const each : wrong) EXPECT_FALSE(property_of_line(each)) << each;
}

}  // namespace
}  // namespace sonivo::driver
