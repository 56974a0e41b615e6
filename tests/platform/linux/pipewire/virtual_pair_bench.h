#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "counting_audio.h"
#include "pipewire_bench.h"
#include "platform/linux/pipewire/virtual_pair.h"

namespace sonivo::test {

inline constexpr char kMicPath[] = "pipewire\\VADrv\\WaveMicIn";
inline constexpr char kSpeakerPath[] = "pipewire\\VADrv\\WaveSpeaker";
inline constexpr std::uint32_t kWait = 0x80000000;
inline constexpr std::uint32_t kMove = 0x80000004;
inline constexpr std::uint32_t kTrim = 0x80000008;
inline constexpr std::size_t kTransferFrames = 480;

/// A bus with nothing on it.
class EmptyBus final : public DeviceBus {
 public:
  std::vector<DeviceInterface> interfaces(const Guid&) override { return {{"other", "other"}}; }
  std::shared_ptr<Device> open(const std::string&, Sharing, Completion, Error& why) override {
    why = error::kFileNotFound;
    return nullptr;
  }
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast&, WindowHandle) override { return nullptr; }
  std::unique_ptr<Registration> notify_actions(const Device&, DeviceActionCallback) override { return nullptr; }
};

class VirtualPairTest : public PipeWireTest {
 protected:
  void SetUp() override {
    PipeWireTest::SetUp();
    if (!half_) return;
    pair_ = std::make_unique<pipewire::VirtualPair>(half_->connection, half_->graph, half_->pacer, others_);
    ASSERT_TRUE(comes_true([&] {
      return endpoint(DataFlow::capture, kVirtualMic) != nullptr &&
             endpoint(DataFlow::render, kVirtualSpeaker) != nullptr;
    }));
  }
  std::shared_ptr<Device> open(const char* path) {
    Error why = error::kNone;
    auto device = pair_->open(path, Sharing::exclusive, Completion::overlapped, why);
    EXPECT_NE(device, nullptr) << why;
    return device;
  }
  /// Error of a wait for a format, and the format.
  static Error wait_stream(Device& device, WAVEFORMATEXTENSIBLE& format) {
    std::uint32_t transferred = 0;
    return device.control_now(kWait, {}, std::as_writable_bytes(std::span(&format, 1)), transferred);
  }

  /// Four transfers that go round, as the relay keeps them.
  class Transfers {
   public:
    Transfers(Device& device, bool writes, std::size_t frames_of_each = kTransferFrames)
        : device_(device), writes_(writes), frames_of_each_(frames_of_each) {
      for (std::size_t i = 0; i < requests_.size(); ++i) {
        events_[i] = linux::DescriptorEvents().create(Reset::manual);
        requests_[i].hEvent = events_[i].get();
        memory_[i].resize(frames_of_each * 6);
        start(i);
      }
    }
    ~Transfers() {
      for (Overlapped& request : requests_) device_.cancel(request);
    }
    /// Moves so many counting frames, or as many as go, and returns what was moved.
    std::vector<StereoFrame> move(std::size_t count) {
      std::vector<StereoFrame> moved;
      while (moved.size() < count) {
        std::uint32_t transferred = 0;
        if (outcome == error::kNone) outcome = device_.result(requests_[due_], transferred, true);
        if (outcome != error::kNone) break;
        const auto frames = narrowed(memory_[due_]);
        moved.insert(moved.end(), frames.begin(), frames.end());
        start(due_);
        due_ = (due_ + 1) % requests_.size();
      }
      return moved;
    }
    /// How many have ended since they went last.
    std::size_t ended() {
      std::uint32_t transferred = 0;
      return static_cast<std::size_t>(std::count_if(requests_.begin(), requests_.end(), [&](Overlapped& request) {
        return device_.result(request, transferred, false) == error::kNone;
      }));
    }
    Error outcome = error::kNone;

   private:
    void start(std::size_t i) {
      if (writes_) {
        std::vector<StereoFrame> frames(frames_of_each_);
        for (StereoFrame& frame : frames) frame = counting_frame(written_++);
        memory_[i] = widened(frames);
      }
      const std::span<std::byte> memory = memory_[i];
      const std::span<std::byte> none;
      const Error started = device_.control(kMove, writes_ ? memory : none, writes_ ? none : memory, requests_[i]);
      if (started != error::kIoPending) outcome = started;
    }
    Device& device_;
    const bool writes_;
    const std::size_t frames_of_each_;
    std::uint64_t written_ = 0;
    std::size_t due_ = 0;
    std::array<Overlapped, 4> requests_;
    std::array<std::unique_ptr<Event>, 4> events_;
    std::array<std::vector<std::byte>, 4> memory_;
  };

  EmptyBus others_;
  std::unique_ptr<pipewire::VirtualPair> pair_;
};

}  // namespace sonivo::test
