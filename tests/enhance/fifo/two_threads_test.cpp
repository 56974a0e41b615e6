// Both FIFOs between an audio thread and a model thread.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "enhance/fifo_input.h"
#include "enhance/fifo_output.h"
#include "log_capture.h"
#include "signals.h"

namespace sonivo::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Ends a test of chance on a machine that is busy with other things, whatever it has shown until then.
class Patience {
 public:
  bool lasts() const { return Clock::now() < end_; }

 private:
  const Clock::time_point end_ = Clock::now() + 3s;
};

/// Steps until it says that it is done; a refused step is tried again.
void until_done(const std::function<bool()>& step) {
  while (!step()) std::this_thread::yield();
}

TEST(TwoThreads, PassTheSameSamplesDownAsOne) {
  const std::vector<float> x = noise(96000, 0.5f);
  FifoInput one;
  ASSERT_TRUE(one.BuffInit(96000, 48000, 5));
  ASSERT_EQ(one.PushData(x.data(), 96000), 96000u);
  std::vector<short> expected;
  one.data(expected, 32000, false);

  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(3360, 48000, 5));
  fifo.Start();
  std::thread audio([&] {
    for (std::size_t at = 0; at < x.size(); at += 480) {
      until_done([&] { return fifo.PushData(x.data() + at, 480) == 480; });
    }
    fifo.End();
  });
  std::vector<short> out;
  while (fifo.data(out, 800, false) != 0) {
  }
  audio.join();
  EXPECT_EQ(out, expected);
}

TEST(TwoThreads, PassTheSameSamplesUpAsOne) {
  const std::vector<short> x = noise_of_16_bits(32000);
  FifoOutput one;
  ASSERT_TRUE(one.BuffInit(96000, 0, 48000));
  std::vector<float> expected(96000);
  one.PopData(expected.data(), 96000);
  ASSERT_EQ(one.PushData(x.data(), 32000), 32000u);
  ASSERT_EQ(one.PopData(expected.data(), 96000), 96000u);

  FifoOutput fifo;
  ASSERT_TRUE(fifo.BuffInit(3360, 2400, 48000));
  std::thread model([&] {
    for (std::size_t at = 0; at < x.size(); at += 800) {
      until_done([&] { return fifo.PushData(x.data() + at, 800) == 800; });
    }
  });
  std::vector<float> out(5760 + 96000);
  for (std::size_t at = 0; at < out.size(); at += 480) {
    until_done([&] { return fifo.PopData(out.data() + at, 480) == 480; });
  }
  model.join();
  EXPECT_EQ(std::vector<float>(out.begin() + 5760, out.end()), expected);
}

/// Clears come at any time of a request: what is read is always what a new FIFO would give, frames from before and from
/// behind a clear never mix.
TEST(TwoThreads, ServeNoRequestAcrossAClear) {
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 48000, 5));
  fifo.Start();
  std::vector<float> step(2400, 0.25f);
  FifoInput fresh;
  ASSERT_TRUE(fresh.BuffInit(4800, 48000, 5));
  ASSERT_EQ(fresh.PushData(step.data(), 2400), 2400u);
  std::vector<short> first_chunk;
  fresh.data(first_chunk, 800, false);

  std::atomic<bool> stop = false;
  std::thread audio([&] {
    for (int pause_us = 0; !stop; pause_us = (pause_us + 37) % 400) {
      fifo.BuffClear();
      fifo.PushData(step.data(), 2400);
      const auto until = Clock::now() + std::chrono::microseconds(pause_us);
      while (Clock::now() < until) std::this_thread::yield();
    }
    fifo.End();
  });
  int chunks = 0;
  const Patience patience;
  for (std::vector<short> out; chunks < 300 && patience.lasts(); out.clear()) {
    const int answer = fifo.data(out, 800, false);
    ASSERT_EQ(answer, 800);
    ASSERT_EQ(out, first_chunk) << "chunk " << chunks;
    ++chunks;
  }
  stop = true;
  audio.join();
}

TEST(TwoThreads, LeaveNothingOfAPushBehindAClear) {
  FifoOutput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 0, 48000));
  std::atomic<bool> stop = false;
  const std::vector<short> loud(800, 20000);
  std::thread model([&] {
    while (!stop) fifo.PushData(loud.data(), 800);
  });
  std::vector<float> out(4800);
  const Patience patience;
  for (int round = 0; round < 300 && patience.lasts(); ++round) {
    ASSERT_EQ(fifo.PopData(out.data(), 4800), 4800u);
    std::this_thread::yield();
    fifo.BuffClear();
    ASSERT_EQ(fifo.PopData(out.data(), 2400), 2400u);
    EXPECT_EQ(std::count(out.begin(), out.begin() + 2400, 0.0f), 2400) << "round " << round;
    fifo.BuffClear();
  }
  stop = true;
  model.join();
}

TEST(TwoThreads, OperateAllAtOnce) {
  FifoInput in;
  FifoOutput out;
  ASSERT_TRUE(in.BuffInit(3360, 48000, 5));
  ASSERT_TRUE(out.BuffInit(3360, 2400, 48000));
  std::atomic<bool> stop = false;
  std::thread audio([&] {
    std::vector<float> block(480);
    while (!stop) {
      in.PushData(block.data(), 480);
      out.PopData(block.data(), 480);
    }
  });
  std::thread control([&] {
    for (int round = 0; !stop; ++round) {
      in.BuffClear();
      out.BuffClear();
      EXPECT_LE(in.GetDataLength(), 3360u);
      in.ChangeRate(round % 2 == 0 ? 44100 : 48000);
      out.ChangeRate(round % 2 == 0 ? 44100 : 48000);
      if (round % 8 == 0) {
        in.BuffInit(3360, 48000, 5);
        out.BuffInit(3360, 2400, 48000);
      }
      std::this_thread::sleep_for(300us);
    }
    in.End();
  });
  std::vector<short> chunk;
  const Patience patience;
  for (int round = 0; round < 100 && patience.lasts(); ++round) {
    chunk.clear();
    const int answer = in.data(chunk, 800, false);
    ASSERT_EQ(answer, 800);
    ASSERT_EQ(chunk.size(), 800u);
    out.PushData(chunk.data(), 800);
  }
  stop = true;
  audio.join();
  control.join();
}

/// Time from the push that completes a request to the answer of the sleeping reader, several times over; in ms.
std::vector<double> wake_ups(int rounds) {
  FifoInput fifo;
  EXPECT_TRUE(fifo.BuffInit(4800, 48000, 5));
  fifo.Start();
  std::vector<Clock::time_point> answered(static_cast<std::size_t>(rounds));
  std::atomic<int> asked = 0;
  std::thread model([&] {
    std::vector<short> out;
    out.reserve(800);
    for (Clock::time_point& time : answered) {
      out.clear();
      ++asked;
      fifo.data(out, 800, false);
      time = Clock::now();
    }
  });
  std::vector<double> ms;
  const std::vector<float> x(480);
  std::vector<Clock::time_point> pushed;
  for (int round = 0; round < rounds; ++round) {
    until_done([&] { return asked == round + 1; });
    std::this_thread::sleep_for(2ms);  // the reader falls asleep
    for (int block = 0; block < 4; ++block) fifo.PushData(x.data(), 480);
    std::this_thread::sleep_for(200us);
    pushed.push_back(Clock::now());
    fifo.PushData(x.data(), 480);
  }
  model.join();
  for (std::size_t i = 0; i < pushed.size(); ++i) {
    ms.push_back(std::chrono::duration<double, std::milli>(answered[i] - pushed[i]).count());
  }
  return ms;
}

/// The median, so that a machine that is busy with other things is no failure; the worst is told.
TEST(TwoThreads, WakeTheReaderWithinTwoMilliseconds) {
  std::vector<double> ms = wake_ups(40);
  std::sort(ms.begin(), ms.end());
  RecordProperty("worst_us", static_cast<int>(1000 * ms.back()));
  RecordProperty("median_us", static_cast<int>(1000 * ms[ms.size() / 2]));
  EXPECT_LT(ms[ms.size() / 2], 2.0);
  EXPECT_GE(ms.front(), 0.0) << "answered before it could";
}

TEST(TwoThreads, WakeTheReaderAtTheEnd) {
  LogCapture log;
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 48000, 5));
  fifo.Start();
  int answer = -1;
  std::vector<short> out;
  std::thread model([&] { answer = fifo.data(out, 800, false); });
  const std::string waiting = "FifoInput::data: [" + pointer(&fifo) + "], data_leng=0, wait\n";
  until_done([&] {
    const auto messages = log.take();
    return std::count(messages.begin(), messages.end(), LogCapture::Message{LogLevel::debug, waiting}) == 1;
  });
  fifo.End();
  model.join();
  EXPECT_EQ(answer, 800) << "the silence of an input that never ran";
  EXPECT_EQ(out, std::vector<short>(800, 0));
}

TEST(TwoThreads, WakeTheReaderWhenItsRequestNeedsLess) {
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 48000, 5));
  fifo.Start();
  const std::vector<float> x(2205);
  ASSERT_EQ(fifo.PushData(x.data(), 2205), 2205u);
  std::vector<short> out;
  std::thread model([&] { fifo.data(out, 800, false); });
  std::this_thread::sleep_for(2ms);
  fifo.ChangeRate(44100);
  model.join();
  EXPECT_EQ(out.size(), 800u);
  EXPECT_EQ(fifo.GetDataLength(), 0u);
}

}  // namespace
}  // namespace sonivo::test
