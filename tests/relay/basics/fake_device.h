#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "platform/device.h"

namespace sonivo::test {

/// A device that keeps what it is asked and answers as told.
class FakeDevice final : public Device {
 public:
  struct Request {
    std::uint32_t code = 0;
    std::span<const std::byte> input;
    std::span<std::byte> output;
    Overlapped* overlapped = nullptr;
  };

  Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                Overlapped& request) override {
    requests.push_back({code, input, output, &request});
    request.pending = answer == error::kIoPending;
    if (answer == error::kNone && !reply.empty()) std::memcpy(output.data(), reply.data(), reply.size());
    return answer;
  }
  Error result(Overlapped& request, std::uint32_t& transferred, bool wait) override {
    waits.push_back(wait);
    if (wait) request.pending = false;
    if (outcome == error::kNone && wait && !reply.empty()) {
      std::memcpy(requests.back().output.data(), reply.data(), reply.size());
    }
    transferred = outcome_bytes;
    return outcome;
  }
  void cancel(Overlapped& request) override {
    cancelled.push_back(&request);
    request.pending = false;
  }
  Error control_now(std::uint32_t, std::span<const std::byte>, std::span<std::byte>, std::uint32_t&) override {
    return error::kInvalidFunction;
  }
  void close() override { ++closed; }

  Error answer = error::kIoPending;  ///< of control()
  Error outcome = error::kNone;      ///< of result()
  std::uint32_t outcome_bytes = 0;   ///< reported with the outcome
  std::vector<std::byte> reply;      ///< written into the output of a request that is done

  std::vector<Request> requests;
  std::vector<bool> waits;  ///< of result(), in order
  std::vector<Overlapped*> cancelled;
  int closed = 0;
};

}  // namespace sonivo::test
