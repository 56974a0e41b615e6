#include "platform/linux/pipewire/audio_client.h"

#include <utility>

#include "platform/client_status.h"
#include "platform/linux/pipewire/client_stream.h"

namespace sonivo::pipewire {
namespace {

constexpr std::uint32_t kUsualRateHz = 48000;
constexpr std::uint32_t kPlayedPeriodsPerSecond = 100;
constexpr std::uint32_t kRecordedPeriodsPerSecond = 200;  // what is recorded waits for four of its periods

class CaptureService final : public AudioCaptureClient {
 public:
  explicit CaptureService(std::shared_ptr<CaptureStream> stream) : stream_(std::move(stream)) {}

  Status get_buffer(const std::byte*& data, std::uint32_t& frames, std::uint32_t& flags) override {
    return stream_->is_valid() ? stream_->get_buffer(data, frames, flags) : kDeviceInvalidated;
  }
  Status release_buffer(std::uint32_t frames) override {
    return stream_->is_valid() ? stream_->release_buffer(frames) : kDeviceInvalidated;
  }

 private:
  std::shared_ptr<CaptureStream> stream_;
};

class RenderService final : public AudioRenderClient {
 public:
  explicit RenderService(std::shared_ptr<RenderStream> stream) : stream_(std::move(stream)) {}

  Status get_buffer(std::uint32_t frames, std::byte*& data) override {
    return stream_->is_valid() ? stream_->get_buffer(frames, data) : kDeviceInvalidated;
  }
  Status release_buffer(std::uint32_t frames, std::uint32_t flags) override {
    return stream_->is_valid() ? stream_->release_buffer(frames, flags) : kDeviceInvalidated;
  }

 private:
  std::shared_ptr<RenderStream> stream_;
};

class StreamClient final : public AudioClient {
 public:
  StreamClient(Connection& connection, Graph& graph, Pacer& pacer, EndpointFacts endpoint)
      : connection_(connection), graph_(graph), pacer_(pacer), endpoint_(std::move(endpoint)) {}
  ~StreamClient() override {
    if (stream_) stream_->stop();
  }

  Status initialize(std::uint32_t flags, std::int64_t buffer_100ns, std::int64_t period_100ns,
                    const WAVEFORMATEXTENSIBLE& format) override {
    if (stream_) return kAlreadyInitialized;
    if (buffer_100ns < 0 || period_100ns < 0) return kInvalidArgument;
    if (!can_stream(format)) return kUnsupportedFormat;
    flags_ = flags;
    if (endpoint_.flow == DataFlow::capture) {
      stream_ = capture_ = std::make_shared<CaptureStream>(connection_, graph_, pacer_, endpoint_, format);
    } else {
      stream_ = render_ = std::make_shared<RenderStream>(connection_, graph_, pacer_, endpoint_, format);
    }
    return stream_->open();
  }

  Status set_event(Event* event) override {
    return on_stream([&] {
      if (event == nullptr) return kInvalidArgument;
      stream_->set_event(event);
      return kOk;
    });
  }
  Status capture_service(std::unique_ptr<AudioCaptureClient>& service) override {
    return on_stream([&] {
      if (!capture_) return kWrongEndpointType;
      service = std::make_unique<CaptureService>(capture_);
      return kOk;
    });
  }
  Status render_service(std::unique_ptr<AudioRenderClient>& service) override {
    return on_stream([&] {
      if (!render_) return kWrongEndpointType;
      service = std::make_unique<RenderService>(render_);
      return kOk;
    });
  }
  Status buffer_size(std::uint32_t& frames) override {
    return on_stream([&] {
      frames = stream_->buffer_frames();
      return kOk;
    });
  }
  Status current_padding(std::uint32_t& frames) override {
    return on_stream([&] {
      frames = stream_->padding();
      return kOk;
    });
  }
  Status start() override {
    return on_stream([&] { return stream_->start((flags_ & kStreamEventCallback) != 0); });
  }
  Status stop() override {
    return on_stream([&] { return stream_->stop(); });
  }
  Status reset() override {
    return on_stream([&] { return stream_->reset(); });
  }

  /// Clients are served every 10 ms at least, whatever the graph does.
  Status current_engine_period(std::uint32_t& frames) override {
    const bool is_recorded = endpoint_.flow == DataFlow::capture;
    frames = kUsualRateHz / (is_recorded ? kRecordedPeriodsPerSecond : kPlayedPeriodsPerSecond);
    return kOk;
  }
  Status mix_format(WAVEFORMATEXTENSIBLE& format) override {
    format = pcm_format(kUsualRateHz, 16, 2);
    return kOk;
  }

 private:
  template <class Operation>
  Status on_stream(Operation operation) {
    if (!stream_) return kNotInitialized;
    return stream_->is_valid() ? operation() : kDeviceInvalidated;
  }

  Connection& connection_;
  Graph& graph_;
  Pacer& pacer_;
  const EndpointFacts endpoint_;
  std::uint32_t flags_ = 0;
  std::shared_ptr<ClientStream> stream_;
  std::shared_ptr<CaptureStream> capture_;  ///< the same, typed, when recording
  std::shared_ptr<RenderStream> render_;    ///< the same, typed, when playing
};

}  // namespace

std::unique_ptr<AudioClient> make_audio_client(Connection& connection, Graph& graph, Pacer& pacer,
                                               const EndpointFacts& endpoint) {
  return std::make_unique<StreamClient>(connection, graph, pacer, endpoint);
}

}  // namespace sonivo::pipewire
