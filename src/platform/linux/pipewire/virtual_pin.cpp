#include "platform/linux/pipewire/virtual_pin.h"

#include <pipewire/keys.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace sonivo::pipewire {
namespace {

constexpr std::uint32_t kWaitStream = 0x80000000;
constexpr std::uint32_t kTransfer = 0x80000004;
constexpr std::uint32_t kFeedback = 0x80000008;

constexpr std::size_t kExpectedRequests = 16;
constexpr std::size_t kPinFrames = 32768;      // four times the longest turn of the server
constexpr std::uint32_t kLatePerSecond = 500;  // the pacer may be 2 ms late
// Transfers that a late client finds ended when it comes: 15 ms of recording, which its ring has, or 20 ms of playing,
// for which the endpoint has room at once.
constexpr std::size_t kMostRecorded = 3;
constexpr std::size_t kMostPlayed = 2;
constexpr std::uint32_t kScratchFrames = 1024;
constexpr std::chrono::milliseconds kFirstRenewal{100};
constexpr std::chrono::milliseconds kSlowestRenewal{1600};

StreamSettings pin_settings(DataFlow flow, const WAVEFORMATEXTENSIBLE& format) {
  const bool capture = flow == DataFlow::capture;
  StreamSettings settings{
      .direction = capture ? PW_DIRECTION_OUTPUT : PW_DIRECTION_INPUT, .format = format, .properties = {}};
  settings.properties = {
      {PW_KEY_MEDIA_CLASS, capture ? "Audio/Source" : "Audio/Sink"},
      {PW_KEY_NODE_NAME, VirtualPin::node_name(flow)},
      {PW_KEY_NODE_DESCRIPTION, "Norvell Audio Relay"},
      {"audio.position", format.nChannels == 1 ? "[ MONO ]" : "[ FL FR ]"},
      {"priority.session", "100"},  // hardware has 500 and more
  };
  join_group(settings, flow);
  return settings;
}

void begin(Overlapped& overlapped) {
  overlapped.pending = true;
  overlapped.error = error::kIoPending;
  overlapped.transferred = 0;
  if (overlapped.hEvent != nullptr) overlapped.hEvent->reset();
}

}  // namespace

class VirtualPin::Handle final : public Device {
 public:
  Handle(VirtualPin& pin, Sharing its_sharing) : sharing(its_sharing), pin_(pin) { pin_.handles_.push_back(this); }
  ~Handle() override { close(); }

  Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                Overlapped& overlapped) override {
    std::scoped_lock lock(pin_.mutex_);
    const Request request{this, &overlapped, input, output};
    if (closed_) return error::kInvalidHandle;
    if (lost) return error::kDeviceNotConnected;
    switch (code) {
      case kWaitStream:
        return pin_.wait_stream(request);
      case kTransfer:
        return pin_.transfer(request);
      case kFeedback:
        return pin_.feedback(request);
      default:
        return error::kInvalidFunction;
    }
  }

  Error result(Overlapped& overlapped, std::uint32_t& transferred, bool wait) override {
    std::scoped_lock lock(pin_.mutex_);
    if (overlapped.pending && !wait) return error::kIoPending;
    pin_.mutex_.wait(pin_.done_, [&] { return !overlapped.pending; });
    transferred = overlapped.transferred;
    return overlapped.error;
  }

  void cancel(Overlapped& overlapped) override {
    end_those([&](const Request& request) { return request.overlapped == &overlapped; });
  }

  Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                    std::uint32_t& transferred) override {
    Overlapped overlapped;
    transferred = 0;
    const Error started = control(code, input, output, overlapped);
    return started == error::kIoPending ? result(overlapped, transferred, true) : started;
  }

  void close() override {
    end_those([&](const Request& request) { return request.handle == this; });
    std::scoped_lock lock(pin_.mutex_);
    if (!std::exchange(closed_, true)) std::erase(pin_.handles_, this);
  }

  const Sharing sharing;
  bool lost = false;  ///< the device has gone since

 private:
  template <class Which>
  void end_those(Which which) {
    std::scoped_lock lock(pin_.mutex_);
    for (auto* const queue : {&pin_.waiting_, &pin_.transfers_}) {
      std::erase_if(*queue, [&](const Request& request) {
        if (!which(request)) return false;
        pin_.complete(request, error::kOperationAborted, 0);
        return true;
      });
    }
  }

  VirtualPin& pin_;
  bool closed_ = false;
};

const char* VirtualPin::node_name(DataFlow flow) {
  return flow == DataFlow::capture ? "norvell.relay.microphone" : "norvell.relay.speaker";
}

VirtualPin::VirtualPin(Connection& connection, Graph& graph, Pacer& pacer, DataFlow flow,
                       const WAVEFORMATEXTENSIBLE& format)
    : Pacer::Stream(pacer, format.nSamplesPerSec,
                    flow == DataFlow::capture ? Pacer::Order::takes : Pacer::Order::gives),
      connection_(connection),
      graph_(graph),
      pacer_(pacer),
      way_(pacer.way(flow)),
      flow_(flow),
      most_unanswered_(flow == DataFlow::capture ? kMostRecorded : kMostPlayed),
      format_(format),
      node_(pin_settings(flow, format), *this),
      to_graph_(format.nBlockAlign, kPinFrames, format.nSamplesPerSec, format.nSamplesPerSec / kLatePerSecond),
      from_graph_(format.nBlockAlign, kPinFrames),
      slip_(format),
      scratch_(std::size_t{kScratchFrames} * format.nBlockAlign),
      renewal_(connection, [this] { renew(); }),
      renewal_wait_(kFirstRenewal) {
  waiting_.reserve(kExpectedRequests);
  transfers_.reserve(kExpectedRequests);
  pacer_.add(*this);
  const Connection::Lock lock(connection_);
  graph_.add(node_name(flow), *this);
  connection_.add(*this);
}

VirtualPin::~VirtualPin() {
  {
    const Connection::Lock lock(connection_);
    connection_.remove(*this);
    graph_.remove(node_name(flow_));
    node_.close();
    wants_renewal_ = false;
  }
  pacer_.remove(*this);
}

bool VirtualPin::is_present() const {
  const bool listed = is_listed();
  std::scoped_lock lock(mutex_);
  return present_ && listed;
}

/// Whoever opens the device looks for its endpoint then. Without the mutex: that of the graph isn't one for which the
/// pacer may wait.
bool VirtualPin::is_listed() const {
  const auto endpoint = graph_.find(node_name(flow_));
  return endpoint && endpoint->present;
}

std::shared_ptr<Device> VirtualPin::open(Sharing sharing, Error& why) {
  const bool there = is_listed();
  std::scoped_lock lock(mutex_);
  const bool in_the_way = std::any_of(handles_.begin(), handles_.end(), [&](const Handle* handle) {
    return !handle->lost && (sharing == Sharing::exclusive || handle->sharing == Sharing::exclusive);
  });
  why = !there || !present_ ? error::kFileNotFound : in_the_way ? error::kSharingViolation : error::kNone;
  return why == error::kNone ? std::make_shared<Handle>(*this, sharing) : nullptr;
}

bool VirtualPin::serves(const Device* device) const {
  std::scoped_lock lock(mutex_);
  return std::any_of(handles_.begin(), handles_.end(), [&](const Handle* handle) { return handle == device; });
}

// ---- The node

void VirtualPin::connected(pw_core& core) {
  const bool opened = open_node(core);
  if (!opened) renew_later();
  std::scoped_lock lock(mutex_);
  present_ = opened;
}

/// What an application was muted by is still muted on the new node.
bool VirtualPin::open_node(pw_core& core) {
  if (!node_.open(core)) return false;
  if (const auto volume = graph_.latest_volume(node_name(flow_))) node_.set_volume(*volume);
  return true;
}

void VirtualPin::disconnected() {
  node_.close();
  wants_renewal_ = false;
  leave();
}

void VirtualPin::leave() {
  std::scoped_lock lock(mutex_);
  present_ = false;
  for (Handle* const handle : handles_) handle->lost = true;
  end_streaming();
  end_all(waiting_, error::kDeviceNotConnected);
}

void VirtualPin::manager_left() {
  pw_core* const core = connection_.core();
  if (core == nullptr) return;
  disconnected();
  connected(*core);
}

void VirtualPin::renew_later() {
  wants_renewal_ = true;
  renewal_.start(renewal_wait_);
  renewal_wait_ = std::min(2 * renewal_wait_, kSlowestRenewal);
}

void VirtualPin::renew() {
  pw_core* const core = connection_.core();
  if (core == nullptr || !std::exchange(wants_renewal_, false)) return;
  node_.close();
  connected(*core);
}

/// A node that fails, or that somebody destroys, can't be closed within its own call. Its device goes at once, after
/// its endpoint, which the graph may list still.
void VirtualPin::state_changed(pw_stream_state state) {
  if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
    graph_.drop(node_name(flow_));
    leave();
    return renew_later();
  }
  if (state == PW_STREAM_STATE_STREAMING) renewal_wait_ = kFirstRenewal;
  std::scoped_lock lock(mutex_);
  if (state != PW_STREAM_STATE_STREAMING) return end_streaming();
  streaming_ = true;
  for (const Request& request : waiting_) hand_out_format(request);
  waiting_.clear();
}

void VirtualPin::take(const std::byte* frames, std::uint32_t count) {
  way_.turn(count);
  const std::size_t written = from_graph_.write(frames, count);
  lose(count - written);
  note_turn(static_cast<std::uint32_t>(written));
}

void VirtualPin::fill(std::byte* frames, std::uint32_t count) {
  way_.turn(count);
  way_.add(static_cast<std::int64_t>(to_graph_.read(frames, count)));
  note_turn(count);
}

/// What applications were to hear then still is on its way; what they played then is not.
void VirtualPin::missed(std::int64_t frames) { way_.add(flow_ == DataFlow::capture ? frames : -frames); }

/// Of the speaker, in front of the client.
void VirtualPin::lose(std::size_t frames) { way_.add(-static_cast<std::int64_t>(frames)); }

// ---- Requests

void VirtualPin::complete(const Request& request, Error error, std::size_t transferred) {
  Overlapped& overlapped = *request.overlapped;
  overlapped.pending = false;
  overlapped.error = error;
  overlapped.transferred = static_cast<std::uint32_t>(transferred);
  if (overlapped.hEvent != nullptr) overlapped.hEvent->set();
  done_.notify_all();
}

/// What an application hasn't heard by then isn't for the next one.
void VirtualPin::end_streaming() {
  streaming_ = false;
  end_all(transfers_, error::kDeviceNotConnected);
  to_graph_.flush();
  slip_.reset();
}

void VirtualPin::end_all(std::vector<Request>& requests, Error error) {
  for (const Request& request : requests) complete(request, error, 0);
  requests.clear();
  unanswered_ = 0;
  owed_ = 0;
}

void VirtualPin::hand_out_format(const Request& request) {
  std::memcpy(request.output.data(), &format_, sizeof format_);
  complete(request, error::kNone, sizeof format_);
}

Error VirtualPin::wait_stream(Request request) {
  if (request.output.size() != sizeof format_) return error::kInvalidParameter;
  begin(*request.overlapped);
  if (streaming_) {
    hand_out_format(request);
    return error::kNone;
  }
  waiting_.push_back(request);
  return error::kIoPending;
}

Error VirtualPin::transfer(Request request) {
  if (!streaming_) return error::kDeviceNotConnected;
  const std::size_t right_way = flow_ == DataFlow::capture ? request.input.size() : request.output.size();
  if (right_way == 0 || right_way % format_.nBlockAlign != 0 || request.bytes() != right_way) {
    return error::kInvalidParameter;
  }
  begin(*request.overlapped);
  transfers_.push_back(request);
  unanswered_ = 0;
  if (owed_ != 0) owed_ = pass_on(owed_);
  return error::kIoPending;
}

Error VirtualPin::feedback(const Request& request) {
  std::int32_t value = 0;
  if (request.input.size() != sizeof value) return error::kInvalidParameter;
  std::memcpy(&value, request.input.data(), sizeof value);
  if (value < -1 || value > 1) return error::kInvalidParameter;
  begin(*request.overlapped);
  complete(request, error::kNone, 0);
  feedback_ = flow_ == DataFlow::capture ? value : -value;  // a faster microphone takes in more, a speaker gives more
  return error::kNone;
}

void VirtualPin::release(std::uint32_t frames) {
  std::scoped_lock lock(mutex_);
  way_.pass(frames);
  flow_ == DataFlow::capture ? record(frames) : play(frames);
}

void VirtualPin::skip(std::uint32_t frames) {
  if (flow_ == DataFlow::render) lose(from_graph_.drop(frames));
}

FrameSlip::Moved VirtualPin::slip(std::span<const std::byte> input, std::span<std::byte> output) {
  slip_.want(way_.slip(feedback_));
  const auto moved = slip_.process(input.data(), input.size() / format_.nBlockAlign, output.data(),
                                   output.size() / format_.nBlockAlign);
  way_.slipped(moved.slipped);
  return moved;
}

void VirtualPin::record(std::uint32_t frames) {
  const bool was_served = is_served();
  const std::size_t left = pass_on(to_graph_.admitted(frames));
  owed_ = was_served ? left : 0;
}

/// While the client comes late, the last of its transfers wait for it.
bool VirtualPin::is_served() const { return !transfers_.empty() && unanswered_ < most_unanswered_; }

/// Returns how many of the frames no transfer was left for.
std::size_t VirtualPin::pass_on(std::size_t left) {
  while (left != 0 && is_served()) {
    Request& front = transfers_.front();
    const auto moved =
        slip(front.input.subspan(front.done),
             std::span(scratch_).first(std::min<std::size_t>(left, kScratchFrames) * format_.nBlockAlign));
    to_graph_.write(scratch_.data(), moved.given);
    left -= moved.given;
    front.done += moved.taken * format_.nBlockAlign;
    if (front.done == front.bytes()) finish_front();
  }
  return left;
}

void VirtualPin::play(std::uint32_t frames) {
  if (!is_served()) return lose(from_graph_.drop(frames));
  std::size_t left = frames;
  while (left != 0 && is_served()) {
    Request& front = transfers_.front();
    const auto there = from_graph_.front();
    const auto moved =
        slip(there.first(std::min(left * format_.nBlockAlign, there.size())), front.output.subspan(front.done));
    from_graph_.drop(moved.taken);
    left -= moved.taken;
    front.done += moved.given * format_.nBlockAlign;
    if (front.done == front.bytes()) finish_front();
    if (there.empty()) break;
  }
  if (!is_served()) lose(from_graph_.drop(left));
}

void VirtualPin::finish_front() {
  const Request request = transfers_.front();
  transfers_.erase(transfers_.begin());
  ++unanswered_;
  complete(request, error::kNone, request.bytes());
}

}  // namespace sonivo::pipewire
