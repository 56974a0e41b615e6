#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/endpoints.h"

namespace sonivo::test {

/// One packet that a program gave back to an endpoint.
struct ReleasedPacket {
  std::uint32_t frames = 0;
  std::uint32_t flags = 0;

  friend bool operator==(const ReleasedPacket&, const ReleasedPacket&) = default;
};

/// The endpoints of a machine, with every released packet of a playing client kept and with memory that is full of
/// garbage when it is lent out.
class ObservedSpeakers final : public Endpoints {
 public:
  ObservedSpeakers(Endpoints& endpoints, std::size_t frame_bytes) : endpoints_(endpoints), log_{{}, frame_bytes} {}

  const std::vector<ReleasedPacket>& released() const { return log_.released; }

  Status list(DataFlow flow, std::uint32_t state_mask, std::vector<std::shared_ptr<Endpoint>>& endpoints) override {
    const Status status = endpoints_.list(flow, state_mask, endpoints);
    for (auto& endpoint : endpoints) endpoint = std::make_shared<ObservedEndpoint>(std::move(endpoint), log_);
    return status;
  }
  Status default_endpoint(DataFlow flow, Role role, std::shared_ptr<Endpoint>& endpoint) override {
    return endpoints_.default_endpoint(flow, role, endpoint);
  }
  Status register_callback(IMMNotificationClient* client) override { return endpoints_.register_callback(client); }
  Status unregister_callback(IMMNotificationClient* client) override { return endpoints_.unregister_callback(client); }

 private:
  struct Log {
    std::vector<ReleasedPacket> released;
    std::size_t frame_bytes;
  };

  class ObservedPackets final : public AudioRenderClient {
   public:
    ObservedPackets(std::unique_ptr<AudioRenderClient> client, Log& log) : client_(std::move(client)), log_(log) {}
    Status get_buffer(std::uint32_t frames, std::byte*& data) override {
      constexpr std::byte kGarbage{0x55};
      const Status status = client_->get_buffer(frames, data);
      if (!failed(status)) std::fill_n(data, frames * log_.frame_bytes, kGarbage);
      return status;
    }
    Status release_buffer(std::uint32_t frames, std::uint32_t flags) override {
      log_.released.push_back({frames, flags});
      return client_->release_buffer(frames, flags);
    }

   private:
    std::unique_ptr<AudioRenderClient> client_;
    Log& log_;
  };

  class ObservedClient final : public AudioClient {
   public:
    ObservedClient(std::unique_ptr<AudioClient> client, Log& log) : client_(std::move(client)), log_(log) {}
    Status initialize(std::uint32_t flags, std::int64_t buffer_100ns, std::int64_t period_100ns,
                      const WAVEFORMATEXTENSIBLE& format) override {
      return client_->initialize(flags, buffer_100ns, period_100ns, format);
    }
    Status set_event(Event* event) override { return client_->set_event(event); }
    Status capture_service(std::unique_ptr<AudioCaptureClient>& service) override {
      return client_->capture_service(service);
    }
    Status render_service(std::unique_ptr<AudioRenderClient>& service) override {
      const Status status = client_->render_service(service);
      if (service) service = std::make_unique<ObservedPackets>(std::move(service), log_);
      return status;
    }
    Status buffer_size(std::uint32_t& frames) override { return client_->buffer_size(frames); }
    Status current_padding(std::uint32_t& frames) override { return client_->current_padding(frames); }
    Status start() override { return client_->start(); }
    Status stop() override { return client_->stop(); }
    Status reset() override { return client_->reset(); }
    Status current_engine_period(std::uint32_t& frames) override { return client_->current_engine_period(frames); }
    Status mix_format(WAVEFORMATEXTENSIBLE& format) override { return client_->mix_format(format); }

   private:
    std::unique_ptr<AudioClient> client_;
    Log& log_;
  };

  class ObservedEndpoint final : public Endpoint {
   public:
    ObservedEndpoint(std::shared_ptr<Endpoint> endpoint, Log& log) : endpoint_(std::move(endpoint)), log_(log) {}
    Status id(std::string& id) override { return endpoint_->id(id); }
    Status open_properties(std::unique_ptr<PropertyStore>& store) override { return endpoint_->open_properties(store); }
    Status activate_audio_client(std::unique_ptr<AudioClient>& client) override {
      const Status status = endpoint_->activate_audio_client(client);
      if (client) client = std::make_unique<ObservedClient>(std::move(client), log_);
      return status;
    }
    Status activate_volume(std::shared_ptr<EndpointVolume>& volume) override {
      return endpoint_->activate_volume(volume);
    }

   private:
    std::shared_ptr<Endpoint> endpoint_;
    Log& log_;
  };

  Endpoints& endpoints_;
  Log log_;
};

}  // namespace sonivo::test
