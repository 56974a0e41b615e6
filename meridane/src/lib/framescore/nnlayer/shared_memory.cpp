#include "lib/framescore/nnlayer/shared_memory.h"

#include <limits>

namespace meridane {
namespace {

std::string numbered(const char* name, std::size_t i) { return name + ("[" + std::to_string(i) + "]"); }

}  // namespace

void SMStorer::weight(const char* name, Weight& weight) {
  manager_.construct<std::uint64_t>(std::string(name) + "_rows", static_cast<std::uint64_t>(weight.rows()));
  manager_.construct<std::uint64_t>(std::string(name) + "_cols", static_cast<std::uint64_t>(weight.cols()));
}

void SMStorer::vector(const char* name, StoredVector& vector) {
  manager_.construct<std::uint64_t>(std::string(name) + "_size", static_cast<std::uint64_t>(vector.size()));
}

void SMStorer::column(const char* name, StoredVector& column, const char*) { vector(name, column); }
void SMStorer::quantized(const char*, QuantizedMatrix&) { raise("NOT IMPLEMENTED"); }
void SMStorer::number(const char* name, float& value, float) { manager_.construct<float>(name, value); }
void SMStorer::integer(const char* name, std::int32_t& value, std::int32_t) {
  manager_.construct<std::int32_t>(name, value);
}
void SMStorer::whole(const char* name, std::int32_t& value, std::int32_t otherwise, std::int32_t) {
  integer(name, value, otherwise);
}
void SMStorer::flag(const char* name, bool& value, bool) { manager_.construct<std::int32_t>(name, value ? 1 : 0); }
void SMStorer::size(const char* name, std::uint64_t& value, std::uint64_t) {
  manager_.construct<std::uint64_t>(name, value);
}
void SMStorer::sizes(const char* name, std::span<std::int32_t> values, std::int32_t, const char*, bool) {
  for (std::size_t i = 0; i < values.size(); ++i) manager_.construct<std::int32_t>(numbered(name, i), values[i]);
}
void SMStorer::parts(const char* name, std::int32_t& count, const VisitPart& visit) {
  manager_.construct<std::int32_t>(std::string("n") + name, count);
  for (std::int32_t i = 0; i < count; ++i) visit(*this, i, numbered(name, static_cast<std::size_t>(i)) + "::");
}
void SMStorer::implied(const char*, std::int64_t) {}
void SMStorer::stated(const char*, std::int32_t&) {}
void SMStorer::mandatory(const char* name, std::int32_t& value) { integer(name, value, 0); }
void SMStorer::word(const char* name, std::int32_t& value, const Words&) { integer(name, value, 0); }
void SMStorer::text(const char* name, std::string& value) { manager_.construct_text(name, value); }
void SMStorer::mandatory_text(const char* name, std::string& value) { text(name, value); }

void SMAttacher::raise_missing(const std::string& name) const {
  raise("%s::%s data does not exist in shared memory.", class_name_.c_str(), name.c_str());
}

std::uint64_t SMAttacher::stored_size(const std::string& name) const {
  const auto* const found = manager_.find<std::uint64_t>(name);
  if (found == nullptr) raise_missing(name);
  return *found;
}

std::shared_ptr<float> SMAttacher::block(const std::string& name, std::uint64_t count) const {
  float* const found = manager_.find_floats(name, count);
  if (found == nullptr) raise_missing(name);
  return {found, [](float*) {}};
}

void SMAttacher::weight(const char* name, Weight& weight) {
  const std::uint64_t rows = stored_size(std::string(name) + "_rows");
  const std::uint64_t cols = stored_size(std::string(name) + "_cols");
  if (cols != 0 && rows > std::numeric_limits<std::uint64_t>::max() / cols) raise_missing(name);
  weight.set(block(name, rows * cols), static_cast<Eigen::Index>(rows), static_cast<Eigen::Index>(cols));
}

void SMAttacher::vector(const char* name, StoredVector& vector) {
  const std::uint64_t count = stored_size(std::string(name) + "_size");
  vector.set(block(name, count), static_cast<Eigen::Index>(count));
}

void SMAttacher::column(const char* name, StoredVector& column, const char*) { vector(name, column); }
void SMAttacher::quantized(const char*, QuantizedMatrix&) { raise("NOT IMPLEMENTED"); }

void SMAttacher::number(const char* name, float& value, float) {
  const auto* const found = manager_.find<float>(name);
  if (found == nullptr) raise_missing(name);
  value = *found;
}

void SMAttacher::integer(const char* name, std::int32_t& value, std::int32_t) {
  const auto* const found = manager_.find<std::int32_t>(name);
  if (found == nullptr) raise_missing(name);
  value = *found;
}

void SMAttacher::whole(const char* name, std::int32_t& value, std::int32_t otherwise, std::int32_t least) {
  integer(name, value, otherwise);
  if (value < least) raise("%s::%s is out of range in shared memory.", class_name_.c_str(), name);
}

void SMAttacher::flag(const char* name, bool& value, bool) {
  std::int32_t stored = 0;
  integer(name, stored, 0);
  value = stored != 0;
}

void SMAttacher::size(const char* name, std::uint64_t& value, std::uint64_t) { value = stored_size(name); }
void SMAttacher::sizes(const char* name, std::span<std::int32_t> values, std::int32_t least, const char*, bool) {
  for (std::size_t i = 0; i < values.size(); ++i) whole(numbered(name, i).c_str(), values[i], 0, least);
}

void SMAttacher::parts(const char* name, std::int32_t& count, const VisitPart& visit) {
  whole((std::string("n") + name).c_str(), count, 0, 1);
  for (std::int32_t i = 0; i < count; ++i) visit(*this, i, numbered(name, static_cast<std::size_t>(i)) + "::");
}

void SMAttacher::implied(const char*, std::int64_t) {}
void SMAttacher::stated(const char*, std::int32_t& value) { value = 0; }

void SMAttacher::mandatory(const char* name, std::int32_t& value) { integer(name, value, 0); }
void SMAttacher::word(const char* name, std::int32_t& value, const Words&) { integer(name, value, 0); }
void SMAttacher::text(const char* name, std::string& value) {
  const auto* const found = manager_.find_text(name);
  if (found == nullptr) raise_missing(name);
  value.assign(found->data(), found->size());
}
void SMAttacher::mandatory_text(const char* name, std::string& value) { text(name, value); }

}  // namespace meridane
