// Each numbered request: its code, the handle and the form that carry it, its payload, and what a failure leaves.

#include <array>
#include <functional>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "rules_bench.h"

namespace sonivo::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ValuesIn;

constexpr std::uint32_t kUntouched = 77;
constexpr Error kRefusal = 31;

/// S: synchronous handle. O: overlapped handle with an overlapped request. SO: such a request through the former.
enum class Channel { S, O, SO };

void expect_form(const sim::ControlRecord& request, std::uint32_t code, Channel channel) {
  EXPECT_EQ(request.code, code);
  EXPECT_EQ(request.handle, channel == Channel::O ? Completion::overlapped : Completion::synchronous);
  EXPECT_EQ(request.with_overlapped, channel != Channel::S);
  EXPECT_EQ(request.event, channel == Channel::S ? std::nullopt : std::optional(Reset::automatic));
}

/// What a setter traces that the driver refuses.
std::string refused(std::uint32_t code, Error why) {
  std::ostringstream text;
  text << "[CSonivoDriverAccess] request " << std::hex << std::uppercase << code << " failed: error " << std::dec << why
       << "\n";
  return text.str();
}

std::vector<std::byte> wire_numbers(std::vector<std::uint32_t> numbers) {
  const auto bytes = std::as_bytes(std::span(numbers));
  return {bytes.begin(), bytes.end()};
}

template <class Row>
std::string row_name(const ::testing::TestParamInfo<Row>& info) {
  return info.param.name;
}

// ---- Numbers out

struct NumberGetter {
  const char* name;
  int (CSonivoDriverAccess::*get)(std::uint32_t*);
  std::uint32_t code;
  Channel channel;
  std::size_t input_bytes = 0;
  std::size_t output_bytes = 4;
};
void PrintTo(const NumberGetter& row, std::ostream* out) { *out << row.name; }

using Access = CSonivoDriverAccess;
constexpr NumberGetter kNumberGetters[] = {
    {"GetHeadphone", &Access::GetHeadphone, 0x8000E03C, Channel::S, 4, 8},
    {"GetSonivoDrvGeneration", &Access::GetSonivoDrvGeneration, 0x8000E048, Channel::S},
    {"GetAutoExit", &Access::GetAutoExit, 0x8000E138, Channel::S},
    {"GetFunction", &Access::GetFunction, 0x8000E13C, Channel::S},
    {"GetAutoMuteMTG", &Access::GetAutoMuteMTG, 0x8000E15C, Channel::S},
    {"GetFunctionMic", &Access::GetFunctionMic, 0x8000E164, Channel::S},
    {"GetGenerationMic", &Access::GetGenerationMic, 0x8000E168, Channel::S},
    {"GetKeyboardCancelMTG", &Access::GetKeyboardCancelMTG, 0x8000E180, Channel::O},
    {"GetKeyboardCancel_UI_MTG", &Access::GetKeyboardCancel_UI_MTG, 0x8000E188, Channel::S},
    {"GetBeamformingMTG", &Access::GetBeamformingMTG, 0x8000E190, Channel::O},
    {"GetBeamforming_UI_MTG", &Access::GetBeamforming_UI_MTG, 0x8000E198, Channel::S},
    {"GetAispeechenhanceMTG", &Access::GetAispeechenhanceMTG, 0x8000E1A8, Channel::O},
    {"GetAispeechenhanceModelNoMTG", &Access::GetAispeechenhanceModelNoMTG, 0x8000E1D0, Channel::O},
    {"GetAispeechenhanceRegistrationMTG", &Access::GetAispeechenhanceRegistrationMTG, 0x8000E1D8, Channel::O},
    {"GetAispeechenhanceSetAiModelMTG", &Access::GetAispeechenhanceSetAiModelMTG, 0x8000E1E0, Channel::O},
    {"GetAispeechenhance_UI_MTG", &Access::GetAispeechenhance_UI_MTG, 0x8000E1E8, Channel::O},
    {"GetAispeechenhanceSetAiModel_UI_MTG", &Access::GetAispeechenhanceSetAiModel_UI_MTG, 0x8000E1F0, Channel::O},
    {"GetAispeechenhanceRegDialog_Open_MTG", &Access::GetAispeechenhanceRegDialog_Open_MTG, 0x8000E1F8, Channel::O},
};

class NumberGetterTest : public RulesBench, public ::testing::TestWithParam<NumberGetter> {
 protected:
  int get() { return (driver.*GetParam().get)(&value); }
  /// What a failure leaves: 0 through the synchronous handle, the caller's value through the other.
  static std::uint32_t left() { return GetParam().channel == Channel::S ? 0 : kUntouched; }

  std::uint32_t value = kUntouched;
};

TEST_P(NumberGetterTest, AsksOnceInItsFormAndAnswersTheDriversValue) {
  device.set_number(GetParam().code, 7);
  EXPECT_NE(get(), 0);
  EXPECT_EQ(value, 7u);
  const auto requests = device.requests();
  ASSERT_EQ(requests.size(), 1u);
  expect_form(requests[0], GetParam().code, GetParam().channel);
  EXPECT_EQ(requests[0].input, std::vector<std::byte>(GetParam().input_bytes));
  EXPECT_EQ(requests[0].output_bytes, GetParam().output_bytes);
}

TEST_P(NumberGetterTest, WaitsForAnAnswerThatComesLater) {
  device.set_number(GetParam().code, 7);
  device.set_delay(GetParam().code, 30);
  EXPECT_NE(get(), 0);
  EXPECT_EQ(value, 7u);
  EXPECT_EQ(now_ms(), 30u);
}

TEST_P(NumberGetterTest, FailsWithTheDriver) {
  device.fail(GetParam().code, kRefusal);
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(value, left());
  EXPECT_EQ(device.requests().size(), 1u) << "nothing is tried again";
  EXPECT_THAT(log.traces(), IsEmpty());
}

TEST_P(NumberGetterTest, FailsWhenTheHandleClosesMeanwhile) {
  device.set_delay(GetParam().code, 30);
  machine.after(10, [this] { driver.CloseDriverHandles(); });
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(value, left());
  EXPECT_EQ(now_ms(), 10u);
}

TEST_P(NumberGetterTest, IsRefusedWithoutItsHandle) {
  driver.CloseDriverHandles();
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(value, left());
  EXPECT_THAT(device.requests(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Rows, NumberGetterTest, ValuesIn(kNumberGetters), row_name<NumberGetter>);

TEST(DriverRequest, TakesHeadphonesFromTheFirstNumberAlone) {
  RulesBench bench;
  std::uint32_t plugged = kUntouched;
  bench.device.answer_raw(control::GetHeadphone, wire_numbers({0, 1}));
  EXPECT_NE(bench.driver.GetHeadphone(&plugged), 0);
  EXPECT_EQ(plugged, 0u);
  bench.device.answer_raw(control::GetHeadphone, wire_numbers({2, 0}));
  EXPECT_NE(bench.driver.GetHeadphone(&plugged), 0);
  EXPECT_EQ(plugged, 2u);
}

// ---- Numbers in

struct NumberSetter {
  const char* name;
  int (CSonivoDriverAccess::*set)(std::uint32_t);
  std::uint32_t code;
  std::uint32_t get_code;
};
void PrintTo(const NumberSetter& row, std::ostream* out) { *out << row.name; }

constexpr NumberSetter kNumberSetters[] = {
    {"SetAutoMuteMTG", &Access::SetAutoMuteMTG, 0x8000E158, 0x8000E15C},
    {"SetKeyboardCancelMTG", &Access::SetKeyboardCancelMTG, 0x8000E17C, 0x8000E180},
    {"SetBeamformingMTG", &Access::SetBeamformingMTG, 0x8000E18C, 0x8000E190},
    {"SetBeamforming_UI_MTG", &Access::SetBeamforming_UI_MTG, 0x8000E194, 0x8000E198},
    {"SetAispeechenhanceMTG", &Access::SetAispeechenhanceMTG, 0x8000E1A4, 0x8000E1A8},
    {"SetAispeechenhanceModelNoMTG", &Access::SetAispeechenhanceModelNoMTG, 0x8000E1CC, 0x8000E1D0},
    {"SetAispeechenhanceRegistrationMTG", &Access::SetAispeechenhanceRegistrationMTG, 0x8000E1D4, 0x8000E1D8},
    {"SetAispeechenhanceSetAiModelMTG", &Access::SetAispeechenhanceSetAiModelMTG, 0x8000E1DC, 0x8000E1E0},
    {"SetAispeechenhanceSetAiModel_UI_MTG", &Access::SetAispeechenhanceSetAiModel_UI_MTG, 0x8000E1EC, 0x8000E1F0},
};

class NumberSetterTest : public RulesBench, public ::testing::TestWithParam<NumberSetter> {
 protected:
  int set(std::uint32_t value) { return (driver.*GetParam().set)(value); }
};

TEST_P(NumberSetterTest, SendsFourBytesThroughTheSynchronousHandle) {
  EXPECT_NE(set(0x01020304), 0);
  const auto requests = device.requests();
  ASSERT_EQ(requests.size(), 1u);
  expect_form(requests[0], GetParam().code, Channel::S);
  EXPECT_EQ(requests[0].input, (std::vector{std::byte{4}, std::byte{3}, std::byte{2}, std::byte{1}}));
  EXPECT_EQ(requests[0].output_bytes, 0u);
  EXPECT_EQ(device.number(GetParam().get_code), 0x01020304u);
}

TEST_P(NumberSetterTest, FailsWithTheDriver) {
  const std::uint32_t before = device.number(GetParam().get_code);
  device.fail(GetParam().code, kRefusal);
  EXPECT_EQ(set(9), 0);
  EXPECT_EQ(device.number(GetParam().get_code), before);
  EXPECT_EQ(device.requests().size(), 1u) << "nothing is tried again";
  EXPECT_THAT(log.traces(), ElementsAre(refused(GetParam().code, kRefusal)));
}

TEST_P(NumberSetterTest, IsRefusedWithoutItsHandle) {
  driver.CloseDriverHandles();
  EXPECT_EQ(set(9), 0);
  EXPECT_THAT(device.requests(), IsEmpty());
  EXPECT_THAT(log.traces(), ElementsAre(refused(GetParam().code, error::kInvalidHandle)));
}

INSTANTIATE_TEST_SUITE_P(Rows, NumberSetterTest, ValuesIn(kNumberSetters), row_name<NumberSetter>);

// ---- The meeting mode's

/// Requests of the meeting mode in the form that carries each, by the call that sends them.
struct MeetingRequests {
  const char* name;
  std::function<int(CSonivoDriverAccess&)> call;
  std::vector<std::uint32_t> codes;
  std::uint32_t sent = 0;        ///< by each setter, of codes[i] the ith byte
  bool launched_before = false;  ///< with mode 1
};
void PrintTo(const MeetingRequests& row, std::ostream* out) { *out << row.name; }

const MeetingRequests kMeetingRequests[] = {
    {"GetLaunchedMTG",
     [](Access& driver) {
       std::uint32_t mode = 0;
       return driver.GetLaunchedMTG(&mode);
     },
     {0x8000E128, 0x8000E130},
     0,
     true},
    {"GetLaunchedMTGMode",
     [](Access& driver) {
       std::uint32_t mode = 0;
       return driver.GetLaunchedMTGMode(&mode);
     },
     {0x8000E130}},
    {"SetLaunchedMTGOfNone", [](Access& driver) { return driver.SetLaunchedMTG(3); }, {0x8000E16C, 0x8000E124}, 0x0103},
    {"SetLaunchedMTGOfAnother",
     [](Access& driver) { return driver.SetLaunchedMTG(3); },
     {0x8000E12C, 0x8000E160},
     0x0303,
     true},
    {"SetLaunchedMTGOff",
     [](Access& driver) { return driver.SetLaunchedMTGOff(true); },
     {0x8000E16C, 0x8000E124},
     0x0002,
     true},
    {"SetLaunchedMTGOff2", [](Access& driver) { return driver.SetLaunchedMTGOff2(); }, {0x8000E124}, 0, true},
};

class MeetingRequestTest : public RulesBench, public ::testing::TestWithParam<MeetingRequests> {
 protected:
  MeetingRequestTest() {
    if (GetParam().launched_before) driver.SetLaunchedMTG(1);
    device.forget_requests();
  }
  static bool is_getter(std::uint32_t code) { return code == 0x8000E128 || code == 0x8000E130; }
};

TEST_P(MeetingRequestTest, CarryFourBytesThroughTheSynchronousHandle) {
  EXPECT_NE(GetParam().call(driver), 0);
  const auto requests = device.requests();
  ASSERT_EQ(requests.size(), GetParam().codes.size());
  for (std::size_t i = 0; i < requests.size(); ++i) {
    const std::uint32_t code = GetParam().codes[i];
    expect_form(requests[i], code, Channel::S);
    const std::vector<std::byte> sent = wire_numbers({(GetParam().sent >> (8 * i)) & 0xFF});
    EXPECT_EQ(requests[i].input, is_getter(code) ? std::vector<std::byte>{} : sent);
    EXPECT_EQ(requests[i].output_bytes, is_getter(code) ? 4u : 0u);
  }
}

TEST_P(MeetingRequestTest, AreRefusedWithoutTheirHandle) {
  driver.CloseDriverHandles();
  EXPECT_EQ(GetParam().call(driver), 0);
  EXPECT_THAT(device.requests(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Rows, MeetingRequestTest, ValuesIn(kMeetingRequests), row_name<MeetingRequests>);

// ---- Texts

struct TextPair {
  const char* name;
  int (CSonivoDriverAccess::*set)(const std::u16string&);
  std::uint32_t set_code;
  int (CSonivoDriverAccess::*get)(control::WireText&, std::uint32_t*);
  std::uint32_t get_code;
  Channel channel;
};
void PrintTo(const TextPair& row, std::ostream* out) { *out << row.name; }

constexpr TextPair kTextPairs[] = {
    {"RenderEndpointId", &Access::SetRenderEndpointId, 0x8000E148, &Access::GetRenderEndpointId, 0x8000E14C,
     Channel::O},
    {"CaptureEndpointId", &Access::SetCaptureEndpointId, 0x8000E150, &Access::GetCaptureEndpointId, 0x8000E154,
     Channel::O},
    {"WavFile", &Access::SetAispeechenhanceWavFileMTG, 0x8000E1AC, &Access::GetAispeechenhanceWavFileMTG, 0x8000E1B0,
     Channel::SO},
    {"WavFolder", &Access::SetAispeechenhanceWavFolderMTG, 0x8000E1B4, &Access::GetAispeechenhanceWavFolderMTG,
     0x8000E1B8, Channel::SO},
    {"Text1", &Access::SetAispeechenhanceText1MTG, 0x8000E1BC, &Access::GetAispeechenhanceText1MTG, 0x8000E1C0,
     Channel::SO},
    {"Text2", &Access::SetAispeechenhanceText2MTG, 0x8000E1C4, &Access::GetAispeechenhanceText2MTG, 0x8000E1C8,
     Channel::SO},
};

class TextPairTest : public RulesBench, public ::testing::TestWithParam<TextPair> {
 protected:
  TextPairTest() { text.fill(u'x'); }
  int set(const std::u16string& value) { return (driver.*GetParam().set)(value); }
  int get() { return (driver.*GetParam().get)(text, &bytes); }
  void expect_untouched() {
    EXPECT_THAT(text, Each(u'x'));
    EXPECT_EQ(bytes, kUntouched);
  }

  control::WireText text{};
  std::uint32_t bytes = kUntouched;
};

TEST_P(TextPairTest, IsSentWholeWithZerosAfterItsEnd) {
  EXPECT_NE(set(u"音声"), 0);
  const auto requests = device.requests();
  ASSERT_EQ(requests.size(), 1u);
  expect_form(requests[0], GetParam().set_code, GetParam().channel);
  ASSERT_EQ(requests[0].input.size(), 520u);
  std::vector<std::byte> expected{std::byte{0xF3}, std::byte{0x97}, std::byte{0xF0}, std::byte{0x58}};
  expected.resize(520);
  EXPECT_EQ(requests[0].input, expected);
  EXPECT_EQ(requests[0].output_bytes, 0u);
  EXPECT_EQ(device.text(GetParam().get_code), u"音声");
}

TEST_P(TextPairTest, IsReadWithItsLengthInBytes) {
  device.set_text(GetParam().get_code, u"声.wav");
  EXPECT_NE(get(), 0);
  EXPECT_EQ(bytes, 10u);
  control::WireText expected{u'声', u'.', u'w', u'a', u'v'};
  EXPECT_EQ(text, expected);
  const auto requests = device.requests();
  ASSERT_EQ(requests.size(), 1u);
  expect_form(requests[0], GetParam().get_code, GetParam().channel);
  EXPECT_TRUE(requests[0].input.empty());
  EXPECT_EQ(requests[0].output_bytes, 520u);
}

TEST_P(TextPairTest, IsCutAfter259Characters) {
  EXPECT_NE(set(std::u16string(300, u'a')), 0);
  EXPECT_EQ(device.text(GetParam().get_code), std::u16string(259, u'a'));
  EXPECT_NE(get(), 0);
  EXPECT_EQ(bytes, 518u);
  EXPECT_EQ(std::u16string(text.data()), std::u16string(259, u'a'));
}

TEST_P(TextPairTest, EndsAfter259CharactersWhereTheDriverSendsNoEnd) {
  device.answer_raw(GetParam().get_code, std::vector(520, std::byte{0x61}));
  EXPECT_NE(get(), 0);
  EXPECT_EQ(bytes, 518u);
  control::WireText expected;
  expected.fill(u'\x6161');
  expected.back() = u'\0';
  EXPECT_EQ(text, expected);
}

TEST_P(TextPairTest, MayBeEmpty) {
  EXPECT_NE(get(), 0);
  EXPECT_EQ(bytes, 0u);
  EXPECT_THAT(text, Each(u'\0'));
}

TEST_P(TextPairTest, WaitsForAnAnswerThatComesLater) {
  device.set_delay(GetParam().set_code, 20);
  device.set_delay(GetParam().get_code, 30);
  EXPECT_NE(set(u"later"), 0);
  EXPECT_EQ(now_ms(), 20u);
  EXPECT_NE(get(), 0);
  EXPECT_EQ(now_ms(), 50u);
  EXPECT_EQ(std::u16string(text.data()), u"later");
}

TEST_P(TextPairTest, LeavesTheCallersTextWhenTheDriverFails) {
  device.fail(GetParam().set_code, kRefusal);
  device.fail(GetParam().get_code, kRefusal);
  EXPECT_EQ(set(u"lost"), 0);
  EXPECT_EQ(get(), 0);
  expect_untouched();
  EXPECT_EQ(device.requests().size(), 2u) << "nothing is tried again";
  EXPECT_THAT(log.traces(), ElementsAre(refused(GetParam().set_code, kRefusal)));
}

TEST_P(TextPairTest, IsRefusedWithoutItsHandle) {
  driver.CloseDriverHandles();
  EXPECT_EQ(set(u"lost"), 0);
  EXPECT_EQ(get(), 0);
  expect_untouched();
  EXPECT_THAT(device.requests(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Rows, TextPairTest, ValuesIn(kTextPairs), row_name<TextPair>);

// ---- Requests that can't be concluded

TEST(DriverRequest, IsGivenUpWhenItsOutcomeCantBeHad) {
  RulesBench bench;
  bench.device.set_delay(control::GetBeamformingMTG, 30);
  bench.script.fail(Step::control_result, kRefusal);
  std::uint32_t value = kUntouched;
  EXPECT_EQ(bench.driver.GetBeamformingMTG(&value), 0);
  EXPECT_EQ(bench.device.pending_requests(), 0u);  // nothing will be written to what is gone by then
}

TEST(DriverRequest, NeedsNoEventOfItsOwn) {
  RulesBench bench;
  bench.device.set_delay(control::GetBeamformingMTG, 30);
  bench.script.fail(Step::event_create, 1);
  std::uint32_t value = kUntouched;
  EXPECT_NE(bench.driver.GetBeamformingMTG(&value), 0);
  EXPECT_EQ(value, 1u);
}

TEST(DriverRequest, LeavesNoEventBehind) {
  RulesBench bench;
  const std::size_t events = bench.machine.leaks().events;
  std::uint32_t value = 0;
  bench.driver.GetBeamformingMTG(&value);
  bench.driver.SetEventIoControl_Cancel();
  EXPECT_EQ(bench.machine.leaks().events, events);
}

}  // namespace
}  // namespace sonivo::test
