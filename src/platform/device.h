#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/event.h"
#include "base/guid.h"
#include "base/status.h"
#include "platform/message.h"
#include "platform/registration.h"

namespace sonivo {

/// State of one overlapped request. Its owner keeps it, the buffers and the event in place until it is done or
/// cancelled.
struct Overlapped {
  Event* hEvent = nullptr;  ///< of either kind; cleared when the request starts, set when it is done
  bool pending = false;
  Error error = error::kNone;     ///< outcome, once not pending
  std::uint32_t transferred = 0;  ///< bytes, once not pending
};

/// An open handle to a device. Any thread may call any operation.
class Device {
 public:
  virtual ~Device() = default;

  /// Starts numbered control request `code`. 0: done at once; error::kIoPending: done when the event fires; anything
  /// else: refused. `input` and `output` are used until the request is done.
  virtual Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                        Overlapped& request) = 0;

  /// Outcome of a request, waiting for it on demand; error::kIoPending when it isn't done and `wait` is false.
  virtual Error result(Overlapped& request, std::uint32_t& transferred, bool wait) = 0;

  /// Ends a pending request with error::kOperationAborted; afterwards nothing touches it, its buffers or its event.
  virtual void cancel(Overlapped& request) = 0;

  /// Synchronous form.
  virtual Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                            std::uint32_t& transferred) = 0;

  /// Closes the handle: pending requests end with error::kOperationAborted, later ones fail with kInvalidHandle.
  /// Afterwards nothing touches the requests, their buffers or their events.
  virtual void close() = 0;
};

struct DeviceInterface {
  std::string path;
  std::string service;  ///< name of the driver service that answers behind it
};

enum class Sharing { exclusive, shared };

/// Whether the requests of a handle may stay pending. Through a synchronous handle Device::control returns when the
/// request is done, and never answers error::kIoPending.
enum class Completion { overlapped, synchronous };

/// What happens to the device behind a handle.
enum class DeviceAction : std::uint32_t {
  query_remove = 2,
  query_remove_failed = 3,
  remove_pending = 4,
  remove_complete = 5,
  custom_event = 6,
};
/// Called on a thread of the machine's own; the answer is ignored.
using DeviceActionCallback = std::function<std::uint32_t(DeviceAction action)>;

/// Keeps a removal notice alive; destroying it drops the notice.
class RemovalNotice {
 public:
  virtual ~RemovalNotice() = default;
};

/// What kWmDeviceChange with kDeviceQueryRemove carries.
struct DeviceBroadcast {
  std::uint32_t devicetype = 0;
  const Device* handle = nullptr;
};
inline constexpr std::uint32_t kDeviceQueryRemove = 0x8001;
inline constexpr std::uint32_t kDeviceTypeHandle = 6;

class DeviceBus {
 public:
  virtual ~DeviceBus() = default;
  /// Present interfaces of a class, in the machine's order.
  virtual std::vector<DeviceInterface> interfaces(const Guid& category) = 0;
  /// Null, with the reason in `why`, when the path can't be opened.
  virtual std::shared_ptr<Device> open(const std::string& path, Sharing sharing, Completion completion, Error& why) = 0;
  /// Has `window` told before the device behind `device` goes. Null when that can't be had.
  virtual std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) = 0;
  /// Has the callback told what happens to the device behind the handle. Null when that can't be had. Once the
  /// registration is destroyed the callback isn't called any more, and no call is under way unless made by the
  /// destroying thread.
  virtual std::unique_ptr<Registration> notify_actions(const Device& device, DeviceActionCallback callback) = 0;
};

}  // namespace sonivo
