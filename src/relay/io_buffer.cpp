#include "relay/io_buffer.h"

#include <algorithm>
#include <utility>

namespace sonivo {

IOBuffer::~IOBuffer() { Unbind(); }

void IOBuffer::Unbind() {
  CancelOutstanding();
  m_event.reset();
  m_hDevice.reset();
}

// Whether the request is done by now is for the device to tell, which completes it on a thread of its own.
void IOBuffer::CancelOutstanding() {
  if (m_outstanding) m_hDevice->cancel(m_overlapped);
  m_outstanding = false;
}

bool IOBuffer::BindDevice(Events& events, std::shared_ptr<Device> device) {
  Unbind();
  m_hDevice = std::move(device);
  m_event = events.create(Reset::manual);
  m_overlapped = Overlapped{.hEvent = m_event.get()};
  return m_event != nullptr;
}

void IOBuffer::Allocate(std::size_t size) {
  m_size = size;
  m_data = std::make_unique<std::byte[]>(size);
}

void IOBuffer::Fill(std::byte value) { std::fill_n(m_data.get(), m_size, value); }

bool IOBuffer::Submit(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output) {
  if (!m_hDevice || !m_event) {
    m_lastError = error::kInvalidHandle;
    return false;
  }
  m_lastError = m_hDevice->control(code, input, output, m_overlapped);
  m_outstanding = m_lastError == error::kIoPending;
  return m_lastError == error::kNone || m_outstanding;
}

bool IOBuffer::SubmitWrite() { return Submit(kControlTransfer, Data(), {}); }

bool IOBuffer::SubmitRead() { return Submit(kControlTransfer, {}, Data()); }

bool IOBuffer::GetResult(std::uint32_t* bytes, bool wait) {
  if (!m_hDevice) {
    m_lastError = error::kInvalidHandle;
    return false;
  }
  m_lastError = m_hDevice->result(m_overlapped, m_transferred, wait);
  if (m_lastError == error::kNone) m_outstanding = false;
  if (bytes != nullptr) *bytes = m_transferred;
  return m_lastError == error::kNone;
}

bool IOBuffer::WaitStream(WAVEFORMATEXTENSIBLE& format) {
  if (!Submit(kControlWaitStream, {}, std::as_writable_bytes(std::span(&format, 1)))) return false;
  return m_lastError == error::kNone || GetResult(nullptr, true);
}

bool IOBuffer::SetFeedback(std::int32_t value) {
  CancelOutstanding();
  m_feedback = value;
  return Submit(kControlFeedback, std::as_bytes(std::span(&m_feedback, 1)), {});
}

}  // namespace sonivo
