#include "platform/linux/overlapped_control.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/linux/control_socket.h"

namespace sonivo::linux {

void OverlappedLink::run() {
  {
    std::scoped_lock lock(mutex_);
    reader_ = std::this_thread::get_id();
  }
  std::vector<std::byte> buffer(control::kMaxPayload);
  control::ReplyHead head;
  while (receive_control(socket_.number(), head, buffer) == Received::reply) {
    complete({head, std::span<const std::byte>(buffer).first(head.transferred)});
  }
  std::unique_lock lock(mutex_);
  lost_ = true;
  finish_all(closed_ ? error::kOperationAborted : error::kDeviceNotConnected);
  tell_notices(lock);
}

/// Until the link is closed, so that the loss is told to notices that come later, too.
void OverlappedLink::tell_notices(std::unique_lock<std::mutex>& lock) {
  const auto next = [&] {
    return std::find_if(notices_.begin(), notices_.end(), [](const Notice* each) { return !each->told; });
  };
  for (;;) {
    changed_.wait(lock, [&] { return closed_ || next() != notices_.end(); });
    if (closed_) return;
    Notice& notice = **next();
    notice.told = true;
    in_call_ = &notice;
    const DeviceActionCallback call = notice.call;  // may end its own registration
    lock.unlock();
    call(DeviceAction::remove_pending);
    lock.lock();
    in_call_ = nullptr;
    changed_.notify_all();
  }
}

void OverlappedLink::add(Notice& notice) {
  std::scoped_lock lock(mutex_);
  notices_.push_back(&notice);
  changed_.notify_all();
}

void OverlappedLink::remove(Notice& notice) {
  std::unique_lock lock(mutex_);
  std::erase(notices_, &notice);
  if (std::this_thread::get_id() == reader_) return;
  changed_.wait(lock, [&] { return in_call_ != &notice; });
}

void OverlappedLink::complete(const control::Reply& reply) {
  std::scoped_lock lock(mutex_);
  const auto found = pending_.find(reply.head.id);
  if (found == pending_.end()) return;  // cancelled meanwhile
  const std::span<std::byte> output = found->second.output;
  if (reply.output.size() > output.size()) return finish(found, error::kInvalidData, 0);
  std::copy(reply.output.begin(), reply.output.end(), output.begin());
  finish(found, reply.head.error, reply.head.transferred);
}

OverlappedLink::PendingRequests::iterator OverlappedLink::find(const Overlapped& request) {
  return std::find_if(pending_.begin(), pending_.end(),
                      [&](const auto& each) { return each.second.request == &request; });
}

void OverlappedLink::finish(PendingRequests::iterator pending, Error error, std::uint32_t transferred) {
  Overlapped& request = *pending->second.request;
  pending_.erase(pending);
  request.pending = false;
  request.error = error;
  request.transferred = transferred;
  if (request.hEvent != nullptr) request.hEvent->set();
  changed_.notify_all();
}

void OverlappedLink::finish_all(Error error) {
  while (!pending_.empty()) finish(pending_.begin(), error, 0);
}

Error OverlappedLink::start(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                            Overlapped& request) {
  std::scoped_lock lock(mutex_);
  request = {.hEvent = request.hEvent, .pending = true, .error = error::kIoPending};
  if (request.hEvent != nullptr) request.hEvent->reset();
  while (pending_.contains(++latest_id_)) {
  }
  const auto pending = pending_.emplace(latest_id_, Pending{&request, output, may_pend(code)}).first;
  Error refused = error::kNone;
  if (closed_) {
    refused = error::kInvalidHandle;
  } else if (lost_) {
    refused = error::kDeviceNotConnected;
  } else if (input.size() > control::kMaxPayload || output.size() > control::kMaxPayload) {
    refused = error::kInvalidParameter;
  } else {
    const control::RequestHead head{latest_id_, control::RequestKind::control, code,
                                    static_cast<std::uint32_t>(input.size()),
                                    static_cast<std::uint32_t>(output.size())};
    refused = send_control(socket_.number(), head, input);
  }
  if (refused == error::kNone) return error::kIoPending;
  finish(pending, refused, 0);
  return refused;
}

Error OverlappedLink::result(Overlapped& request, std::uint32_t& transferred, bool wait) {
  std::unique_lock lock(mutex_);
  if (request.pending && !wait) return error::kIoPending;
  const auto done = [&] { return !request.pending; };
  const auto found = find(request);
  const bool pends = found != pending_.end() && found->second.pends;
  if (!pends && !changed_.wait_for(lock, limit_, done)) {
    lock.unlock();
    hangs_();
    lock.lock();
  }
  changed_.wait(lock, done);
  transferred = request.transferred;
  return request.error;
}

void OverlappedLink::cancel(Overlapped& request) {
  std::scoped_lock lock(mutex_);
  const auto found = find(request);
  if (found == pending_.end()) return;
  send_control(socket_.number(), control::cancel_of(found->first), {});
  finish(found, error::kOperationAborted, 0);
}

void OverlappedLink::close() {
  std::scoped_lock lock(mutex_);
  if (closed_) return;
  closed_ = true;
  finish_all(error::kOperationAborted);
  ::shutdown(socket_.number(), SHUT_RDWR);
  changed_.notify_all();
}

void OverlappedLink::lose() {
  std::scoped_lock lock(mutex_);
  ::shutdown(socket_.number(), SHUT_RDWR);  // the reader does the rest
}

Error OverlappedControl::control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                                     std::uint32_t& transferred) {
  Overlapped request;
  const Error outcome = link_->start(code, input, output, request);
  if (outcome != error::kIoPending) return outcome;
  return link_->result(request, transferred, true);
}

}  // namespace sonivo::linux
