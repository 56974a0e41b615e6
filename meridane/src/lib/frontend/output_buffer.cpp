#include "meridane/frontend/output_buffer.h"

#include <algorithm>

#include "meridane/error.h"

namespace meridane {
namespace {

constexpr std::size_t kRecordValues = 16;  // what holding something takes beside its values

std::size_t charge(const Vector& frame) { return kRecordValues + static_cast<std::size_t>(frame.size()); }

std::size_t charge(const FlowData& data) {
  if (const auto* word = std::get_if<std::string>(&data)) return kRecordValues + word->size() / sizeof(float);
  if (const auto* frames = std::get_if<Matrix>(&data)) return kRecordValues + static_cast<std::size_t>(frames->size());
  return charge(std::get<Vector>(data));
}

Eigen::Index frame_count(const FlowData& data) {
  const auto* frames = std::get_if<Matrix>(&data);
  return frames == nullptr ? 1 : frames->cols();
}

}  // namespace

const char* port_type_name(PortType type) { return type == PortType::vector ? "vector" : "word"; }

PortType port_type(const FlowData& data) {
  return std::holds_alternative<std::string>(data) ? PortType::word : PortType::vector;
}

void expect_same_type(PortType to, PortType from) {
  if (to == from) return;
  raise<TypeMismatchError>("Flow types are mismatched (expected=%s;expected=%s)", port_type_name(to),
                           port_type_name(from));
}

void FlowBudget::take(std::size_t values) {
  if (values > kMostWaiting - waiting_) raise("More than %zu values wait in the flow", kMostWaiting);
  waiting_ += values;
}

void FlowShare::take(std::size_t values) {
  if (budget_ != nullptr) budget_->take(values);
  taken_ += values;
}

void FlowShare::give(std::size_t values) {
  if (budget_ != nullptr) budget_->give(values);
  taken_ -= values;
}

void FrameQueue::push(const Vector& frame) {
  share_.take(charge(frame));
  frames_.push_back(frame);
}

Vector FrameQueue::pop() {
  Vector oldest = std::move(frames_.front());
  frames_.pop_front();
  share_.give(charge(oldest));
  return oldest;
}

void FrameQueue::clear() {
  frames_.clear();
  share_.give_all();
}

void OutputBuffer::add_handlers(PackHandler on_pack, DataHandler on_data) {
  handlers_.push_back({std::move(on_pack), std::move(on_data)});
}

void OutputBuffer::start() {
  if (in_session_) raise("is in session already");
  in_session_ = true;
  frames_ = 0;
  collect(PackInfo{PackInfo::Kind::start});
}

void OutputBuffer::put(FlowData&& data) {
  if (!in_session_) raise("is not in session");
  const auto frames = static_cast<std::uint64_t>(frame_count(data));
  collect(std::move(data));
  frames_ += frames;
}

void OutputBuffer::end() {
  if (!in_session_) raise("is not in session");
  collect(PackInfo{PackInfo::Kind::end, frames_});
  in_session_ = false;
}

void OutputBuffer::collect(Record record) {
  const auto* data = std::get_if<FlowData>(&record);
  share_.take(data == nullptr ? kRecordValues : charge(*data));
  records_.push_back(std::move(record));
}

void OutputBuffer::deliver() {
  for (const Record& record : records_) {
    for (const auto& [on_pack, on_data] : handlers_) {
      if (const auto* pack = std::get_if<PackInfo>(&record)) {
        on_pack(*pack);
      } else {
        on_data(std::get<FlowData>(record));
      }
    }
  }
  forget();
}

Matrix OutputBuffer::take() {
  Eigen::Index rows = -1;
  Eigen::Index cols = 0;
  bool is_one_size = true;
  const auto for_each_block = [this](const auto& use) {
    for (const Record& record : records_) {
      const auto* data = std::get_if<FlowData>(&record);
      if (data == nullptr) continue;
      if (const auto* frame = std::get_if<Vector>(data)) use(*frame);
      if (const auto* frames = std::get_if<Matrix>(data)) use(*frames);
    }
  };
  for_each_block([&](const auto& block) {
    is_one_size = is_one_size && (rows < 0 || block.rows() == rows);
    rows = block.rows();
    cols += block.cols();
  });
  if (!is_one_size) {
    forget();
    raise("number of dimentions of input data does not accord");
  }
  Matrix taken(std::max<Eigen::Index>(rows, 0), cols);
  Eigen::Index done = 0;
  for_each_block([&](const auto& block) {
    taken.middleCols(done, block.cols()) = block;
    done += block.cols();
  });
  forget();
  return taken;
}

void OutputBuffer::clear() {
  forget();
  in_session_ = false;
}

void OutputBuffer::forget() {
  records_.clear();
  share_.give_all();
}

}  // namespace meridane
