#include "host/endpoint_ids.h"

#include "base/text.h"

namespace sonivo {

std::string ReadEndpointId(HostState& host, DataFlow flow) {
  control::WireText id{};
  std::uint32_t bytes = 0;
  const std::lock_guard lock(host.m_csDriver);
  const int read = flow == DataFlow::capture ? host.m_DriverAccess.GetCaptureEndpointId(id, &bytes)
                                             : host.m_DriverAccess.GetRenderEndpointId(id, &bytes);
  return read != 0 ? to_utf8({id.data(), bytes / sizeof(char16_t)}) : std::string();
}

}  // namespace sonivo
