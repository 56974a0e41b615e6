#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "relay/ring_buffer.h"

namespace sonivo::test {

using Bytes = std::vector<std::byte>;

inline Bytes bytes(std::string_view text) {
  Bytes result;
  for (const char c : text) result.push_back(static_cast<std::byte>(c));
  return result;
}

inline std::size_t write(RingBuffer& ring, std::string_view text) {
  return ring.Write(reinterpret_cast<const std::byte*>(text.data()), text.size());
}

/// What a read of `len` bytes delivers.
inline Bytes read(RingBuffer& ring, std::size_t len) {
  Bytes data(len + 1);
  data.resize(ring.Read(data.data(), len));
  return data;
}

}  // namespace sonivo::test
