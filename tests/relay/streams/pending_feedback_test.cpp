// Feedback with a driver that takes its time: a value stays outstanding until the next one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "relay/io_buffer.h"
#include "stream_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;

/// The devices of a machine, whose feedback requests stay pending until they are cancelled.
class SlowFeedbackBus final : public DeviceBus {
 public:
  explicit SlowFeedbackBus(DeviceBus& bus) : bus_(bus) {}

  /// What became of the feedback requests: "sent VALUE", "cancelled VALUE".
  const std::vector<std::string>& happened() const { return happened_; }

  std::vector<DeviceInterface> interfaces(const Guid& category) override { return bus_.interfaces(category); }
  std::shared_ptr<Device> open(const std::string& path, Sharing sharing, Completion completion, Error& why) override {
    auto device = bus_.open(path, sharing, completion, why);
    return device ? std::make_shared<SlowDevice>(std::move(device), happened_) : nullptr;
  }
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) override {
    const auto* device = dynamic_cast<const SlowDevice*>(broadcast.handle);
    return bus_.notify_removal({broadcast.devicetype, device->real()}, window);
  }
  std::unique_ptr<Registration> notify_actions(const Device&, DeviceActionCallback) override { return nullptr; }

 private:
  class SlowDevice final : public Device {
   public:
    SlowDevice(std::shared_ptr<Device> real, std::vector<std::string>& happened)
        : real_(std::move(real)), happened_(happened) {}
    const Device* real() const { return real_.get(); }

    Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                  Overlapped& request) override {
      if (code != kControlFeedback) return real_->control(code, input, output, request);
      std::int32_t value = 0;
      std::memcpy(&value, input.data(), sizeof value);
      note("sent", value);
      pending_ = Pending{&request, value};
      request.pending = true;
      return error::kIoPending;
    }
    Error result(Overlapped& request, std::uint32_t& transferred, bool wait) override {
      return real_->result(request, transferred, wait);
    }
    void cancel(Overlapped& request) override {
      if (!pending_ || pending_->request != &request) return real_->cancel(request);
      note("cancelled", pending_->value);
      request.pending = false;
      pending_.reset();
    }
    Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                      std::uint32_t& transferred) override {
      return real_->control_now(code, input, output, transferred);
    }
    void close() override { real_->close(); }

   private:
    struct Pending {
      Overlapped* request;
      std::int32_t value;
    };
    void note(const char* what, std::int32_t value) {
      happened_.push_back(std::string(what) + " " + std::to_string(value));
    }

    std::shared_ptr<Device> real_;
    std::vector<std::string>& happened_;
    std::optional<Pending> pending_;
  };

  DeviceBus& bus_;
  std::vector<std::string> happened_;
};

/// A stream over such a bus, whose virtual clock never learns of the feedback.
class PendingFeedback : public ::testing::TestWithParam<DataFlow> {
 protected:
  PendingFeedback() {
    const Machine real = bench.machine.seams();
    const Machine slow{.clock = real.clock,
                       .events = real.events,
                       .threads = real.threads,
                       .bus = bus,
                       .endpoints = real.endpoints,
                       .fx_properties = real.fx_properties,
                       .session = real.session,
                       .power = real.power,
                       .desktop = real.desktop,
                       .processes = real.processes,
                       .folders = real.folders};
    if (GetParam() == DataFlow::capture) {
      bench.stream = std::make_unique<CCaptureInterface>(slow, bench.chains.factory());
    } else {
      bench.stream = std::make_unique<CRenderInterface>(slow);
    }
    bench.start_streaming();
  }
  ~PendingFeedback() override { bench.stream.reset(); }

  StreamBench bench{GetParam()};
  SlowFeedbackBus bus{bench.machine.seams().bus};
  const std::string first = GetParam() == DataFlow::capture ? "1" : "-1";
};
INSTANTIATE_TEST_SUITE_P(Of, PendingFeedback, both_directions(), direction_name);

TEST_P(PendingFeedback, StaysOutstandingWhileTheStreamRuns) {
  bench.machine.run_for(900);
  EXPECT_THAT(bus.happened(), ElementsAre("sent " + first));
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
}

TEST_P(PendingFeedback, IsSupersededByTheNextValue) {
  bench.machine.run_for(1100);
  EXPECT_THAT(bus.happened(), ElementsAre("sent " + first, "cancelled " + first, "sent 0"));
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
}

TEST_P(PendingFeedback, IsCancelledAtTheLatestWithTheStream) {
  bench.machine.run_for(900);
  bench.stream.reset();
  EXPECT_THAT(bus.happened(), ElementsAre("sent " + first, "cancelled " + first));
}

}  // namespace
}  // namespace sonivo::test
