#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/endpoints.h"

namespace sonivo::test {

/// The endpoints of a machine, of which the active microphones hand out longer packets than the hardware does: each
/// packet in `packets` takes the place of one of the hardware's; once there is none left the hardware's own follow.
class PacketEndpoints final : public Endpoints {
 public:
  explicit PacketEndpoints(Endpoints& real) : real_(real) {}

  /// The next packet to hand out. Frames of `block_align` bytes.
  void give(std::vector<std::byte> packet, std::size_t block_align) {
    packets_->push_back({std::move(packet), block_align});
  }

  Status list(DataFlow flow, std::uint32_t state_mask, std::vector<std::shared_ptr<Endpoint>>& endpoints) override {
    const Status status = real_.list(flow, state_mask, endpoints);
    if (flow != DataFlow::capture || state_mask != kDeviceActive) return status;
    for (auto& endpoint : endpoints) endpoint = std::make_shared<Microphone>(endpoint, packets_);
    return status;
  }
  Status default_endpoint(DataFlow flow, Role role, std::shared_ptr<Endpoint>& endpoint) override {
    return real_.default_endpoint(flow, role, endpoint);
  }
  Status register_callback(IMMNotificationClient* client) override { return real_.register_callback(client); }
  Status unregister_callback(IMMNotificationClient* client) override { return real_.unregister_callback(client); }

 private:
  struct Packet {
    std::vector<std::byte> bytes;
    std::size_t block_align;
  };
  using Packets = std::shared_ptr<std::deque<Packet>>;

  class Service final : public AudioCaptureClient {
   public:
    Service(std::unique_ptr<AudioCaptureClient> real, Packets packets)
        : real_(std::move(real)), packets_(std::move(packets)) {}

    Status get_buffer(const std::byte*& data, std::uint32_t& frames, std::uint32_t& flags) override {
      const Status status = real_->get_buffer(data, frames, flags);
      real_frames_ = frames;
      if (failed(status) || frames == 0 || packets_->empty()) return status;
      held_ = std::move(packets_->front());
      packets_->pop_front();
      data = held_.bytes.data();
      frames = static_cast<std::uint32_t>(held_.bytes.size() / held_.block_align);
      return status;
    }
    Status release_buffer(std::uint32_t) override { return real_->release_buffer(real_frames_); }

   private:
    std::unique_ptr<AudioCaptureClient> real_;
    Packets packets_;
    Packet held_{};
    std::uint32_t real_frames_ = 0;
  };

  class Client final : public AudioClient {
   public:
    Client(std::unique_ptr<AudioClient> real, Packets packets) : real_(std::move(real)), packets_(std::move(packets)) {}

    Status initialize(std::uint32_t flags, std::int64_t buffer_100ns, std::int64_t period_100ns,
                      const WAVEFORMATEXTENSIBLE& format) override {
      return real_->initialize(flags, buffer_100ns, period_100ns, format);
    }
    Status set_event(Event* event) override { return real_->set_event(event); }
    Status capture_service(std::unique_ptr<AudioCaptureClient>& service) override {
      std::unique_ptr<AudioCaptureClient> real;
      const Status status = real_->capture_service(real);
      if (!failed(status)) service = std::make_unique<Service>(std::move(real), packets_);
      return status;
    }
    Status render_service(std::unique_ptr<AudioRenderClient>& service) override {
      return real_->render_service(service);
    }
    Status buffer_size(std::uint32_t& frames) override { return real_->buffer_size(frames); }
    Status current_padding(std::uint32_t& frames) override { return real_->current_padding(frames); }
    Status start() override { return real_->start(); }
    Status stop() override { return real_->stop(); }
    Status reset() override { return real_->reset(); }
    Status current_engine_period(std::uint32_t& frames) override { return real_->current_engine_period(frames); }
    Status mix_format(WAVEFORMATEXTENSIBLE& format) override { return real_->mix_format(format); }

   private:
    std::unique_ptr<AudioClient> real_;
    Packets packets_;
  };

  class Microphone final : public Endpoint {
   public:
    Microphone(std::shared_ptr<Endpoint> real, Packets packets)
        : real_(std::move(real)), packets_(std::move(packets)) {}

    Status id(std::string& id) override { return real_->id(id); }
    Status open_properties(std::unique_ptr<PropertyStore>& store) override { return real_->open_properties(store); }
    Status activate_audio_client(std::unique_ptr<AudioClient>& client) override {
      std::unique_ptr<AudioClient> real;
      const Status status = real_->activate_audio_client(real);
      if (!failed(status)) client = std::make_unique<Client>(std::move(real), packets_);
      return status;
    }
    Status activate_volume(std::shared_ptr<EndpointVolume>& volume) override { return real_->activate_volume(volume); }

   private:
    std::shared_ptr<Endpoint> real_;
    Packets packets_;
  };

  Endpoints& real_;
  Packets packets_ = std::make_shared<std::deque<Packet>>();
};

}  // namespace sonivo::test
