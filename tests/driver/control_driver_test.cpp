#include "driver/control_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "raw_client.h"
#include "support/temporary_folder.h"

namespace sonivo::driver {
namespace {

using test::Bytes;
using test::bytes_of;
using test::head_of;
using testing::IsEmpty;
using testing::SizeIs;

struct Told {
  ClientId client;
  control::ReplyHead head;
  Bytes output;
};

class ControlDriverTest : public testing::Test {
 protected:
  ControlDriverTest() {
    for (const ClientId client : {ClientId{1}, ClientId{2}, ClientId{3}}) driver_.client_came(client, 100);
  }

  std::vector<Told> ask(ClientId client, std::uint32_t id, std::uint32_t code, const Bytes& input = {},
                        std::size_t output_bytes = 0) {
    EXPECT_TRUE(driver_.request(client, {head_of(id, code, input.size(), output_bytes), input}));
    return taken();
  }
  std::vector<Told> wait_for_event(ClientId client, std::uint32_t id,
                                   std::uint32_t code = control::NSV_SERVICE_EVENT_NOTIFY) {
    return ask(client, id, code, {}, sizeof(control::EventRecord));
  }
  std::vector<Told> taken() { return std::exchange(told_, {}); }
  control::Ages ages() {
    const auto told = ask(3, 1, control::NSV_READ_AGES, {}, sizeof(control::Ages));
    control::Ages ages{1, 1};
    if (told[0].output.size() == sizeof ages) std::memcpy(&ages, told[0].output.data(), sizeof ages);
    return ages;
  }

  static std::string text_of(const Bytes& bytes) {
    std::string text;
    for (const std::byte each : bytes) text += static_cast<char>(each);
    return text;
  }
  static Bytes bytes_of_text(std::string_view text) {
    Bytes bytes;
    for (const char each : text) bytes.push_back(static_cast<std::byte>(each));
    return bytes;
  }

 private:
  test::TemporaryFolder home_;
  Disk disk_;
  StateFolder folder_{home_.path(), disk_};
  Settings settings_{folder_};
  EffectProperties properties_{folder_};
  std::vector<Told> told_;

 protected:
  ClientId gone_ = 0;
  std::uint64_t now_ms_ = 5000;
  ControlDriver driver_{settings_, properties_,
                        [this](ClientId client, const control::Reply& reply) {
                          if (client == gone_) return false;
                          told_.push_back({client, reply.head, {reply.output.begin(), reply.output.end()}});
                          return true;
                        },
                        [this] { return now_ms_; }};
};

TEST_F(ControlDriverTest, ASettingIsSetByOneAndReadByAnother) {
  const auto set = ask(1, 5, control::SetFunctionMic, bytes_of(8u));
  ASSERT_THAT(set, SizeIs(1));
  EXPECT_EQ(set[0].client, 1u);
  EXPECT_EQ(set[0].head.id, 5u);
  EXPECT_EQ(set[0].head.error, error::kNone);
  EXPECT_THAT(set[0].output, IsEmpty());
  const auto get = ask(2, 5, control::GetFunctionMic, {}, 4);
  ASSERT_THAT(get, SizeIs(1));
  EXPECT_EQ(get[0].client, 2u);
  EXPECT_EQ(get[0].output, bytes_of(8u));
}

TEST_F(ControlDriverTest, WhatTheStoreRefusesIsAnsweredWithItsError) {
  EXPECT_EQ(ask(1, 1, 0x8000E000)[0].head.error, error::kInvalidFunction);
  EXPECT_EQ(ask(1, 1, control::SetFunction, Bytes(3))[0].head.error, error::kInvalidParameter);
  EXPECT_EQ(ask(1, 1, control::GetFunction, {}, 3)[0].head.error, error::kInsufficientBuffer);
}

TEST_F(ControlDriverTest, AGettersQuestionMayHoldAnythingAndItsRoomBeLarger) {
  ask(1, 1, control::SetHeadphone, bytes_of(1u));
  const auto headphone = ask(1, 2, control::GetHeadphone, bytes_of(0xFFFFFFFFu), 100).at(0);
  EXPECT_EQ(headphone.head.error, error::kNone);
  EXPECT_EQ(headphone.head.transferred, 8u);
  EXPECT_THAT(headphone.output, SizeIs(8));
  EXPECT_EQ(test::number_in(headphone.output), 1u);
  EXPECT_EQ(ask(1, 3, control::GetSonivoDrvGeneration, {}, control::kMaxPayload).at(0).output, bytes_of(8u));
  EXPECT_THAT(ask(1, 4, control::GetRenderEndpointId, {}, control::kMaxPayload).at(0).output, SizeIs(520));
}

TEST_F(ControlDriverTest, AnEventRequestPendsUntilASettingChangesThatHasAnEvent) {
  EXPECT_THAT(wait_for_event(1, 7), IsEmpty());
  EXPECT_THAT(ask(2, 1, control::SetFunction, bytes_of(2u)), SizeIs(1));
  const auto told = ask(2, 1, control::SetAutoMuteMTG, bytes_of(1u));
  ASSERT_THAT(told, SizeIs(2));
  EXPECT_EQ(told[0].client, 2u);
  EXPECT_EQ(told[1].client, 1u);
  EXPECT_EQ(told[1].head.id, 7u);
  EXPECT_EQ(told[1].head.error, error::kNone);
  EXPECT_THAT(told[1].output, SizeIs(1044));
  EXPECT_EQ(test::number_in(told[1].output), control::NSVDRV_CMD_AUTOMUTE_ON);
  EXPECT_THAT(ask(2, 1, control::SetAutoMuteMTG, bytes_of(1u)), SizeIs(1));
}

TEST_F(ControlDriverTest, AnEventRequestHasJustTheRecordsSize) {
  for (const std::uint32_t code : {control::NSV_SERVICE_EVENT_NOTIFY, control::NSV_OBSERVE_EVENTS}) {
    for (const std::size_t size : {0u, 4u, 1043u, 1045u}) {
      EXPECT_EQ(ask(1, 1, code, {}, size)[0].head.error, error::kInvalidParameter) << size;
    }
    EXPECT_EQ(ask(1, 1, code, Bytes(1), 1044)[0].head.error, error::kInvalidParameter);
  }
}

TEST_F(ControlDriverTest, TheCancelRequestEndsTheServicesRequestsOfAllConnectionsAndNoOnlookers) {
  wait_for_event(1, 7);
  wait_for_event(2, 8);
  wait_for_event(2, 9, control::NSV_OBSERVE_EVENTS);
  const auto told = ask(3, 1, control::NSV_SERVICE_EVENT_CANCEL);
  ASSERT_THAT(told, SizeIs(3));
  EXPECT_EQ(told[0].head.id, 7u);
  EXPECT_EQ(told[0].head.error, error::kOperationAborted);
  EXPECT_EQ(told[1].head.id, 8u);
  EXPECT_EQ(told[1].head.error, error::kOperationAborted);
  EXPECT_EQ(told[2].client, 3u);
  EXPECT_EQ(told[2].head.error, error::kNone);
  EXPECT_EQ(ask(3, 1, control::NSV_SERVICE_EVENT_CANCEL, Bytes(1))[0].head.error, error::kInvalidParameter);
}

TEST_F(ControlDriverTest, OneProcessAtATimeIsTheServiceAndTheNextOneWaits) {
  driver_.client_came(4, 200);
  driver_.client_came(5, 100);
  EXPECT_THAT(wait_for_event(1, 7), IsEmpty());
  EXPECT_THAT(wait_for_event(4, 1), IsEmpty());
  const auto told = ask(3, 1, control::NSV_SEND_EVENT, bytes_of(control::kMonitorWake));
  ASSERT_THAT(told, SizeIs(2));
  EXPECT_EQ(told[1].client, 1u);
  EXPECT_THAT(ask(3, 1, control::NSV_SEND_EVENT, bytes_of(control::kMonitorWake)), SizeIs(1));

  for (const ClientId each : {ClientId{1}, ClientId{2}, ClientId{3}}) driver_.client_gone(each);
  EXPECT_THAT(taken(), IsEmpty());
  driver_.client_gone(5);
  const auto first = taken();
  ASSERT_THAT(first, SizeIs(1));
  EXPECT_EQ(first[0].client, 4u);
  EXPECT_EQ(first[0].head.id, 1u);
}

TEST_F(ControlDriverTest, TheNextServiceIsToldOfWhatItHasMissed) {
  driver_.client_came(4, 200);
  driver_.client_came(5, 300);
  wait_for_event(1, 7);
  wait_for_event(4, 1);
  ask(5, 1, control::SetAutoMuteMTG, bytes_of(1u));
  for (const ClientId each : {ClientId{1}, ClientId{2}, ClientId{3}}) driver_.client_gone(each);
  EXPECT_EQ(test::number_in(taken().back().output), control::NSVDRV_CMD_AUTOMUTE_ON);
  EXPECT_EQ(test::number_in(wait_for_event(4, 2).at(0).output), control::NSVDRV_CMD_DEV_MIC);
  EXPECT_EQ(test::number_in(wait_for_event(4, 3).at(0).output), control::NSVDRV_CMD_DEV_SPK);
  EXPECT_THAT(wait_for_event(4, 4), IsEmpty());
}

TEST_F(ControlDriverTest, OfThoseWhoWaitTheFirstIsTheNextService) {
  driver_.client_came(4, 200);
  driver_.client_came(5, 300);
  driver_.client_came(6, 200);
  wait_for_event(1, 7);
  wait_for_event(5, 1);
  wait_for_event(4, 2);
  wait_for_event(6, 3);
  driver_.client_gone(5);
  for (const ClientId each : {ClientId{1}, ClientId{2}, ClientId{3}}) driver_.client_gone(each);
  const auto told = taken();
  ASSERT_THAT(told, SizeIs(2));  // both connections of the same process
  EXPECT_EQ(told[0].client, 4u);
  EXPECT_EQ(told[1].client, 6u);
}

TEST_F(ControlDriverTest, EachProcessCancelsItsOwnRequests) {
  driver_.client_came(4, 200);
  driver_.client_came(5, 200);
  driver_.client_came(6, 300);
  wait_for_event(1, 7);
  wait_for_event(4, 8);
  wait_for_event(6, 9);
  const auto told = ask(5, 1, control::NSV_SERVICE_EVENT_CANCEL);
  ASSERT_THAT(told, SizeIs(2));
  EXPECT_EQ(told[0].client, 4u);
  EXPECT_EQ(told[0].head.id, 8u);
  EXPECT_EQ(told[0].head.error, error::kOperationAborted);
  EXPECT_EQ(told[1].head.error, error::kNone);
  ASSERT_TRUE(driver_.request(6, {control::cancel_of(9), {}}));
  const auto single = taken();
  ASSERT_THAT(single, SizeIs(1));
  EXPECT_EQ(single[0].head.id, 9u);
  EXPECT_EQ(single[0].head.error, error::kOperationAborted);
  for (const ClientId each : {ClientId{1}, ClientId{2}, ClientId{3}}) driver_.client_gone(each);
  EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(ControlDriverTest, OneWhoCancelsRequestsFirstIsTheService) {
  driver_.client_came(4, 200);
  ask(1, 1, control::NSV_SERVICE_EVENT_CANCEL);
  EXPECT_THAT(wait_for_event(4, 1), IsEmpty());
  EXPECT_EQ(ask(4, 2, control::NSV_PUBLISH_REPORT, bytes_of_text("mine"))[0].head.error, error::kAccessDenied);
}

TEST_F(ControlDriverTest, AnEventIsNotLostWithAConnectionThatIsGone) {
  wait_for_event(1, 7);
  wait_for_event(2, 8);
  gone_ = 1;
  const auto told = ask(3, 1, control::NSV_SEND_EVENT, bytes_of(control::kMonitorWake));
  ASSERT_THAT(told, SizeIs(2));
  EXPECT_EQ(told[1].client, 2u);
  EXPECT_EQ(test::number_in(told[1].output), control::kMonitorWake);
}

TEST_F(ControlDriverTest, AnEventWhoseRequestIsCancelledTooLateIsTheNextOne) {
  wait_for_event(1, 7);
  EXPECT_THAT(ask(2, 1, control::NSV_SEND_EVENT, bytes_of(control::kMonitorWake)), SizeIs(2));
  EXPECT_THAT(ask(2, 1, control::NSV_SEND_EVENT, bytes_of(control::NSVDRV_CMD_AUTOMUTE_ON)), SizeIs(1));
  ASSERT_TRUE(driver_.request(1, {control::cancel_of(7), {}}));
  EXPECT_THAT(taken(), IsEmpty());
  EXPECT_EQ(test::number_in(wait_for_event(1, 8).at(0).output), control::kMonitorWake);
  // The same id again means the new request.
  EXPECT_THAT(ask(1, 8, control::GetFunction, {}, 4), SizeIs(1));
  ASSERT_TRUE(driver_.request(1, {control::cancel_of(8), {}}));
  EXPECT_EQ(test::number_in(wait_for_event(1, 9).at(0).output), control::NSVDRV_CMD_AUTOMUTE_ON);
}

TEST_F(ControlDriverTest, EventsAreKeptForOneWhoCancelledRequestsBeforeMakingAny) {
  ask(1, 1, control::NSV_SERVICE_EVENT_CANCEL);
  ask(2, 1, control::NSV_SEND_EVENT, bytes_of(control::kMonitorWake));
  const auto told = wait_for_event(1, 7);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(test::number_in(told[0].output), control::kMonitorWake);
}

TEST_F(ControlDriverTest, ACancelledRequestIsAnsweredOnceAndOnlyThatOne) {
  wait_for_event(1, 7);
  wait_for_event(1, 8);
  ASSERT_TRUE(driver_.request(1, {control::cancel_of(7), {}}));
  const auto told = taken();
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].head.id, 7u);
  EXPECT_EQ(told[0].head.error, error::kOperationAborted);
  ASSERT_TRUE(driver_.request(1, {control::cancel_of(7), {}}));
  ASSERT_TRUE(driver_.request(2, {control::cancel_of(8), {}}));
  EXPECT_THAT(taken(), IsEmpty());
  EXPECT_EQ(ask(2, 1, control::NSV_SEND_EVENT, bytes_of(1u))[1].head.id, 8u);
}

TEST_F(ControlDriverTest, AnIdOfAPendingRequestMayNotBeUsedAgain) {
  wait_for_event(1, 7);
  EXPECT_FALSE(driver_.request(1, {head_of(7, control::GetFunction, 0, 4), {}}));
  EXPECT_TRUE(driver_.request(2, {head_of(7, control::GetFunction, 0, 4), {}}));
}

TEST_F(ControlDriverTest, MorePendingRequestsThanThirtyTwoAreRefused) {
  for (std::uint32_t id = 0; id < 32; ++id) EXPECT_THAT(wait_for_event(1, id), IsEmpty());
  const auto told = wait_for_event(1, 32);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].head.error, error::kBusy);
  EXPECT_THAT(wait_for_event(2, 32), IsEmpty());
  ask(3, 1, control::NSV_SEND_EVENT, bytes_of(1u));
  EXPECT_THAT(wait_for_event(1, 33), IsEmpty());
}

TEST_F(ControlDriverTest, TheRequestsOfAClientThatIsGoneAreForgotten) {
  wait_for_event(1, 7);
  wait_for_event(1, 8, control::NSV_OBSERVE_EVENTS);
  driver_.client_gone(1);
  EXPECT_THAT(ask(2, 1, control::NSV_SEND_EVENT, bytes_of(1u)), SizeIs(1));
}

TEST_F(ControlDriverTest, OnlyEventsBelowTheExitCanBeSent) {
  wait_for_event(1, 7);
  for (const std::uint32_t command : {0u, 99u, 100u}) {
    const auto told = ask(2, 1, control::NSV_SEND_EVENT, bytes_of(command));
    ASSERT_THAT(told, SizeIs(1)) << command;
    EXPECT_EQ(told[0].head.error, error::kInvalidParameter);
  }
  const Bytes sound = bytes_of(98u);
  EXPECT_EQ(ask(2, 1, control::NSV_SEND_EVENT, Bytes(sound.begin(), sound.end() - 1))[0].head.error,
            error::kInvalidParameter);
  EXPECT_EQ(ask(2, 1, control::NSV_SEND_EVENT, bytes_of(std::array{98u, 0u}))[0].head.error, error::kInvalidParameter);
  EXPECT_THAT(ask(2, 1, control::NSV_SEND_EVENT, bytes_of(98u)), SizeIs(2));
}

TEST_F(ControlDriverTest, TheExitIsAnnouncedToAllWhoWaitForEvents) {
  driver_.client_came(4, 200);
  wait_for_event(1, 7);
  wait_for_event(2, 8, control::NSV_OBSERVE_EVENTS);
  wait_for_event(4, 9);  // of another process
  driver_.announce_exit();
  const auto told = taken();
  ASSERT_THAT(told, SizeIs(3));
  for (const Told& each : told) EXPECT_EQ(test::number_in(each.output), control::NSVPLAY_CMD_EXIT);
}

Bytes property_input(std::uint32_t value) {
  control::FxAddress address{.home = control::FxHome::effect_store, .pid = 1};
  address.endpoint[0] = u'm';
  Bytes input = bytes_of(address);
  for (const std::uint32_t each : {control::kTypeNumber, value}) {
    const Bytes bytes = bytes_of(each);
    input.insert(input.end(), bytes.begin(), bytes.end());
  }
  return input;
}

Bytes watch_input(std::uint64_t seen) {
  control::FxWatchQuestion question{.seen = seen};
  question.endpoint[0] = u'm';
  return bytes_of(question);
}

std::uint64_t change_in(const Told& told) {
  std::uint64_t change = 0;
  EXPECT_EQ(told.output.size(), sizeof change);
  std::memcpy(&change, told.output.data(), std::min(sizeof change, told.output.size()));
  return change;
}

class PropertyRequests : public ControlDriverTest {
 protected:
  PropertyRequests() {
    ask(3, 1, control::NSV_SET_FX_PROPERTY, property_input(1));
    latest_ = change_in(ask(3, 1, control::NSV_WATCH_FX_PROPERTIES, watch_input(0), 8).at(0));
  }
  std::vector<Told> watch(ClientId client, std::uint32_t id) {
    return ask(client, id, control::NSV_WATCH_FX_PROPERTIES, watch_input(latest_), 8);
  }

  std::uint64_t latest_ = 0;
};

TEST_F(PropertyRequests, AValueIsSetReadAndRemoved) {
  const Bytes input = property_input(7);
  const Bytes address(input.begin(), input.begin() + sizeof(control::FxAddress));
  EXPECT_EQ(ask(1, 1, control::NSV_SET_FX_PROPERTY, input)[0].head.error, error::kNone);
  EXPECT_EQ(ask(2, 1, control::NSV_GET_FX_PROPERTY, address, 8)[0].output, Bytes(input.end() - 8, input.end()));
  EXPECT_EQ(ask(2, 1, control::NSV_REMOVE_FX_PROPERTY, address)[0].head.error, error::kNone);
  EXPECT_EQ(ask(2, 1, control::NSV_GET_FX_PROPERTY, address, 8)[0].head.error, error::kNotFound);
}

TEST_F(PropertyRequests, AWatchPendsUntilAChangeAndIsAnsweredOnce) {
  EXPECT_THAT(watch(1, 7), IsEmpty());
  EXPECT_THAT(ask(2, 1, control::NSV_SET_FX_PROPERTY, property_input(1)), SizeIs(1));
  const auto told = ask(2, 1, control::NSV_SET_FX_PROPERTY, property_input(2));
  ASSERT_THAT(told, SizeIs(2));
  EXPECT_EQ(told[1].head.id, 7u);
  EXPECT_NE(change_in(told[1]), latest_);
  EXPECT_THAT(ask(2, 1, control::NSV_SET_FX_PROPERTY, property_input(3)), SizeIs(1));
  EXPECT_THAT(watch(1, 8), SizeIs(1));
}

TEST_F(PropertyRequests, OthersSettingsWakeAWatchAndTheServicesOwnDoNot) {
  driver_.client_came(4, 200);
  wait_for_event(1, 1);  // 1 to 3 are of the service's process now
  EXPECT_THAT(watch(1, 7), IsEmpty());
  EXPECT_THAT(ask(2, 1, control::SetFunction, bytes_of(5u)), SizeIs(1));
  EXPECT_THAT(ask(4, 1, control::SetFunction, bytes_of(5u)), SizeIs(1));
  EXPECT_THAT(ask(4, 1, control::SetFunction, bytes_of(6u)), SizeIs(2));
}

TEST_F(PropertyRequests, HeadphonesThatTheServicesProcessTellsOfWakeAWatch) {
  wait_for_event(1, 1);
  EXPECT_THAT(watch(1, 7), IsEmpty());
  EXPECT_THAT(ask(2, 1, control::SetHeadphone, bytes_of(0u)), SizeIs(1));
  EXPECT_THAT(ask(2, 1, control::SetHeadphone, bytes_of(1u)), SizeIs(2));
}

TEST_F(PropertyRequests, AWatchIsCancelledAndForgotten) {
  EXPECT_THAT(watch(1, 7), IsEmpty());
  EXPECT_THAT(watch(2, 8), IsEmpty());
  ASSERT_TRUE(driver_.request(1, {control::cancel_of(7), {}}));
  EXPECT_EQ(taken().at(0).head.error, error::kOperationAborted);
  driver_.client_gone(2);
  EXPECT_THAT(ask(3, 1, control::NSV_SET_FX_PROPERTY, property_input(2)), SizeIs(1));
}

TEST_F(PropertyRequests, AWatchOfAnotherFormIsRefused) {
  EXPECT_EQ(ask(1, 1, control::NSV_WATCH_FX_PROPERTIES, watch_input(0), 4)[0].head.error, error::kInvalidParameter);
  EXPECT_EQ(ask(1, 1, control::NSV_WATCH_FX_PROPERTIES, Bytes(527), 8)[0].head.error, error::kInvalidParameter);
  EXPECT_EQ(ask(1, 1, control::NSV_WATCH_FX_PROPERTIES, Bytes(528), 8)[0].head.error, error::kNotFound);
}

class ServiceReports : public ControlDriverTest {
 protected:
  ServiceReports() { ask(1, 1, control::NSV_SERVICE_EVENT_CANCEL); }  // its process is the service
};

TEST_F(ControlDriverTest, AReportIsTakenFromTheServiceAlone) {
  EXPECT_EQ(ask(1, 1, control::NSV_PUBLISH_REPORT, bytes_of_text("early"))[0].head.error, error::kAccessDenied);
  driver_.client_came(4, 200);
  wait_for_event(1, 7);
  EXPECT_EQ(ask(2, 1, control::NSV_PUBLISH_REPORT, bytes_of_text("mine"))[0].head.error, error::kNone);
  for (const std::string_view text : {"false", ""}) {
    EXPECT_EQ(ask(4, 1, control::NSV_PUBLISH_REPORT, bytes_of_text(text))[0].head.error, error::kAccessDenied);
    EXPECT_EQ(text_of(ask(4, 1, control::NSV_READ_REPORT, {}, 8192)[0].output), "mine");
  }
  for (const ClientId each : {ClientId{1}, ClientId{2}, ClientId{3}}) driver_.client_gone(each);
  ask(4, 1, control::NSV_SERVICE_EVENT_CANCEL);
  EXPECT_EQ(ask(4, 1, control::NSV_PUBLISH_REPORT, bytes_of_text("next"))[0].head.error, error::kNone);
}

TEST_F(ServiceReports, AReportLivesAsLongAsItsPublisherHasAConnection) {
  driver_.client_came(4, 200);
  EXPECT_EQ(ask(2, 1, control::NSV_READ_REPORT, {}, 8192)[0].head.error, error::kNotFound);
  const std::string report = "{\"mode\": \"\xe3\x83\x87\"}";
  EXPECT_EQ(ask(1, 1, control::NSV_PUBLISH_REPORT, bytes_of_text(report))[0].head.error, error::kNone);
  EXPECT_EQ(text_of(ask(2, 1, control::NSV_READ_REPORT, {}, 8192)[0].output), report);
  EXPECT_EQ(text_of(ask(2, 1, control::NSV_READ_REPORT, {}, report.size())[0].output), report);
  EXPECT_EQ(ask(2, 1, control::NSV_READ_REPORT, {}, report.size() - 1)[0].head.error, error::kInsufficientBuffer);
  driver_.client_gone(1);
  driver_.client_gone(2);
  EXPECT_EQ(text_of(ask(4, 1, control::NSV_READ_REPORT, {}, 8192)[0].output), report);
  driver_.client_gone(3);
  EXPECT_EQ(ask(4, 1, control::NSV_READ_REPORT, {}, 8192)[0].head.error, error::kNotFound);
}

TEST_F(ServiceReports, AReportIsReplacedAndWithdrawn) {
  ask(1, 1, control::NSV_PUBLISH_REPORT, bytes_of_text("one"));
  ask(2, 1, control::NSV_PUBLISH_REPORT, bytes_of_text("two"));
  driver_.client_gone(1);
  EXPECT_EQ(text_of(ask(3, 1, control::NSV_READ_REPORT, {}, 8192)[0].output), "two");
  ask(2, 1, control::NSV_PUBLISH_REPORT);
  EXPECT_EQ(ask(3, 1, control::NSV_READ_REPORT, {}, 8192)[0].head.error, error::kNotFound);
}

TEST_F(ServiceReports, AReportThatIsTooLongOrNoUtf8ChangesNothing) {
  ask(1, 1, control::NSV_PUBLISH_REPORT, bytes_of_text("one"));
  EXPECT_EQ(ask(1, 1, control::NSV_PUBLISH_REPORT, Bytes(8193, std::byte{'x'}))[0].head.error,
            error::kInvalidParameter);
  EXPECT_EQ(ask(1, 1, control::NSV_PUBLISH_REPORT, bytes_of_text("\xff"))[0].head.error, error::kInvalidParameter);
  EXPECT_EQ(text_of(ask(1, 1, control::NSV_READ_REPORT, {}, 8192)[0].output), "one");
  EXPECT_EQ(ask(1, 1, control::NSV_PUBLISH_REPORT, Bytes(8192, std::byte{'x'}))[0].head.error, error::kNone);
}

TEST_F(ControlDriverTest, ItTellsHowOldItAndTheReportAre) {
  now_ms_ += 700;
  EXPECT_EQ(ages().driver_ms, 700u);
  EXPECT_EQ(ages().report_ms, control::Ages::kNone);
  wait_for_event(1, 9);
  for (int i = 0; i < 2; ++i) {  // the same text counts as new
    ask(1, 1, control::NSV_PUBLISH_REPORT, bytes_of_text("same"));
    EXPECT_EQ(ages().report_ms, 0u);
    now_ms_ += 12'345;
    EXPECT_EQ(ages().report_ms, 12'345u);
  }
  EXPECT_EQ(ages().driver_ms, 700u + 2 * 12'345);
  ask(1, 1, control::NSV_PUBLISH_REPORT, Bytes(8193, std::byte{'x'}));
  EXPECT_EQ(ages().report_ms, 12'345u) << "one that is refused is none";
  ask(1, 1, control::NSV_PUBLISH_REPORT);
  EXPECT_EQ(ages().report_ms, control::Ages::kNone) << "withdrawn";
}

TEST_F(ControlDriverTest, AgesHaveTheirSize) {
  EXPECT_EQ(ask(1, 1, control::NSV_READ_AGES, {}, 15)[0].head.error, error::kInsufficientBuffer);
  EXPECT_EQ(ask(1, 1, control::NSV_READ_AGES, Bytes(1), 16)[0].head.error, error::kInvalidParameter);
}

}  // namespace
}  // namespace sonivo::driver
