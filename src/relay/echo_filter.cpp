#include "relay/echo_filter.h"

#include <span>
#include <utility>

namespace sonivo {
namespace {

constexpr char kFilterPath[] = "\\\\.\\KELVARECFILTER";
constexpr std::uint32_t kControlMuteState = 0x9C40E0A0;

}  // namespace

bool EchoFilter::NotifyEchoFilter(std::uint32_t value) {
  const std::lock_guard lock(m_cs);
  m_refused.reset();
  Error why = error::kNone;
  auto filter = m_bus.open(kFilterPath, Sharing::shared, Completion::overlapped, why);
  if (!filter) return false;
  std::int32_t out = -1;
  std::uint32_t bytes = 0;
  const Error outcome = filter->control_now(kControlMuteState, std::as_bytes(std::span(&value, 1)),
                                            std::as_writable_bytes(std::span(&out, 1)), bytes);
  if (outcome != error::kNone) m_refused = std::move(filter);
  return outcome == error::kNone && bytes == sizeof out && out == 0;
}

}  // namespace sonivo
