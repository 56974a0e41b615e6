#include "lib/framescore/nnlayer/shared_memory.h"

#include <limits>

namespace meridane {

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
void SMStorer::text(const char* name, std::string& value) { manager_.construct_text(name, value); }

void SMAttacher::raise_missing(const std::string& name) const {
  raise("%s::%s data does not exist in shared memory.", class_name_.c_str(), name.c_str());
}

std::uint64_t SMAttacher::size(const std::string& name) const {
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
  const std::uint64_t rows = size(std::string(name) + "_rows");
  const std::uint64_t cols = size(std::string(name) + "_cols");
  if (cols != 0 && rows > std::numeric_limits<std::uint64_t>::max() / cols) raise_missing(name);
  weight.set(block(name, rows * cols), static_cast<Eigen::Index>(rows), static_cast<Eigen::Index>(cols));
}

void SMAttacher::vector(const char* name, StoredVector& vector) {
  const std::uint64_t count = size(std::string(name) + "_size");
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

void SMAttacher::text(const char* name, std::string& value) {
  const auto* const found = manager_.find_text(name);
  if (found == nullptr) raise_missing(name);
  value.assign(found->data(), found->size());
}

}  // namespace meridane
