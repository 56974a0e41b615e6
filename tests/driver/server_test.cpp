#include "driver/server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "driver/listener.h"
#include "raw_client.h"
#include "support/temporary_folder.h"

namespace sonivo::driver {
namespace {

using test::Bytes;
using test::bytes_of;
using test::RawClient;

/// A driver on a thread, and what its clients do.
class ServerTest : public testing::Test {
 protected:
  ~ServerTest() override { stop(); }

  void start(uid_t owner = ::geteuid(), const ServerLimits& limits = {},
             const std::optional<Heartbeat>& heartbeat = std::nullopt) {
    server_ = std::make_unique<Server>(listener_.take(), settings_, properties_, owner, limits);
    thread_ = std::thread([this, heartbeat] { server_->run(heartbeat); });
  }
  void stop() {
    if (!thread_.joinable()) return;
    server_->stop();
    thread_.join();
    server_.reset();
  }
  RawClient connect() const { return RawClient(path_); }
  /// Whether the driver does its work for others.
  bool serves() const { return connect().get(control::GetSonivoDrvGeneration) == 8; }

  test::TemporaryFolder home_;
  const std::string path_ = home_ / "driver.sock";

 private:
  Disk disk_;
  StateFolder folder_{home_.path() / "state", disk_};
  Settings settings_{folder_};
  EffectProperties properties_{folder_};
  ListenerPath listener_{path_};
  std::unique_ptr<Server> server_;
  std::thread thread_;
};

TEST_F(ServerTest, RequestsAreAnsweredInOrder) {
  start();
  RawClient client = connect();
  for (std::uint32_t id = 0; id < 50; ++id) ASSERT_TRUE(client.send(id, control::SetFunction, bytes_of(id)));
  for (std::uint32_t id = 0; id < 50; ++id) {
    const auto reply = client.receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->head.id, id);
    EXPECT_EQ(reply->head.error, error::kNone);
  }
  EXPECT_EQ(connect().get(control::GetFunction), 49u);
}

TEST_F(ServerTest, WhatIsNoRequestEndsThatConnectionAlone) {
  start();
  RawClient other = connect();
  ASSERT_TRUE(other.ask_for_event(1));
  const Bytes whole = test::frame_of(test::head_of(1, control::SetFunction, 4, 0), bytes_of(1u));
  std::vector<Bytes> frames;
  for (std::size_t size = 1; size < whole.size(); ++size)
    frames.emplace_back(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
  frames.push_back(whole);
  frames.back().push_back(std::byte{0});
  frames.push_back(test::frame_of({1, static_cast<control::RequestKind>(3), control::GetFunction, 0, 4}));
  frames.push_back(test::frame_of({1, control::RequestKind::control, 1, control::kMaxPayload + 1, 0},
                                  Bytes(control::kMaxPayload + 1)));
  frames.emplace_back(150'000);
  for (const Bytes& frame : frames) {
    RawClient client = connect();
    ASSERT_TRUE(client.send(frame)) << frame.size();
    EXPECT_TRUE(client.ends()) << frame.size();
  }
  ASSERT_EQ(connect().set(control::SetAutoMuteMTG, 1), error::kNone);
  const auto event = other.receive();
  ASSERT_TRUE(event);
  EXPECT_EQ(test::number_in(event->output), control::NSVDRV_CMD_AUTOMUTE_ON);
}

TEST_F(ServerTest, ClientsBeyondTheLimitAreClosedUntilAnotherGoes) {
  start(::geteuid(), {.clients = 3, .brief = 0});
  std::vector<RawClient> clients;
  for (int i = 0; i < 3; ++i) {
    clients.push_back(connect());
    ASSERT_EQ(clients.back().get(control::GetSonivoDrvGeneration), 8u);
  }
  EXPECT_TRUE(connect().ends());
  clients[1].close();
  for (int tries = 0; tries < 1000; ++tries) {
    RawClient next = connect();
    if (next.send(1, control::GetFunction, {}, 4) && next.receive()) return;
  }
  FAIL() << "no place became free";
}

/// A driver whose places are all taken by clients that wait for events.
class FullServer : public ServerTest {
 protected:
  FullServer() {
    start(::geteuid(), {.clients = 3, .brief = 2});
    for (int i = 0; i < 3; ++i) {
      waiting_.push_back(connect());
      EXPECT_TRUE(waiting_.back().ask_for_event(1, control::NSV_OBSERVE_EVENTS));
      EXPECT_EQ(waiting_.back().get(control::GetSonivoDrvGeneration), 8u);
    }
  }
  std::vector<RawClient> waiting_;
};

TEST_F(FullServer, ServesShortRequestsAndLosesNoEvent) {
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(serves());
  EXPECT_EQ(connect().set(control::SetAutoMuteMTG, 1), error::kNone);
  for (RawClient& each : waiting_) {
    EXPECT_EQ(test::number_in(each.receive().value().output), control::NSVDRV_CMD_AUTOMUTE_ON);
  }
}

TEST_F(FullServer, ClosesAFurtherClientThatWantsToWait) {
  for (const std::uint32_t code : {control::NSV_OBSERVE_EVENTS, control::NSV_SERVICE_EVENT_NOTIFY}) {
    RawClient further = connect();
    ASSERT_EQ(further.get(control::GetSonivoDrvGeneration), 8u);
    ASSERT_TRUE(further.ask_for_event(1, code));
    EXPECT_TRUE(further.ends());
  }
}

TEST_F(FullServer, LetsAFurtherClientWaitOnceAPlaceIsFree) {
  RawClient further = connect();
  ASSERT_EQ(further.get(control::GetSonivoDrvGeneration), 8u);
  waiting_[1].close();
  ASSERT_TRUE(serves());  // by then the driver has noticed
  ASSERT_TRUE(further.ask_for_event(1, control::NSV_OBSERVE_EVENTS));
  EXPECT_EQ(further.get(control::GetSonivoDrvGeneration), 8u);
}

TEST_F(FullServer, HasNoPlaceToWaitForOneWhoComesAfterASilentFurtherClient) {
  const RawClient silent = connect();
  RawClient further = connect();
  ASSERT_EQ(further.get(control::GetSonivoDrvGeneration), 8u);
  ASSERT_TRUE(further.ask_for_event(1, control::NSV_OBSERVE_EVENTS));
  EXPECT_TRUE(further.ends());
}

TEST_F(FullServer, HasTheOldestOfFurtherClientsGiveWay) {
  RawClient first = connect();
  ASSERT_EQ(first.get(control::GetSonivoDrvGeneration), 8u);
  RawClient second = connect();
  ASSERT_EQ(second.get(control::GetSonivoDrvGeneration), 8u);
  RawClient third = connect();
  ASSERT_EQ(third.get(control::GetSonivoDrvGeneration), 8u);
  EXPECT_TRUE(first.ends());
  EXPECT_EQ(second.get(control::GetSonivoDrvGeneration), 8u);
}

TEST_F(ServerTest, ThePlaceOfTheOldestClientThatNeverAskedIsFree) {
  start(::geteuid(), {.clients = 3});
  RawClient asked = connect();
  ASSERT_EQ(asked.get(control::GetSonivoDrvGeneration), 8u);
  RawClient silent = connect();
  RawClient later = connect();
  EXPECT_TRUE(serves());
  EXPECT_TRUE(silent.ends());
  EXPECT_EQ(later.get(control::GetSonivoDrvGeneration), 8u);
  EXPECT_EQ(asked.get(control::GetSonivoDrvGeneration), 8u);
}

// All have asked before the driver starts, so that it takes in the last of them before it reads anything.
TEST_F(ServerTest, OneWhoseRequestIsStillToBeReadIsNotSilent) {
  std::vector<RawClient> clients;
  for (int i = 0; i < 4; ++i) {
    clients.push_back(connect());
    ASSERT_TRUE(clients.back().send(1, control::GetFunction, {}, 4));
  }
  start(::geteuid(), {.clients = 3});
  for (RawClient& each : clients) EXPECT_TRUE(each.receive());
}

TEST_F(ServerTest, AServiceFindsAPlaceAmongSilentClients) {
  start(::geteuid(), {.of_process = 1000});
  std::vector<RawClient> silent;
  for (int i = 0; i < 200; ++i) silent.push_back(connect());
  RawClient service = connect();
  ASSERT_EQ(service.get(control::GetSonivoDrvGeneration), 8u);
  for (int i = 0; i < 200; ++i) silent.push_back(connect());
  EXPECT_EQ(service.get(control::GetSonivoDrvGeneration), 8u);
}

TEST_F(ServerTest, ConnectionsOfAProcessBeyondItsLimitAreClosedUntilAnotherGoes) {
  start(::geteuid(), {.clients = 3, .of_process = 2});
  RawClient first = connect();
  RawClient second = connect();
  ASSERT_EQ(second.get(control::GetSonivoDrvGeneration), 8u);
  EXPECT_TRUE(connect().ends());
  EXPECT_EQ(first.get(control::GetSonivoDrvGeneration), 8u);
  second.close();
  for (int tries = 0; tries < 1000; ++tries) {
    RawClient next = connect();
    if (next.send(1, control::GetFunction, {}, 4) && next.receive()) return;
  }
  FAIL() << "no place became free";
}

TEST_F(ServerTest, AClientThatDoesNotReadIsClosedAndNobodyElseWaits) {
  start();
  RawClient reader = connect();
  RawClient deaf = connect();
  ASSERT_TRUE(deaf.ask_for_event(0xFFFFFFFF));
  bool sent = true;
  for (std::uint32_t id = 0; sent && id < 200'000; ++id) {
    sent = deaf.send(id, control::GetRenderEndpointId, {}, control::kTextBytes);
    if (id % 512 == 0) {
      ASSERT_EQ(reader.get(control::GetSonivoDrvGeneration), 8u);
    }
  }
  EXPECT_FALSE(sent);
  EXPECT_TRUE(deaf.ends());
  EXPECT_TRUE(serves());
}

TEST_F(ServerTest, AFloodOfOneClientLetsOthersHaveTheirTurn) {
  start();
  std::atomic<bool> enough = false;
  std::thread flood([&] {
    RawClient client = connect();
    while (!enough) {
      if (!client.send(1, control::GetFunction, {}, 4) || !client.receive()) client = connect();
    }
  });
  RawClient client = connect();
  for (std::uint32_t i = 0; i < 500; ++i) {
    ASSERT_EQ(client.get(control::GetSonivoDrvGeneration), 8u);
  }
  enough = true;
  flood.join();
}

// Both have sent all before the driver starts, so that it finds either in the state that is worst for the other.
TEST_F(ServerTest, OneWhoSentMuchAtOnceIsNotServedWhollyBeforeOthers) {
  constexpr std::uint32_t kMany = 200;
  RawClient flood = connect();
  for (std::uint32_t id = 1; id <= kMany; ++id) {
    ASSERT_TRUE(flood.send(id, control::SetAispeechenhanceRegistrationMTG, bytes_of(id)));
  }
  RawClient other = connect();
  ASSERT_TRUE(other.send(1, control::GetAispeechenhanceRegistrationMTG, {}, 4));
  start();
  const auto reply = other.receive();
  ASSERT_TRUE(reply);
  const std::uint32_t served = test::number_in(reply->output);
  EXPECT_GT(served, 0u);
  EXPECT_LT(served, kMany);
}

TEST_F(ServerTest, AMillionFramesOfOneWhoReadsNothingHoldNobodyUp) {
  start();
  constexpr std::uint32_t kFrames = 1'000'000;
  RawClient flood = connect();
  const Bytes unanswered = test::frame_of(control::cancel_of(1));
  auto sent = std::async(std::launch::async, [&] {
    std::uint32_t count = 0;
    while (count < kFrames && flood.send(unanswered)) ++count;
    return count;
  });
  RawClient client = connect();
  int round_trips = 0;
  do {
    ASSERT_EQ(client.get(control::GetSonivoDrvGeneration), 8u);
    ++round_trips;
  } while (sent.wait_for(std::chrono::seconds(0)) != std::future_status::ready);
  EXPECT_EQ(sent.get(), kFrames);
  EXPECT_GT(round_trips, 100);
  EXPECT_EQ(flood.get(control::GetSonivoDrvGeneration), 8u);
}

TEST_F(ServerTest, ClientsThatComeAndGoInTheMiddleOfRequestsLeaveNothing) {
  start(::geteuid(), {.clients = 8});
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        RawClient client = connect();
        client.ask_for_event(1);
        client.ask_for_event(2, control::NSV_OBSERVE_EVENTS);
        client.send(3, control::NSV_SEND_EVENT, bytes_of(control::kMonitorWake));
        if (i % 3 == 0) client.receive();
      }
    });
  }
  for (std::thread& each : threads) each.join();
  std::vector<RawClient> clients;
  for (int tries = 0; clients.size() < 8 && tries < 1000; ++tries) {
    RawClient client = connect();
    if (client.send(1, control::GetFunction, {}, 4) && client.receive()) clients.push_back(std::move(client));
  }
  EXPECT_EQ(clients.size(), 8u);
}

TEST_F(ServerTest, AnEventReachesServiceAndOnlookersAndTheCancelRequestTheServiceAlone) {
  start();
  RawClient service = connect();
  RawClient onlooker = connect();
  ASSERT_TRUE(service.ask_for_event(1));
  ASSERT_TRUE(onlooker.ask_for_event(2, control::NSV_OBSERVE_EVENTS));
  ASSERT_TRUE(onlooker.send(3, control::GetFunction, {}, 4));
  ASSERT_EQ(onlooker.receive().value().head.id, 3u);  // all three have arrived
  ASSERT_TRUE(service.send(4, control::NSV_SERVICE_EVENT_CANCEL));
  const auto aborted = service.receive();
  ASSERT_TRUE(aborted);
  EXPECT_EQ(aborted->head.id, 1u);
  EXPECT_EQ(aborted->head.error, error::kOperationAborted);
  EXPECT_EQ(service.receive().value().head.id, 4u);
  ASSERT_TRUE(service.ask_for_event(5));
  ASSERT_EQ(connect().ask(control::SetCaptureEndpointId, test::wire_text(u"mic")).value().head.error, error::kNone);
  EXPECT_EQ(test::number_in(onlooker.receive().value().output), control::NSVDRV_CMD_DEV_MIC);
  EXPECT_EQ(test::number_in(service.receive().value().output), control::NSVDRV_CMD_DEV_MIC);
}

TEST_F(ServerTest, TheEndIsAnnouncedAndClosesEveryConnection) {
  start();
  RawClient service = connect();
  RawClient idle = connect();
  ASSERT_EQ(idle.get(control::GetSonivoDrvGeneration), 8u);
  ASSERT_EQ(service.get(control::GetSonivoDrvGeneration), 8u);
  ASSERT_TRUE(service.ask_for_event(1));
  ASSERT_TRUE(service.send(2, control::GetFunction, {}, 4));
  ASSERT_EQ(service.receive().value().head.id, 2u);
  stop();
  const auto exit = service.receive();
  ASSERT_TRUE(exit);
  EXPECT_EQ(test::number_in(exit->output), control::NSVPLAY_CMD_EXIT);
  EXPECT_TRUE(service.ends());
  EXPECT_TRUE(idle.ends());
}

TEST_F(ServerTest, TheEndWaitsForAClientThatReadsLate) {
  start(::geteuid(), {.queue = {.replies = 10'000, .bytes = std::size_t{1} << 24}, .leave = std::chrono::seconds(30)});
  RawClient late = connect();
  constexpr std::uint32_t kUnread = 2000;
  ASSERT_TRUE(late.ask_for_event(kUnread));
  for (std::uint32_t id = 0; id < kUnread; ++id) {
    ASSERT_TRUE(late.send(id, control::GetRenderEndpointId, {}, control::kTextBytes));
  }
  ASSERT_TRUE(late.send(kUnread + 1, control::SetFunction, bytes_of(77u)));
  while (connect().get(control::GetFunction) != 77) {
  }
  auto stopping = std::async(std::launch::async, [this] { stop(); });
  std::optional<test::ReceivedReply> reply;
  do {
    reply = late.receive();
    ASSERT_TRUE(reply);
  } while (reply->head.id != kUnread);
  EXPECT_EQ(test::number_in(reply->output), control::NSVPLAY_CMD_EXIT);
  EXPECT_TRUE(late.ends());
  stopping.get();
}

/// How many packets of this size wait in a socket whose other end reads nothing.
std::uint32_t packets_in_socket(std::size_t bytes) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
  const Descriptor writer(ends[0]);
  const Descriptor reader(ends[1]);
  const Bytes packet(bytes);
  std::uint32_t count = 0;
  while (::send(writer.number(), packet.data(), packet.size(), MSG_DONTWAIT) > 0) ++count;
  return count;
}

/// What this process, the driver's thread among it, has had of the processors.
std::chrono::nanoseconds processor_time() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST_F(ServerTest, OnceALateReaderHasReadAllNothingIsLeftToDo) {
  constexpr std::uint32_t kQueued = 4;
  start(::geteuid(), {.queue = {.replies = kQueued}});
  const std::uint32_t all = packets_in_socket(sizeof(control::ReplyHead) + control::kTextBytes) + kQueued;
  RawClient late = connect();
  for (std::uint32_t id = 0; id < all; ++id) {
    ASSERT_TRUE(late.send(id, control::GetRenderEndpointId, {}, control::kTextBytes));
  }
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(serves());  // by then all of them are answered
  for (std::uint32_t id = 0; id < all; ++id) ASSERT_TRUE(late.receive()) << id;
  ASSERT_TRUE(serves());
  const auto before = processor_time();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(processor_time() - before, std::chrono::milliseconds(50));
}

TEST_F(ServerTest, TheEndIsAnnouncedToOneWhoseQueueIsFull) {
  constexpr std::uint32_t kQueued = 4;
  constexpr std::uint32_t kEvent = 1'000'000;
  start(::geteuid(), {.queue = {.replies = kQueued}, .leave = std::chrono::seconds(30)});
  const std::uint32_t in_socket = packets_in_socket(sizeof(control::ReplyHead) + control::kTextBytes);
  RawClient onlooker = connect();
  ASSERT_TRUE(onlooker.ask_for_event(1, control::NSV_OBSERVE_EVENTS));
  RawClient late = connect();
  ASSERT_TRUE(late.ask_for_event(kEvent));
  for (std::uint32_t id = 0; id < in_socket + kQueued; ++id) {
    ASSERT_TRUE(late.send(id, control::GetRenderEndpointId, {}, control::kTextBytes));
  }
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(serves());  // by then all of them are answered
  auto stopping = std::async(std::launch::async, [this] { stop(); });
  ASSERT_TRUE(onlooker.receive());  // who is told after the service
  for (std::uint32_t id = 0; id < in_socket + kQueued; ++id) {
    const auto reply = late.receive();
    ASSERT_TRUE(reply) << id;
    EXPECT_EQ(reply->head.id, id);
  }
  const auto exit = late.receive();
  ASSERT_TRUE(exit);
  EXPECT_EQ(exit->head.id, kEvent);
  EXPECT_EQ(test::number_in(exit->output), control::NSVPLAY_CMD_EXIT);
  stopping.get();
}

TEST_F(ServerTest, TheEndWaitsForNobodyBeyondItsTime) {
  start(::geteuid(),
        {.queue = {.replies = 10'000, .bytes = std::size_t{1} << 24}, .leave = std::chrono::milliseconds(20)});
  RawClient deaf = connect();
  for (std::uint32_t id = 0; id < 2000; ++id) {
    ASSERT_TRUE(deaf.send(id, control::GetRenderEndpointId, {}, control::kTextBytes));
  }
  ASSERT_TRUE(deaf.send(2000, control::SetFunction, bytes_of(77u)));
  while (connect().get(control::GetFunction) != 77) {
  }
  const auto start = std::chrono::steady_clock::now();
  stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_TRUE(deaf.ends());
}

TEST_F(ServerTest, ItsHeartBeatsWhetherItHasMuchToDoOrNothing) {
  std::atomic<int> beats = 0;
  start(::geteuid(), {}, Heartbeat{std::chrono::milliseconds(1), [&beats] { ++beats; }});
  while (beats < 5) std::this_thread::yield();
  RawClient client = connect();
  const int before = beats;
  while (beats < before + 5) ASSERT_EQ(client.get(control::GetSonivoDrvGeneration), 8u);
  stop();
}

TEST_F(ServerTest, OnlyTheServiceIsBelievedWhatItTellsOfItself) {
  const pid_t stranger = ::fork();  // before there are threads
  if (stranger == 0) {
    const auto reply = RawClient(path_).ask(control::NSV_PUBLISH_REPORT, Bytes(3, std::byte{'y'}));
    ::_exit(reply && reply->head.error == error::kAccessDenied ? 0 : 1);
  }
  start();
  RawClient service = connect();
  const Bytes report(2, std::byte{'x'});
  EXPECT_EQ(service.ask(control::NSV_PUBLISH_REPORT, report).value().head.error, error::kAccessDenied);
  ASSERT_EQ(service.ask(control::NSV_SERVICE_EVENT_CANCEL).value().head.error, error::kNone);
  EXPECT_EQ(connect().ask(control::NSV_PUBLISH_REPORT, report).value().head.error, error::kNone);
  int status = -1;
  ASSERT_EQ(::waitpid(stranger, &status, 0), stranger);
  EXPECT_EQ(status, 0);
}

TEST_F(ServerTest, AnotherUserIsClosedAtOnce) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can be another user";
  start();
  ::chmod(home_.path().c_str(), 0755);
  ::chmod(path_.c_str(), 0666);
  std::optional<RawClient> stranger;
  std::thread([&] {
    constexpr uid_t kNobody = 65534;
    // Of this thread alone, unlike setresuid().
    ASSERT_EQ(::syscall(SYS_setresuid, kNobody, kNobody, kNobody), 0);
    stranger.emplace(path_);
  }).join();
  ASSERT_TRUE(stranger->is_connected());
  EXPECT_TRUE(stranger->ends());
  EXPECT_TRUE(serves());
}

TEST_F(ServerTest, OneWhoIsNotTheOwnerIsClosedAtOnce) {
  if (::geteuid() == 0) GTEST_SKIP() << "root is served by everybody's driver";
  start(::geteuid() + 1);
  EXPECT_TRUE(connect().ends());
  EXPECT_FALSE(connect().ask(control::GetSonivoDrvGeneration, {}, 4));
}

TEST_F(ServerTest, RootIsServedWhoeverOwnsTheDriver) {
  if (::geteuid() != 0) GTEST_SKIP() << "for root";
  start(65534);
  EXPECT_TRUE(serves());
}

}  // namespace
}  // namespace sonivo::driver
