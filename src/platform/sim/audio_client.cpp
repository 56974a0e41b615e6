#include "platform/sim/audio_client.h"

#include <utility>

#include "platform/client_status.h"
#include "platform/sim/audio_stream.h"

namespace sonivo::sim {
namespace {

using EndpointPtr = std::shared_ptr<EndpointModel>;

/// Runs one operation: a scripted failure first, then that of an endpoint that is gone, then the operation, locked.
template <class Operation>
Status perform(EndpointModel& endpoint, Step step, Operation operation) {
  if (const auto failure = endpoint.script.enter(step)) return static_cast<Status>(*failure);
  std::scoped_lock lock(endpoint.scheduler.mutex());
  if (!endpoint.usable()) return kDeviceInvalidated;
  return operation();
}

bool valid(const WAVEFORMATEXTENSIBLE& format) {
  const std::uint32_t bits = format.wBitsPerSample;
  return format.nChannels != 0 && format.nSamplesPerSec >= 100 && bits % 8 == 0 && bits >= 8 && bits <= 32 &&
         format.nBlockAlign == format.nChannels * (bits / 8);
}

/// Owner of a stream, which the client and its services share; takes the mutex to let it go.
template <class Stream>
std::shared_ptr<Stream> make_stream(const EndpointPtr& endpoint, const InitializeRecord& settings) {
  return std::shared_ptr<Stream>(new Stream(*endpoint, settings), [endpoint](Stream* stream) {
    std::scoped_lock lock(endpoint->scheduler.mutex());
    stream->stop();
    delete stream;
  });
}

class CaptureService final : public AudioCaptureClient {
 public:
  CaptureService(EndpointPtr endpoint, std::shared_ptr<CaptureStream> stream)
      : endpoint_(std::move(endpoint)), stream_(std::move(stream)), mark_(endpoint_->live.services) {}

  Status get_buffer(const std::byte*& data, std::uint32_t& frames, std::uint32_t& flags) override {
    return perform(*endpoint_, Step::capture_get_buffer, [&] { return stream_->get_buffer(data, frames, flags); });
  }
  Status release_buffer(std::uint32_t frames) override {
    return perform(*endpoint_, Step::capture_release_buffer, [&] { return stream_->release_buffer(frames); });
  }

 private:
  EndpointPtr endpoint_;
  std::shared_ptr<CaptureStream> stream_;
  LiveMark mark_;
};

class RenderService final : public AudioRenderClient {
 public:
  RenderService(EndpointPtr endpoint, std::shared_ptr<RenderStream> stream)
      : endpoint_(std::move(endpoint)), stream_(std::move(stream)), mark_(endpoint_->live.services) {}

  Status get_buffer(std::uint32_t frames, std::byte*& data) override {
    return perform(*endpoint_, Step::render_get_buffer, [&] { return stream_->get_buffer(frames, data); });
  }
  Status release_buffer(std::uint32_t frames, std::uint32_t flags) override {
    return perform(*endpoint_, Step::render_release_buffer, [&] { return stream_->release_buffer(frames, flags); });
  }

 private:
  EndpointPtr endpoint_;
  std::shared_ptr<RenderStream> stream_;
  LiveMark mark_;
};

class SimAudioClient final : public AudioClient {
 public:
  explicit SimAudioClient(EndpointPtr endpoint) : endpoint_(std::move(endpoint)), mark_(endpoint_->live.clients) {}
  ~SimAudioClient() override {
    if (!stream_) return;
    std::scoped_lock lock(endpoint_->scheduler.mutex());
    stream_->stop();
  }

  Status initialize(std::uint32_t flags, std::int64_t buffer_100ns, std::int64_t period_100ns,
                    const WAVEFORMATEXTENSIBLE& format) override {
    return perform(*endpoint_, Step::client_initialize, [&] {
      if (stream_) return kAlreadyInitialized;
      const InitializeRecord settings{flags, buffer_100ns, period_100ns, format};
      endpoint_->initialize_log.push_back(settings);
      if (buffer_100ns < 0 || period_100ns < 0) return kInvalidArgument;
      const bool converts = (flags & kStreamAutoConvertPcm) != 0;
      if (!valid(format) || (!converts && format.nSamplesPerSec != endpoint_->settings.rate_hz)) {
        return kUnsupportedFormat;
      }
      if (endpoint_->settings.flow == DataFlow::capture) {
        stream_ = capture_ = make_stream<CaptureStream>(endpoint_, settings);
      } else {
        stream_ = render_ = make_stream<RenderStream>(endpoint_, settings);
      }
      return kOk;
    });
  }

  Status set_event(Event* event) override {
    return on_stream(Step::client_set_event, [&] {
      if (event == nullptr) return kInvalidArgument;
      stream_->set_event(event);
      return kOk;
    });
  }

  Status capture_service(std::unique_ptr<AudioCaptureClient>& service) override {
    return on_stream(Step::client_capture_service, [&] {
      if (!capture_) return kWrongEndpointType;
      service = std::make_unique<CaptureService>(endpoint_, capture_);
      return kOk;
    });
  }

  Status render_service(std::unique_ptr<AudioRenderClient>& service) override {
    return on_stream(Step::client_render_service, [&] {
      if (!render_) return kWrongEndpointType;
      service = std::make_unique<RenderService>(endpoint_, render_);
      return kOk;
    });
  }

  Status buffer_size(std::uint32_t& frames) override {
    return on_stream(Step::client_buffer_size, [&] {
      frames = stream_->buffer_frames();
      return kOk;
    });
  }

  Status current_padding(std::uint32_t& frames) override {
    return on_stream(Step::client_padding, [&] {
      frames = stream_->padding();
      return kOk;
    });
  }

  Status start() override {
    return on_stream(Step::client_start, [&] { return stream_->start(); });
  }
  Status stop() override {
    return on_stream(Step::client_stop, [&] { return stream_->stop(); });
  }
  Status reset() override {
    return on_stream(Step::client_reset, [&] { return stream_->reset(); });
  }

  Status current_engine_period(std::uint32_t& frames) override {
    return perform(*endpoint_, Step::client_engine_period, [&] {
      frames = endpoint_->period(endpoint_->settings.rate_hz);
      return kOk;
    });
  }

  Status mix_format(WAVEFORMATEXTENSIBLE& format) override {
    return perform(*endpoint_, Step::client_mix_format, [&] {
      format = pcm_format(endpoint_->settings.rate_hz, 16, 2);
      return kOk;
    });
  }

 private:
  template <class Operation>
  Status on_stream(Step step, Operation operation) {
    return perform(*endpoint_, step, [&] { return stream_ ? operation() : kNotInitialized; });
  }

  EndpointPtr endpoint_;
  std::shared_ptr<AudioStream> stream_;
  std::shared_ptr<CaptureStream> capture_;  ///< the same, typed, when recording
  std::shared_ptr<RenderStream> render_;    ///< the same, typed, when playing
  LiveMark mark_;
};

}  // namespace

std::unique_ptr<AudioClient> make_audio_client(std::shared_ptr<EndpointModel> endpoint) {
  return std::make_unique<SimAudioClient>(std::move(endpoint));
}

}  // namespace sonivo::sim
