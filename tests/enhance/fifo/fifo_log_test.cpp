#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "enhance/fifo_input.h"
#include "enhance/fifo_output.h"
#include "log_capture.h"

namespace sonivo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Pair;
using testing::StartsWith;

constexpr LogLevel kOperation = LogLevel::info3;

TEST(FifoInputLog, NamesEachOperationAndItsResult) {
  LogCapture log;
  std::optional<FifoInput> fifo(std::in_place);
  const std::string me = "[" + pointer(&*fifo) + "]";
  const auto expect = [&](const std::string& entry, const std::string& result) {
    EXPECT_THAT(log.take(), ElementsAre(Pair(kOperation, entry), Pair(kOperation, result)));
  };
  ASSERT_TRUE(fifo->BuffInit(4800, 44100, 5));
  expect("FifoInput::BuffInit: " + me + ", size=4800, rate=44100, chunk=5\n",
         "FifoInput::BuffInit: " + me + ", return (true)\n");
  fifo->BuffClear();
  expect("FifoInput::BuffClear: " + me + "\n", "FifoInput::BuffClear: " + me + ", return\n");
  fifo->ChangeRate(48000);
  expect("FifoInput::ChangeRate: " + me + ", rate=48000\n", "FifoInput::ChangeRate: " + me + ", return\n");
  fifo->Start();
  expect("FifoInput::Start: " + me + "\n", "FifoInput::Start: " + me + ", return\n");
  const std::vector<float> x(5000);
  fifo->PushData(x.data(), 490);
  expect("FifoInput::PushData: " + me + ", size=490\n", "FifoInput::PushData: " + me + ", return (size=490)\n");
  fifo->PushData(x.data(), 5000);
  expect("FifoInput::PushData: " + me + ", size=5000\n", "FifoInput::PushData: " + me + ", return (size=0)\n");
  fifo->GetDataLength();
  expect("FifoInput::GetDataLength: " + me + "\n", "FifoInput::GetDataLength: " + me + ", return (data_leng=490)\n");
  std::vector<short> out;
  fifo->data(out, 160, true);
  expect("FifoInput::data: " + me + ", require=160, trancate=1\n", "FifoInput::data: " + me + ", return (160)\n");
  fifo->End();
  expect("FifoInput::End: " + me + "\n", "FifoInput::End: " + me + ", return\n");
  fifo->end();
  expect("FifoInput::end: " + me + "\n", "FifoInput::end: " + me + ", return (1)\n");
  fifo->data(out, 800, false);
  expect("FifoInput::data: " + me + ", require=800, trancate=0\n", "FifoInput::data: " + me + ", return (800)\n");
  fifo->data(out, 480, false);
  log.take();
  fifo->data(out, 80, false);
  expect("FifoInput::data: " + me + ", require=80, trancate=0\n",
         "FifoInput::data: (9): " + me + ", data_end=1, run=1, data_leng=10, return (0)\n");
}

TEST(FifoInputLog, TellsWhatIsFreedAtTheEnd) {
  LogCapture log;
  std::optional<FifoInput> fifo(std::in_place);
  const std::string me = pointer(&*fifo);
  fifo.reset();
  EXPECT_THAT(log.take(), ElementsAre(Pair(kOperation, "FifoInput::~FifoInput(): [" + me + "]\n"),
                                      Pair(kOperation, "FifoInput:: free(" + pointer(nullptr) + ")\n")));
}

TEST(FifoInputLog, TellsTheRingThatIsFreed) {
  LogCapture log;
  std::optional<FifoInput> fifo(std::in_place);
  ASSERT_TRUE(fifo->BuffInit(4800, 48000, 5));
  log.take();
  fifo.reset();
  EXPECT_THAT(log.take(),
              ElementsAre(testing::_, Pair(kOperation, testing::MatchesRegex("FifoInput:: free\\(0x[0-9a-f]+\\)\n"))));
}

TEST(FifoInputLog, TellsAnotherRate) {
  LogCapture log;
  FifoInput fifo;
  EXPECT_FALSE(fifo.BuffInit(4800, 16000, 5));
  EXPECT_THAT(log.take(), Contains(Pair(LogLevel::error, "FifoInput::BuffInit: rate=16000, return (false)\n")));
}

TEST(FifoOutputLog, NamesEachOperationAndItsResult) {
  LogCapture log;
  std::optional<FifoOutput> fifo(std::in_place);
  const std::string me = "[" + pointer(&*fifo) + "]";
  const auto expect = [&](const std::string& entry, const std::string& result) {
    EXPECT_THAT(log.take(), ElementsAre(Pair(kOperation, entry), Pair(kOperation, result)));
  };
  ASSERT_TRUE(fifo->BuffInit(480, 960, 44100));
  expect("FifoOutput::BuffInit: " + me + ", size=480, exec_leng=960, rate=44100\n",
         "FifoOutput::BuffInit: " + me + ", return (true)\n");
  fifo->ChangeRate(48000);
  expect("FifoOutput::ChangeRate: " + me + ", rate=48000\n", "FifoOutput::ChangeRate: " + me + ", return\n");
  std::vector<float> out(2000);
  fifo->PopData(out.data(), 500);
  expect("FifoOutput::PopData: " + me + ", size=500\n", "FifoOutput::PopData: " + me + ", return (size=500)\n");
  fifo->PopData(out.data(), 2000);
  expect("FifoOutput::PopData: " + me + ", size=2000\n", "FifoOutput::PopData: " + me + ", return (size=0)\n");
  const std::vector<short> x(320);
  fifo->PushData(x.data(), 160);
  expect("FifoOutput::PushData: " + me + ", size=160\n", "FifoOutput::PushData: " + me + ", return (size=160)\n");
  fifo->PushData(x.data(), 320);
  expect("FifoOutput::PushData: " + me + ", size=320\n", "FifoOutput::PushData: " + me + ", return (size=0)\n");
  fifo->BuffClear();
  expect("FifoOutput::BuffClear: " + me + "\n", "FifoOutput::BuffClear: " + me + ", return\n");
  EXPECT_FALSE(fifo->BuffInit(480, 960, 8000));
  EXPECT_THAT(log.take(), Contains(Pair(LogLevel::error, "FifoOutput::BuffInit: rate=8000, return (false)\n")));
  EXPECT_FALSE(fifo->BuffInit(0xFFFFFFFF, 1, 48000));
  EXPECT_THAT(log.take(), Contains(Pair(LogLevel::error, "FifoOutput::BuffInit: ring_buff=NULL, return (false)\n")));
  fifo.reset();
  EXPECT_THAT(log.take(), ElementsAre(Pair(kOperation, "FifoOutput::~FifoOutput(): " + me + "\n"),
                                      Pair(kOperation, "FifoOutput:: free(" + pointer(nullptr) + ")\n")));
}

}  // namespace
}  // namespace sonivo::test
