#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "base/event.h"
#include "platform/device.h"
#include "platform/wave_format.h"

namespace sonivo {

/// Control codes of the virtual device's audio half.
inline constexpr std::uint32_t kControlWaitStream = 0x80000000;
inline constexpr std::uint32_t kControlTransfer = 0x80000004;
inline constexpr std::uint32_t kControlFeedback = 0x80000008;

/// One overlapped request to the virtual device, with memory and event of its own. A request is submitted again only
/// after its event has fired; a pending one is cancelled before the buffer goes. Operations that answer false leave the
/// error number in LastError.
class IOBuffer {
 public:
  IOBuffer() = default;
  virtual ~IOBuffer();
  IOBuffer(const IOBuffer&) = delete;
  IOBuffer& operator=(const IOBuffer&) = delete;

  /// Binds to an open device, which the caller goes on to own and to close; false when no event can be had.
  bool BindDevice(Events& events, std::shared_ptr<Device> device);
  void Allocate(std::size_t size);
  void Fill(std::byte value);
  std::span<std::byte> Data() { return {m_data.get(), m_size}; }

  /// Capture: hands the memory to the virtual microphone.
  bool SubmitWrite();
  /// Render: has the memory filled by the virtual speaker.
  bool SubmitRead();
  /// Outcome of the request, waiting for it on demand; the byte count is stored when a pointer is given.
  bool GetResult(std::uint32_t* bytes, bool wait);

  /// Blocks until an application opens the virtual endpoint and gives the format that it opened it in.
  bool WaitStream(WAVEFORMATEXTENSIBLE& format);
  /// Tells the driver to trim the virtual stream's clock: -1 slower, 0 nominal, 1 faster. Isn't waited for; a value
  /// that the driver hasn't taken by the next call is superseded.
  bool SetFeedback(std::int32_t value);

  /// Fires when the request is done; null until bound.
  Event* DoneEvent() const { return m_event.get(); }
  Error LastError() const { return m_lastError; }

 private:
  bool Submit(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output);
  void Unbind();
  void CancelOutstanding();

  std::unique_ptr<std::byte[]> m_data;
  std::size_t m_size = 0;
  Overlapped m_overlapped;
  bool m_outstanding = false;  // submitted, and not yet seen to have succeeded
  std::unique_ptr<Event> m_event;
  std::uint32_t m_transferred = 0;
  std::int32_t m_feedback = 0;  // kept here, as the driver may read it after SetFeedback has returned
  std::shared_ptr<Device> m_hDevice;
  Error m_lastError = error::kNone;
};

}  // namespace sonivo
