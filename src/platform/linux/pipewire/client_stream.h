#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/event.h"
#include "base/status.h"
#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/frame_fifo.h"
#include "platform/linux/pipewire/graph.h"
#include "platform/linux/pipewire/pacer.h"
#include "platform/linux/pipewire/play_position.h"
#include "platform/linux/pipewire/playout.h"
#include "platform/linux/pipewire/stream_node.h"
#include "platform/wave_format.h"

namespace sonivo::pipewire {

/// The stream behind a shared-mode client. Client operations are called by one thread at a time.
class ClientStream : private Connection::User,
                     private DepartureWatch,
                     protected StreamHandler,
                     protected Pacer::Stream {
 public:
  ClientStream(Connection& connection, Graph& graph, Pacer& pacer, const EndpointFacts& endpoint,
               const WAVEFORMATEXTENSIBLE& format);
  virtual ~ClientStream() = default;

  /// Makes the node; kDeviceInvalidated when there is no server.
  Status open();
  void set_event(Event* event) { event_ = event; }
  Status start(bool needs_event);
  Status stop();
  Status reset();
  bool is_valid() const { return valid_; }

  virtual std::uint32_t buffer_frames() const = 0;
  virtual std::uint32_t padding() const = 0;

 protected:
  /// The last of a derived class's destructor's calls that may find it whole.
  void close();
  virtual void drop_buffered() = 0;
  void wake_client();
  /// Frames by which the way of this direction has become longer.
  void lengthen_way(std::int64_t frames) { way_.add(frames); }
  bool is_running() const { return running_; }
  std::uint32_t max_piece() const { return max_piece_; }

  const WAVEFORMATEXTENSIBLE format_;

 private:
  void connected(pw_core&) override {}
  void disconnected() override;
  void departed(const std::string& id) override;
  void state_changed(pw_stream_state state) override;
  void missed(std::int64_t frames) override;
  void invalidate();

  Connection& connection_;
  Graph& graph_;
  Pacer& pacer_;
  SteadyDelay& way_;
  const DataFlow flow_;
  const std::string endpoint_;
  const std::uint32_t max_piece_;
  StreamNode node_;
  std::atomic<Event*> event_ = nullptr;
  std::atomic<bool> valid_ = true;
  std::atomic<bool> running_ = false;
  bool open_ = false;
};

/// What an endpoint hears. At most 20 ms wait; then the oldest frames are lost.
class CaptureStream final : public ClientStream {
 public:
  CaptureStream(Connection& connection, Graph& graph, Pacer& pacer, const EndpointFacts& endpoint,
                const WAVEFORMATEXTENSIBLE& format);
  ~CaptureStream() override { close(); }

  Status get_buffer(const std::byte*& data, std::uint32_t& frames, std::uint32_t& flags);
  Status release_buffer(std::uint32_t frames);
  std::uint32_t buffer_frames() const override { return buffer_frames_; }
  std::uint32_t padding() const override;

 private:
  void take(const std::byte* frames, std::uint32_t count) override;
  void fill(std::byte*, std::uint32_t) override {}
  void release(std::uint32_t frames) override;
  void skip(std::uint32_t frames) override;
  void drop_buffered() override;
  void lose(std::size_t frames) { lengthen_way(-static_cast<std::int64_t>(frames)); }

  const std::uint32_t buffer_frames_;
  FrameFifo fifo_;
  std::atomic<std::uint64_t> released_ = 0;  ///< position up to which the client may read
  std::atomic<std::uint32_t> skipped_ = 0;   ///< frames that the client is not to find any more
  std::vector<std::byte> held_;              ///< with the client
  std::uint32_t held_frames_ = 0;
};

/// What an endpoint is to play.
class RenderStream final : public ClientStream {
 public:
  RenderStream(Connection& connection, Graph& graph, Pacer& pacer, const EndpointFacts& endpoint,
               const WAVEFORMATEXTENSIBLE& format);
  ~RenderStream() override { close(); }

  Status get_buffer(std::uint32_t frames, std::byte*& data);
  Status release_buffer(std::uint32_t frames, std::uint32_t flags);
  std::uint32_t buffer_frames() const override { return buffer_frames_; }
  std::uint32_t padding() const override;

 private:
  void take(const std::byte*, std::uint32_t) override {}
  void fill(std::byte* frames, std::uint32_t count) override;
  void release(std::uint32_t frames) override;
  void skip(std::uint32_t) override {}
  void drop_buffered() override;

  const std::uint32_t buffer_frames_;
  Playout playout_;
  PlayPosition position_;
  std::vector<std::byte> lent_;  ///< with the client
  std::uint32_t lent_frames_ = 0;
};

}  // namespace sonivo::pipewire
