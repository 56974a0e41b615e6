#include "host/endpoint_ids.h"

#include "base/text.h"
#include "base/trace.h"

namespace sonivo {

std::string ReadEndpointId(HostState& host, DataFlow flow) {
  control::WireText id{};
  std::uint32_t bytes = 0;
  const std::lock_guard lock(host.m_csDriver);
  const int read = flow == DataFlow::capture ? host.m_DriverAccess.GetCaptureEndpointId(id, &bytes)
                                             : host.m_DriverAccess.GetRenderEndpointId(id, &bytes);
  return read != 0 ? to_utf8({id.data(), bytes / sizeof(char16_t)}) : std::string();
}

std::string FindEndpointId(HostState& host, DataFlow flow) {
  std::string id = ReadEndpointId(host, flow);
  if (!id.empty()) return id;
  const bool capture = flow == DataFlow::capture;
  trace(TraceLevel::warning,
        capture ? "[cap] capture endpoint id was not found.\n" : "[ren] render endpoint id was not found.\n");
  return id;
}

}  // namespace sonivo
