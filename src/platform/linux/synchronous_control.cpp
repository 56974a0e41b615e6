#include "platform/linux/synchronous_control.h"

#include <sys/socket.h>

#include <algorithm>

namespace sonivo::linux {

Error SynchronousControl::control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                                  Overlapped& request) {
  return run(code, input, output, request);
}

Error SynchronousControl::control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                                      std::uint32_t& transferred) {
  Overlapped request;
  const Error outcome = run(code, input, output, request);
  transferred = request.transferred;
  return outcome;
}

Error SynchronousControl::run(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                              Overlapped& request) {
  std::unique_lock lock(mutex_);
  request = {.hEvent = request.hEvent, .pending = true, .error = error::kIoPending};
  if (request.hEvent != nullptr) request.hEvent->reset();
  Turn turn{.request = &request};
  turns_.push_back(&turn);
  std::uint32_t transferred = 0;
  const Error outcome = closed_ ? error::kInvalidHandle : take_turn(lock, turn, code, input, output, transferred);
  request.pending = false;
  request.error = outcome;
  request.transferred = transferred;
  if (request.hEvent != nullptr) request.hEvent->set();
  std::erase(turns_, &turn);
  changed_.notify_all();
  return outcome;
}

Error SynchronousControl::take_turn(std::unique_lock<std::mutex>& lock, Turn& turn, std::uint32_t code,
                                    std::span<const std::byte> input, std::span<std::byte> output,
                                    std::uint32_t& transferred) {
  if (input.size() > control::kMaxPayload || output.size() > control::kMaxPayload) return error::kInvalidParameter;
  changed_.wait(lock, [&] { return !busy_ || turn.cancelled || closed_; });
  if (turn.cancelled || closed_) return error::kOperationAborted;
  if (lost_) return error::kDeviceNotConnected;
  const control::RequestHead head{++latest_id_, control::RequestKind::control, code,
                                  static_cast<std::uint32_t>(input.size()), static_cast<std::uint32_t>(output.size())};
  // Nothing else is under way, so that the socket takes it at once.
  if (const Error failed = send_control(socket_.number(), head, input); failed != error::kNone) return failed;
  busy_ = true;
  turn.id = head.id;
  lock.unlock();
  control::ReplyHead reply;
  const Received received = receive(reply, output, may_pend(code));
  lock.lock();
  busy_ = false;
  if (received == Received::nothing) lose(lock);
  if (turn.cancelled) return error::kOperationAborted;  // an event in the reply is the next request's
  if (received != Received::reply || reply.id != head.id) {
    return closed_ ? error::kOperationAborted : error::kDeviceNotConnected;
  }
  transferred = reply.transferred;
  return reply.error;
}

Received SynchronousControl::receive(control::ReplyHead& reply, std::span<std::byte> output, bool pends) const {
  for (;;) {
    const Received received = receive_control(socket_.number(), reply, output);
    if (received != Received::nothing || !pends) return received;
  }
}

void SynchronousControl::lose(std::unique_lock<std::mutex>& lock) {
  lost_ = true;
  ::shutdown(socket_.number(), SHUT_RDWR);
  lock.unlock();
  hangs_();
  lock.lock();
}

Error SynchronousControl::result(Overlapped& request, std::uint32_t& transferred, bool wait) {
  std::unique_lock lock(mutex_);
  if (request.pending && !wait) return error::kIoPending;
  changed_.wait(lock, [&] { return !request.pending; });
  transferred = request.transferred;
  return request.error;
}

void SynchronousControl::cancel(Overlapped& request) {
  std::unique_lock lock(mutex_);
  const auto its_turn = [&] {
    return std::find_if(turns_.begin(), turns_.end(), [&](const Turn* each) { return each->request == &request; });
  };
  const auto found = its_turn();
  if (found == turns_.end()) return;
  (*found)->cancelled = true;
  if ((*found)->id != 0) send_control(socket_.number(), control::cancel_of((*found)->id), {});
  changed_.notify_all();
  const auto ended = [&] { return its_turn() == turns_.end(); };
  if (!changed_.wait_for(lock, limit_, ended)) lose(lock);
  changed_.wait(lock, ended);
}

void SynchronousControl::close_and_wait() {
  std::unique_lock lock(mutex_);
  closed_ = true;
  if (socket_.is_open()) ::shutdown(socket_.number(), SHUT_RDWR);
  changed_.notify_all();
  changed_.wait(lock, [&] { return turns_.empty(); });
  socket_.close();
}

}  // namespace sonivo::linux
