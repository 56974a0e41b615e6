#include "platform/sim/echo_filter.h"

#include <algorithm>
#include <cstring>

namespace sonivo::sim {

class EchoFilter::Handle final : public Device {
 public:
  explicit Handle(EchoFilter& filter) : filter_(filter) {}
  ~Handle() override { close(); }

  Error control(std::uint32_t, std::span<const std::byte>, std::span<std::byte>, Overlapped& request) override {
    request.pending = false;
    request.error = error::kInvalidFunction;
    return error::kInvalidFunction;
  }
  Error result(Overlapped& request, std::uint32_t& transferred, bool) override {
    transferred = request.transferred;
    return request.error;
  }
  void cancel(Overlapped&) override {}

  Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                    std::uint32_t& transferred) override {
    transferred = 0;
    if (const auto failure = filter_.script_.enter(Step::filter_control)) return *failure;
    std::scoped_lock lock(filter_.scheduler_.mutex());
    if (closed_) return error::kInvalidHandle;
    if (code != kEchoFilterMute) return error::kInvalidFunction;
    return filter_.tell(input, output, transferred);
  }

  void close() override {
    std::scoped_lock lock(filter_.scheduler_.mutex());
    if (closed_) return;
    closed_ = true;
    --filter_.open_handles_;
  }

 private:
  EchoFilter& filter_;
  bool closed_ = false;
};

EchoFilter::EchoFilter(Scheduler& scheduler, Script& script, bool present)
    : scheduler_(scheduler), script_(script), present_(present) {}

std::shared_ptr<Device> EchoFilter::open(Error& why) {
  const auto failure = script_.enter(Step::filter_open);
  std::scoped_lock lock(scheduler_.mutex());
  why = failure.value_or(present_ ? error::kNone : error::kFileNotFound);
  if (why != error::kNone) return nullptr;
  ++open_handles_;
  return std::make_shared<Handle>(*this);
}

Error EchoFilter::tell(std::span<const std::byte> input, std::span<std::byte> output, std::uint32_t& transferred) {
  std::uint32_t value = 0;
  if (input.size() != sizeof value || output.size() < sizeof value) return error::kInvalidParameter;
  std::memcpy(&value, input.data(), sizeof value);
  values_.push_back(value);
  std::memcpy(output.data(), &answer_, std::min<std::size_t>(answer_bytes_, sizeof answer_));
  transferred = answer_bytes_;
  return error::kNone;
}

void EchoFilter::set_present(bool present) {
  std::scoped_lock lock(scheduler_.mutex());
  present_ = present;
}

void EchoFilter::set_answer(std::uint32_t value, std::uint32_t bytes) {
  std::scoped_lock lock(scheduler_.mutex());
  answer_ = value;
  answer_bytes_ = bytes;
}

std::vector<std::uint32_t> EchoFilter::values() const {
  std::scoped_lock lock(scheduler_.mutex());
  return values_;
}

std::size_t EchoFilter::open_handles() const {
  std::scoped_lock lock(scheduler_.mutex());
  return open_handles_;
}

}  // namespace sonivo::sim
