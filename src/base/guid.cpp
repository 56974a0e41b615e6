#include "base/guid.h"

#include <cstdio>

namespace sonivo {

std::string to_text(const Guid& guid) {
  char text[39];
  const auto& d = guid.data4;
  std::snprintf(text, sizeof text, "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", guid.data1, guid.data2,
                guid.data3, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
  return text;
}

}  // namespace sonivo
