#include "platform/sim/input.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/window_messages.h"

namespace sonivo::sim {

class SimInput::Hooked final : public Registration {
 public:
  Hooked(SimInput& input, std::uint64_t number) : input_(input), number_(number) {}
  ~Hooked() override { input_.remove(number_); }

 private:
  SimInput& input_;
  const std::uint64_t number_;
};

// ---- Hooks

std::unique_ptr<Registration> SimInput::hook_mouse(MouseHook hook) {
  if (model_.script.enter(Step::hook_mouse) || !hook) return nullptr;
  return install(true, [hook = std::move(hook)](const AnyInput& input) { return hook(std::get<MouseInput>(input)); });
}

std::unique_ptr<Registration> SimInput::hook_keyboard(KeyHook hook) {
  if (model_.script.enter(Step::hook_keyboard) || !hook) return nullptr;
  return install(false, [hook = std::move(hook)](const AnyInput& input) { return hook(std::get<KeyInput>(input)); });
}

std::unique_ptr<Registration> SimInput::install(bool for_mouse, AnyHook hook) {
  auto kept = std::make_shared<const AnyHook>(std::move(hook));
  std::scoped_lock lock(model_.scheduler.mutex());
  hooks_.push_back({++latest_hook_, for_mouse, model_.current_thread(), std::move(kept)});
  return std::make_unique<Hooked>(*this, latest_hook_);
}

void SimInput::remove(std::uint64_t number) {
  model_.script.enter(Step::hook_remove);
  std::shared_ptr<const AnyHook> gone;  // goes without the mutex
  std::scoped_lock lock(model_.scheduler.mutex());
  const auto entry =
      std::find_if(hooks_.begin(), hooks_.end(), [&](const Entry& each) { return each.number == number; });
  gone = std::move(entry->hook);
  hooks_.erase(entry);
  if (asked_ == number) {
    asked_.reset();
    proceed();
  }
}

// ---- The way of an input

void SimInput::enter(AnyInput input) {
  inputs_.push_back({input, std::numeric_limits<std::uint64_t>::max()});
  proceed();
}

void SimInput::proceed() {
  while (!inputs_.empty() && !asked_ && !in_hook_) {
    Pending& pending = inputs_.front();
    if (const auto* mouse = std::get_if<MouseInput>(&pending.input)) model_.pointer = mouse->at;
    if (const Entry* hook = next_hook(pending)) {
      asked_ = pending.passed = hook->number;
      model_.queues.call(hook->owner, [this, number = hook->number] { ask(number); });
      return;
    }
    const AnyInput input = pending.input;
    inputs_.pop_front();
    std::visit([this](const auto& each) { route(each); }, input);
  }
}

const SimInput::Entry* SimInput::next_hook(const Pending& pending) const {
  const bool mouse = std::holds_alternative<MouseInput>(pending.input);
  const auto found = std::find_if(hooks_.rbegin(), hooks_.rend(), [&](const Entry& entry) {
    return entry.for_mouse == mouse && entry.number < pending.passed;
  });
  return found != hooks_.rend() ? &*found : nullptr;
}

// On the hook's thread. The hook may have gone before its thread got here.
void SimInput::ask(std::uint64_t number) {
  std::unique_lock lock(model_.scheduler.mutex());
  if (asked_ != number) return;
  const auto entry =
      std::find_if(hooks_.begin(), hooks_.end(), [&](const Entry& each) { return each.number == number; });
  std::shared_ptr<const AnyHook> hook = entry->hook;
  const AnyInput input = inputs_.front().input;
  asked_.reset();
  in_hook_ = true;
  lock.unlock();
  const bool swallowed = (*hook)(input);
  hook.reset();
  lock.lock();
  in_hook_ = false;
  if (swallowed) inputs_.pop_front();
  proceed();
}

void SimInput::route(const MouseInput& input) {
  if (input.message == kWmLButtonDown) model_.left_down = true;
  if (input.message == kWmLButtonUp) model_.left_down = false;
  if (drag(input.at)) return;
  const WindowHandle target = model_.windows.visible_at(input.at);
  tell_leave(target);
  if (target == WindowHandle::none) return;
  if (input.message == kWmLButtonDown) model_.windows.set_foreground(target);
  const Rect& place = model_.windows.find(target)->place;
  const Point inside{input.at.x - place.left, input.at.y - place.top};
  model_.post({.window = target, .message = input.message, .lParam = point_parameter(inside)});
}

bool SimInput::drag(Point at) {
  Window* const window = model_.windows.find(model_.dragged);
  if (window == nullptr) return false;
  Rect& place = window->place;
  const Point corner{at.x - model_.grip.x, at.y - model_.grip.y};
  if (corner != Point{place.left, place.top}) {
    place = {corner.x, corner.y, corner.x + place.width(), corner.y + place.height()};
    windows_.record(model_.dragged, WindowChange::dragged);
  }
  if (!model_.left_down) model_.dragged = WindowHandle::none;
  return true;
}

void SimInput::tell_leave(WindowHandle under_pointer) {
  for (const WindowHandle handle : model_.windows.order()) {
    Window& window = *model_.windows.find(handle);
    if (handle != under_pointer && std::exchange(window.tracks_leave, false)) {
      model_.post({.window = handle, .message = kWmMouseLeave});
    }
  }
}

void SimInput::route(const KeyInput& input) {
  model_.post({.window = model_.windows.focus(), .message = input.message, .wParam = input.key});
}

// ---- Pointer

bool SimInput::pointer(Point& at) {
  if (model_.script.enter(Step::pointer_position)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  at = model_.pointer;
  return true;
}

bool SimInput::move_pointer(std::int32_t dx, std::int32_t dy) {
  if (model_.script.enter(Step::pointer_move)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  enter(MouseInput{kWmMouseMove, {model_.pointer.x + dx, model_.pointer.y + dy}});
  return true;
}

void SimInput::set_cursor(Cursor cursor) {
  if (model_.script.enter(Step::cursor_set)) return;
  cursor_ = cursor;
}

bool SimInput::track_leave(WindowHandle window) {
  if (model_.script.enter(Step::leave_track)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  Window* const known = model_.windows.find(window);
  if (known == nullptr || !known->ours()) return false;
  known->tracks_leave = true;
  return true;
}

// ---- For tests

void SimInput::mouse(std::uint32_t message, Point at) {
  std::scoped_lock lock(model_.scheduler.mutex());
  enter(MouseInput{message, at});
}

void SimInput::key(std::uint32_t message, std::uint32_t key, bool alt) {
  std::scoped_lock lock(model_.scheduler.mutex());
  enter(KeyInput{message, key, alt});
}

std::size_t SimInput::live_hooks() const {
  std::scoped_lock lock(model_.scheduler.mutex());
  return hooks_.size();
}

}  // namespace sonivo::sim
