#include "platform/linux/pipewire/pacer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <stdexcept>

namespace sonivo::pipewire {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::int64_t kTooLateNs = 20'000'000;
constexpr std::int64_t kClientNs = 1'000'000;  // that a client has to put what it is given into its ring

std::int64_t monotonic_ns() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

}  // namespace

void Pacer::Stream::note_turn(std::uint32_t frames) {
  const std::int64_t length_ns = std::int64_t{frames} * kNsPerSecond / rate_hz_;
  const std::int64_t wait_ns = order_ == Order::takes ? std::min(kClientNs, length_ns / 2) : 0;
  cycles_.post({frames, monotonic_ns() + wait_ns, length_ns});
  pacer_.wake();
}

Pacer::Pacer(Threads& threads) : threads_(threads), woken_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (woken_.is_open()) thread_ = threads.start("audio pacer", [this] { run(); });
  if (!thread_) throw std::runtime_error("no thread for the audio streams");
}

Pacer::~Pacer() {
  stop_ = true;
  wake();
  thread_->join();
}

void Pacer::add(Stream& stream) {
  std::scoped_lock lock(mutex_);
  streams_.push_back(&stream);
}

void Pacer::remove(Stream& stream) {
  std::scoped_lock lock(mutex_);
  std::erase(streams_, &stream);
}

void Pacer::wake() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(woken_.number(), &one, sizeof one);  // a full count wakes too
}

void Pacer::run() {
  const std::uint64_t audio_class = threads_.enter_audio_class();
  std::optional<std::int64_t> due;
  while (!stop_) {
    timespec left{};
    if (due) {
      const std::int64_t ns = std::max<std::int64_t>(*due - monotonic_ns(), 0);
      left = {.tv_sec = ns / kNsPerSecond, .tv_nsec = ns % kNsPerSecond};
    }
    pollfd polled{woken_.number(), POLLIN, 0};
    ::ppoll(&polled, 1, due ? &left : nullptr, nullptr);
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = ::read(woken_.number(), &count, sizeof count);
    due = serve_all(monotonic_ns());
  }
  threads_.leave_audio_class(audio_class);
}

std::optional<std::int64_t> Pacer::Stream::oldest_due_ns() const {
  if (const auto due = cutter_.due_ns()) return due;
  const auto cycle = cycles_.front();
  return cycle ? std::optional(cycle->start_ns) : std::nullopt;
}

void Pacer::Stream::hand_on(std::uint32_t frames, bool too_late) {
  if (frames != 0) too_late ? skip(frames) : release(frames);
}

bool Pacer::is_too_late(std::int64_t now_ns) const {
  return std::any_of(streams_.begin(), streams_.end(), [&](const Stream* stream) {
    const auto due = stream->oldest_due_ns();
    return due && now_ns - *due > kTooLateNs;
  });
}

std::optional<std::int64_t> Pacer::serve_all(std::int64_t now_ns) {
  std::scoped_lock lock(mutex_);
  const bool too_late = is_too_late(now_ns);
  std::optional<std::int64_t> soonest;
  for (Stream* const stream : streams_) {
    CycleCutter& cutter = stream->cutter_;
    while (const auto cycle = stream->cycles_.take()) {
      stream->hand_on(cutter.begin(*cycle), too_late);
      stream->hand_on(cycle->untold, true);
    }
    auto due = cutter.due_ns();
    for (; due && *due <= now_ns; due = cutter.due_ns()) stream->hand_on(cutter.take(), too_late);
    if (due && (!soonest || *due < *soonest)) soonest = due;
  }
  return soonest;
}

}  // namespace sonivo::pipewire
