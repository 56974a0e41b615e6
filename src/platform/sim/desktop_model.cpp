#include "platform/sim/desktop_model.h"

#include <utility>

namespace sonivo::sim {

void DesktopModel::post(const Message& message) {
  const Window* const window = windows.find(message.window);
  if (window != nullptr && window->ours()) queues.post(window->owner, message);
}

void DesktopModel::send(Message message, std::shared_ptr<const void> record, Answered answered) {
  const Window* const window = windows.find(message.window);
  if (window == nullptr || !window->ours()) {
    if (answered) answered(std::nullopt);
    return;
  }
  queues.call(window->owner, [this, message, record = std::move(record), answered = std::move(answered)] {
    const auto answer = call(message);
    if (!answered) return;
    std::scoped_lock lock(scheduler.mutex());
    answered(answer);
  });
}

std::size_t DesktopModel::send_to_all(std::uint32_t message, std::uint64_t wParam, const Answered& answered) {
  std::size_t count = 0;
  for (const WindowHandle handle : windows.order()) {
    if (!windows.find(handle)->ours()) continue;
    send({.window = handle, .message = message, .wParam = wParam}, nullptr, answered);
    ++count;
  }
  return count;
}

void DesktopModel::ask_for_paint(WindowHandle handle) {
  const Window* const window = windows.find(handle);
  if (window != nullptr && window->ours() && window->visible && window->invalid) {
    queues.of(window->owner).arrival.signal();
  }
}

std::optional<std::int64_t> DesktopModel::call(const Message& message) {
  std::shared_ptr<const WindowProcedure> procedure;
  {
    std::scoped_lock lock(scheduler.mutex());
    const Window* const window = windows.find(message.window);
    if (window != nullptr) procedure = window->procedure;
  }
  if (!procedure) return std::nullopt;
  return (*procedure)(message);
}

}  // namespace sonivo::sim
