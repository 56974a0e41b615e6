#include "platform/sim/pin.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace sonivo::sim {
namespace {

constexpr std::size_t kExpectedFeedback = 1024;  // so that minutes of it take no memory from under the audio

constexpr std::size_t kRecordingSeconds = 30;

void begin(Overlapped& overlapped) {
  overlapped.pending = true;
  overlapped.error = error::kIoPending;
  overlapped.transferred = 0;
  if (overlapped.hEvent != nullptr) static_cast<SimEvent*>(overlapped.hEvent)->clear();
}

}  // namespace

PinModel::PinModel(Scheduler& scheduler, PinId id, const PinConfig& config)
    : scheduler_(scheduler), id_(id), config_(config), request_done_(scheduler, Reset::manual) {
  feedback_log_.reserve(kExpectedFeedback);
}

void PinModel::complete(Overlapped& overlapped, Error error, std::uint32_t transferred) {
  overlapped.pending = false;
  overlapped.error = error;
  overlapped.transferred = transferred;
  if (overlapped.hEvent != nullptr) static_cast<SimEvent*>(overlapped.hEvent)->signal();
  request_done_.signal();
}

void PinModel::open_client(const WAVEFORMATEXTENSIBLE& format, Sink sink, Source source) {
  close_client();
  if (!present_) return;
  format_ = format;
  sink_ = std::move(sink);
  source_ = std::move(source);
  recording_.clear();
  if (id_ == PinId::mic && !sink_) recording_.reserve(kRecordingSeconds * format.nAvgBytesPerSec);
  stats_ = {.feedback = stats_.feedback};
  clock_ = StreamClock(scheduler_.now(), format.nSamplesPerSec, config_.drift_ppm, config_.trim_ppm, stats_.feedback);
  for (const PendingRequest& request : std::exchange(waiting_, {})) hand_out_format(request);
  schedule_tick();
}

void PinModel::close_client() {
  format_.reset();
  for (const PendingRequest& request : std::exchange(transfers_, {})) {
    complete(*request.overlapped, error::kDeviceNotConnected, 0);
  }
  schedule_tick();
}

void PinModel::set_present(bool present) {
  present_ = present;
  if (present) return;
  close_client();
  for (const PendingRequest& request : std::exchange(waiting_, {})) {
    complete(*request.overlapped, error::kDeviceNotConnected, 0);
  }
}

Error PinModel::wait_stream(const PendingRequest& request) {
  if (request.output.size() != sizeof(WAVEFORMATEXTENSIBLE)) return error::kInvalidParameter;
  begin(*request.overlapped);
  if (format_) {
    hand_out_format(request);
    return error::kNone;
  }
  waiting_.push_back(request);
  return error::kIoPending;
}

void PinModel::hand_out_format(const PendingRequest& request) {
  std::memcpy(request.output.data(), &*format_, sizeof *format_);
  complete(*request.overlapped, error::kNone, sizeof *format_);
}

std::size_t PinModel::transfer_bytes(const PendingRequest& request) const {
  return id_ == PinId::mic ? request.input.size() : request.output.size();
}

Error PinModel::transfer(const PendingRequest& request) {
  if (!format_) return error::kDeviceNotConnected;
  const std::size_t bytes = transfer_bytes(request);
  const bool wrong_way = request.input.size() + request.output.size() != bytes;
  if (bytes == 0 || bytes % format_->nBlockAlign != 0 || wrong_way) return error::kInvalidParameter;
  begin(*request.overlapped);
  transfers_.push_back(request);
  if (transfers_.size() == 1) schedule_tick();
  return error::kIoPending;
}

Error PinModel::feedback(const PendingRequest& request) {
  std::int32_t value = 0;
  if (request.input.size() != sizeof value) return error::kInvalidParameter;
  std::memcpy(&value, request.input.data(), sizeof value);
  if (value < -1 || value > 1) return error::kInvalidParameter;
  begin(*request.overlapped);
  complete(*request.overlapped, error::kNone, 0);
  stats_.feedback = value;
  feedback_log_.push_back({scheduler_.now(), value});
  clock_.set_trim(scheduler_.now(), value);
  schedule_tick();
  return error::kNone;
}

void PinModel::abort(const Device* handle, Error error) {
  for (auto* queue : {&waiting_, &transfers_}) {
    std::erase_if(*queue, [&](const PendingRequest& request) {
      if (request.handle != handle) return false;
      complete(*request.overlapped, error, 0);
      return true;
    });
  }
  schedule_tick();
}

void PinModel::cancel(Overlapped& overlapped) {
  for (auto* queue : {&waiting_, &transfers_}) {
    const auto erased =
        std::erase_if(*queue, [&](const PendingRequest& request) { return request.overlapped == &overlapped; });
    if (erased != 0) complete(overlapped, error::kOperationAborted, 0);
  }
  schedule_tick();
}

std::size_t PinModel::period_frames() const {
  if (!transfers_.empty()) return transfer_bytes(transfers_.front()) / format_->nBlockAlign;
  return config_.virtual_period != 0 ? config_.virtual_period : format_->nSamplesPerSec / 100;
}

void PinModel::schedule_tick() {
  scheduler_.cancel(timer_);
  if (!format_) return;
  const auto end = static_cast<double>(stats_.frames + period_frames());
  timer_ = scheduler_.at(clock_.time_of(end), [this] { tick(); });
}

void PinModel::tick() {
  const std::size_t frames = period_frames();
  const std::size_t bytes = frames * format_->nBlockAlign;
  stats_.frames += frames;
  if (transfers_.empty()) {
    stats_.starved_frames += frames;
    scratch_.assign(bytes, std::byte{0});
    id_ == PinId::mic ? record(scratch_) : source_(scratch_);
  } else {
    const PendingRequest request = transfers_.front();
    transfers_.erase(transfers_.begin());
    id_ == PinId::mic ? record(request.input) : source_(request.output);
    ++stats_.transfers;
    complete(*request.overlapped, error::kNone, static_cast<std::uint32_t>(bytes));
  }
  schedule_tick();
}

void PinModel::record(std::span<const std::byte> frames) {
  if (sink_) {
    sink_(frames);
  } else {
    recording_.insert(recording_.end(), frames.begin(), frames.end());
  }
}

}  // namespace sonivo::sim
