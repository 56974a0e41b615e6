#include "platform/linux/control_bus.h"

#include <pthread.h>

#include <system_error>
#include <utility>

#include "platform/control_requests.h"
#include "platform/linux/synchronous_control.h"

namespace sonivo::linux {
namespace {

class LinkNotice final : public Registration {
 public:
  LinkNotice(std::shared_ptr<OverlappedLink> link, DeviceActionCallback call)
      : link_(std::move(link)), notice_{.call = std::move(call)} {
    link_->add(notice_);
  }
  ~LinkNotice() override { link_->remove(notice_); }

 private:
  std::shared_ptr<OverlappedLink> link_;
  OverlappedLink::Notice notice_;
};

}  // namespace

ControlBus::~ControlBus() {
  for (Reader& each : readers_) {
    each.link->close();
    each.thread.join();
  }
}

std::vector<DeviceInterface> ControlBus::interfaces(const Guid& category) {
  if (category != control::kControlInterface || !is_listened_at(path_)) return {};
  return {{path_, "NorvellSonivoDriver"}};
}

std::shared_ptr<Device> ControlBus::open(const std::string& path, Sharing, Completion completion, Error& why) {
  why = error::kFileNotFound;
  if (path != path_) return nullptr;
  Descriptor socket = connect_control(path_, why, limit_);
  if (why == error::kDeviceNotConnected) links_->lose_all();
  if (!socket.is_open()) return nullptr;
  if (completion == Completion::synchronous) {
    return std::make_shared<SynchronousControl>(std::move(socket), limit_, losing_all());
  }
  return open_overlapped(std::move(socket), why);
}

std::shared_ptr<Device> ControlBus::open_overlapped(Descriptor socket, Error& why) {
  std::scoped_lock lock(mutex_);
  join_ended();
  auto link = std::make_shared<OverlappedLink>(std::move(socket), limit_, losing_all());
  auto done = std::make_shared<std::atomic<bool>>(false);
  const auto read = [link, done] {
    ::pthread_setname_np(::pthread_self(), "control reader");
    link->run();
    done->store(true);
  };
  try {
    readers_.push_back({link, done, std::thread(read)});
  } catch (const std::system_error&) {
    why = error::kBusy;
    return nullptr;
  }
  links_->add(link);
  return std::make_shared<OverlappedControl>(std::move(link));
}

std::function<void()> ControlBus::losing_all() const {
  return [links = links_] { links->lose_all(); };
}

void ControlBus::join_ended() {
  std::erase_if(readers_, [](Reader& each) {
    if (!each.done->load()) return false;
    each.thread.join();
    return true;
  });
}

std::unique_ptr<RemovalNotice> ControlBus::notify_removal(const DeviceBroadcast&, WindowHandle) { return nullptr; }

std::unique_ptr<Registration> ControlBus::notify_actions(const Device& device, DeviceActionCallback callback) {
  const auto* const handle = dynamic_cast<const OverlappedControl*>(&device);
  if (handle == nullptr || !callback) return nullptr;
  return std::make_unique<LinkNotice>(handle->link(), std::move(callback));
}

}  // namespace sonivo::linux
