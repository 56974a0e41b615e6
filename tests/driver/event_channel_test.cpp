#include "driver/event_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <utility>

namespace sonivo::driver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class EventChannelTest : public testing::Test {
 protected:
  std::vector<std::pair<std::uint32_t, std::uint32_t>> taken() { return std::exchange(delivered_, {}); }

  EventChannel channel_{[this](const PendingId& request, std::uint32_t command) {
    if (gone_.contains(request.client)) return false;
    delivered_.emplace_back(request.id, command);
    return true;
  }};
  std::set<ClientId> gone_;

 private:
  std::vector<std::pair<std::uint32_t, std::uint32_t>> delivered_;
};

TEST_F(EventChannelTest, AnEventGoesToTheOldestRequestOfTheService) {
  channel_.wait_as_service({1, 10});
  channel_.wait_as_service({2, 20});
  channel_.send(12);
  EXPECT_THAT(taken(), ElementsAre(Pair(10u, 12u)));
  channel_.send(13);
  EXPECT_THAT(taken(), ElementsAre(Pair(20u, 13u)));
}

TEST_F(EventChannelTest, EventsBetweenTwoRequestsWaitInOrder) {
  channel_.greet_service(1);
  channel_.send(12);
  channel_.send(14);
  channel_.wait_as_service({1, 10});
  EXPECT_THAT(taken(), ElementsAre(Pair(10u, 12u)));
  channel_.wait_as_service({1, 11});
  EXPECT_THAT(taken(), ElementsAre(Pair(11u, 14u)));
}

TEST_F(EventChannelTest, OfMoreThanSixtyFourTheOldestIsLost) {
  channel_.greet_service(1);
  for (std::uint32_t i = 0; i < 65; ++i) channel_.send(100 + i);
  for (std::uint32_t i = 0; i < 66; ++i) channel_.wait_as_service({1, i});
  const auto events = taken();
  ASSERT_EQ(events.size(), 64u);
  EXPECT_EQ(events.front().second, 101u);
  EXPECT_EQ(events.back().second, 164u);
}

TEST_F(EventChannelTest, NothingIsKeptForAServiceThatIsNotThere) {
  channel_.send(12);
  channel_.wait_as_service({1, 10});
  EXPECT_THAT(taken(), IsEmpty());
  channel_.drop(ClientId{1});
  channel_.greet_service(2);
  channel_.send(13);
  channel_.drop(ClientId{2});
  channel_.wait_as_service({3, 30});
  EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(EventChannelTest, AnOnlookerTakesNothingFromTheService) {
  channel_.wait_as_onlooker({1, 10});
  channel_.wait_as_onlooker({2, 20});
  channel_.wait_as_service({3, 30});
  channel_.send(12);
  EXPECT_THAT(taken(), testing::UnorderedElementsAre(Pair(10u, 12u), Pair(20u, 12u), Pair(30u, 12u)));
}

TEST_F(EventChannelTest, AnOnlookerHasAQueueOfItsOwn) {
  channel_.wait_as_onlooker({1, 10});
  for (const std::uint32_t command : {1u, 2u, 3u}) channel_.send(command);
  EXPECT_THAT(taken(), ElementsAre(Pair(10u, 1u)));
  channel_.wait_as_onlooker({1, 11});
  channel_.wait_as_onlooker({1, 12});
  channel_.wait_as_onlooker({1, 13});
  EXPECT_THAT(taken(), ElementsAre(Pair(11u, 2u), Pair(12u, 3u)));
}

TEST_F(EventChannelTest, DroppingTheServicesRequestsLeavesOnlookers) {
  channel_.wait_as_service({1, 10});
  channel_.wait_as_onlooker({2, 20});
  EXPECT_THAT(channel_.drop_service_requests(), ElementsAre(PendingId{1, 10}));
  EXPECT_THAT(channel_.drop_service_requests(), IsEmpty());
  channel_.send(12);
  EXPECT_THAT(taken(), ElementsAre(Pair(20u, 12u)));
}

TEST_F(EventChannelTest, ADroppedRequestGetsNothing) {
  channel_.wait_as_service({1, 10});
  channel_.wait_as_onlooker({1, 11});
  channel_.drop(PendingId{1, 10});
  channel_.drop(PendingId{1, 11});
  channel_.send(12);
  EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(EventChannelTest, AnEventThatMeetsOneWhoIsGoneGoesToTheNextRequest) {
  channel_.wait_as_service({1, 10});
  channel_.wait_as_service({2, 20});
  gone_ = {1};
  channel_.send(12);
  EXPECT_THAT(taken(), ElementsAre(Pair(20u, 12u)));
}

TEST_F(EventChannelTest, AnEventThatMeetsOnlyThoseWhoAreGoneWaitsAtTheHead) {
  channel_.greet_service(2);
  channel_.wait_as_service({1, 10});
  gone_ = {1};
  channel_.send(12);
  channel_.send(13);
  EXPECT_THAT(taken(), IsEmpty());
  channel_.drop(ClientId{1});
  channel_.wait_as_service({2, 20});
  channel_.wait_as_service({2, 21});
  EXPECT_THAT(taken(), ElementsAre(Pair(20u, 12u), Pair(21u, 13u)));
}

TEST_F(EventChannelTest, AnEventThatIsGivenBackIsTheNextOne) {
  channel_.wait_as_service({1, 10});
  channel_.wait_as_onlooker({2, 20});
  channel_.send(12);
  channel_.send(13);
  EXPECT_THAT(taken(), ElementsAre(Pair(10u, 12u), Pair(20u, 12u)));
  channel_.give_back({1, 10});
  channel_.give_back({1, 10});  // only once
  channel_.give_back({2, 20});
  channel_.give_back({2, 99});
  for (const std::uint32_t id : {11u, 12u, 13u}) channel_.wait_as_service({1, id});
  EXPECT_THAT(taken(), ElementsAre(Pair(11u, 12u), Pair(12u, 13u)));
  for (const std::uint32_t id : {21u, 22u, 23u}) channel_.wait_as_onlooker({2, id});
  EXPECT_THAT(taken(), ElementsAre(Pair(21u, 12u), Pair(22u, 13u)));
}

TEST_F(EventChannelTest, AnEventThatIsGivenBackGoesToARequestThatWaits) {
  channel_.wait_as_service({1, 10});
  channel_.wait_as_service({1, 11});
  channel_.send(12);
  channel_.give_back({1, 10});
  EXPECT_THAT(taken(), ElementsAre(Pair(10u, 12u), Pair(11u, 12u)));
}

TEST_F(EventChannelTest, AnEventThatAnOnlookerGivesBackGoesToItsRequestThatWaits) {
  channel_.wait_as_onlooker({1, 10});
  channel_.wait_as_onlooker({1, 11});
  channel_.wait_as_onlooker({2, 20});
  channel_.send(12);
  channel_.give_back({1, 10});
  EXPECT_THAT(taken(), ElementsAre(Pair(10u, 12u), Pair(20u, 12u), Pair(11u, 12u)));
}

TEST_F(EventChannelTest, AnEventCanBeGivenBackWhoeverElseHasGoneMeanwhile) {
  channel_.wait_as_service({1, 10});
  channel_.wait_as_service({2, 20});
  channel_.send(12);
  channel_.send(13);
  taken();
  channel_.drop(ClientId{2});
  channel_.give_back({2, 20});
  channel_.give_back({1, 10});
  channel_.wait_as_service({1, 11});
  channel_.wait_as_service({1, 12});
  EXPECT_THAT(taken(), ElementsAre(Pair(11u, 12u))) << "what the one who went got is gone";
}

TEST_F(EventChannelTest, WhatTheLatestSixtyFourGotCanBeGivenBack) {
  for (std::uint32_t i = 0; i < 65; ++i) {
    channel_.wait_as_service({1, i});
    channel_.send(100 + i);
  }
  taken();
  channel_.give_back({1, 0});
  channel_.wait_as_service({1, 1000});
  EXPECT_THAT(taken(), IsEmpty()) << "64 later ones have been answered";
  channel_.give_back({1, 1});
  EXPECT_THAT(taken(), ElementsAre(Pair(1000u, 101u)));
}

TEST_F(EventChannelTest, OfSixtyFourEventsThatWaitTheOneGivenBackIsTheOldestAndLost) {
  channel_.wait_as_service({1, 10});
  for (std::uint32_t command = 1; command <= 65; ++command) channel_.send(command);
  taken();
  channel_.give_back({1, 10});
  channel_.wait_as_service({1, 11});
  EXPECT_THAT(taken(), ElementsAre(Pair(11u, 2u)));
}

TEST_F(EventChannelTest, WhatAnIdGotBeforeItMeantSomethingElseIsNotGivenBack) {
  channel_.wait_as_service({1, 10});
  channel_.send(12);
  taken();
  channel_.forget_answer({1, 10});
  channel_.give_back({1, 10});
  channel_.wait_as_service({1, 11});
  EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(EventChannelTest, WhatGoesToPendingRequestsIsKeptForNobody) {
  channel_.wait_as_service({1, 10});
  channel_.wait_as_onlooker({2, 20});
  channel_.send_to_pending(99);
  EXPECT_THAT(taken(), ElementsAre(Pair(10u, 99u), Pair(20u, 99u)));
  channel_.wait_as_service({1, 11});
  channel_.wait_as_onlooker({2, 21});
  EXPECT_THAT(taken(), IsEmpty());
}

}  // namespace
}  // namespace sonivo::driver
