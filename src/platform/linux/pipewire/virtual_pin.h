#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/device.h"
#include "platform/endpoints.h"
#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/frame_fifo.h"
#include "platform/linux/pipewire/frame_slip.h"
#include "platform/linux/pipewire/graph.h"
#include "platform/linux/pipewire/loop_timer.h"
#include "platform/linux/pipewire/pacer.h"
#include "platform/linux/pipewire/pi_mutex.h"
#include "platform/linux/pipewire/playout.h"
#include "platform/linux/pipewire/stream_node.h"
#include "platform/wave_format.h"

namespace sonivo::pipewire {

/// One end of the virtual pair: the node that applications see, and the device behind which the program finds it.
///
/// An application that streams makes the requests for a format succeed. While it does, transfers go one after the
/// other, at the pace of the graph: those of the microphone (flow capture) are what applications record, those of the
/// speaker what they play. When the last application has gone they end with error::kDeviceNotConnected, as all requests
/// do when the server goes, its session manager or the node alone; the device is there again with the server, without a
/// manager at once, without its node in a moment. What applications play while no transfer is outstanding is lost; what
/// they record then is silence. Feedback 1 has the transfers go a thousandth faster than the graph, -1 slower.
class VirtualPin final : private Connection::User, private StreamHandler, private Pacer::Stream, private OwnNode {
 public:
  VirtualPin(Connection& connection, Graph& graph, Pacer& pacer, DataFlow flow, const WAVEFORMATEXTENSIBLE& format);
  /// No handle is left.
  ~VirtualPin();

  static const char* node_name(DataFlow flow);

  bool is_present() const;
  /// Null with the reason: absent, or in use by an exclusive handle.
  std::shared_ptr<Device> open(Sharing sharing, Error& why);
  /// Whether this is an open handle of the pin.
  bool serves(const Device* device) const;

 private:
  class Handle;
  struct Request {
    const Handle* handle = nullptr;
    Overlapped* overlapped = nullptr;
    std::span<const std::byte> input;
    std::span<std::byte> output;
    std::size_t done = 0;  ///< bytes
    std::size_t bytes() const { return input.size() + output.size(); }
  };

  // Connection::User
  void connected(pw_core& core) override;
  void disconnected() override;
  // StreamHandler
  void take(const std::byte* frames, std::uint32_t count) override;
  void fill(std::byte* frames, std::uint32_t count) override;
  void missed(std::int64_t frames) override;
  void state_changed(pw_stream_state state) override;
  // Pacer::Stream
  void release(std::uint32_t frames) override;
  void skip(std::uint32_t frames) override;

  // OwnNode
  void set_volume(const NodeVolume& volume) override { node_.set_volume(volume); }
  void manager_left() override;

  bool open_node(pw_core& core);
  void leave();
  void renew_later();
  void renew();
  bool is_listed() const;
  // With the mutex held.
  void complete(const Request& request, Error error, std::size_t transferred);
  void end_streaming();
  void end_all(std::vector<Request>& requests, Error error);
  void hand_out_format(const Request& request);
  bool is_served() const;
  FrameSlip::Moved slip(std::span<const std::byte> input, std::span<std::byte> output);
  void lose(std::size_t frames);
  void record(std::uint32_t frames);
  std::size_t pass_on(std::size_t frames);
  void play(std::uint32_t frames);
  void finish_front();
  Error wait_stream(Request request);
  Error transfer(Request request);
  Error feedback(const Request& request);

  Connection& connection_;
  Graph& graph_;
  Pacer& pacer_;
  SteadyDelay& way_;
  const DataFlow flow_;
  const std::size_t most_unanswered_;
  const WAVEFORMATEXTENSIBLE format_;
  StreamNode node_;
  Playout to_graph_;      ///< of the microphone
  FrameFifo from_graph_;  ///< of the speaker
  FrameSlip slip_;
  std::vector<std::byte> scratch_;

  // Of the loop's thread.
  LoopTimer renewal_;
  std::chrono::milliseconds renewal_wait_;
  bool wants_renewal_ = false;

  mutable PiMutex mutex_;
  std::condition_variable done_;
  bool present_ = false;
  bool streaming_ = false;
  std::vector<Handle*> handles_;
  std::vector<Request> waiting_;
  std::vector<Request> transfers_;
  std::int32_t feedback_ = 0;   ///< as the way the slip is to go
  std::size_t unanswered_ = 0;  ///< transfers that have ended since the latest was made
  std::size_t owed_ = 0;        ///< frames of the latest release for which the microphone's transfers were too few
};

}  // namespace sonivo::pipewire
