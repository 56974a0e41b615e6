#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"
#include "meridane/error.h"
#include "meridane/io/sm_manager.h"

namespace meridane {

/// Puts the sizes and numbers of a layer into shared memory; the values of its matrices are there already.
class SMStorer : public ParameterVisitor {
 public:
  explicit SMStorer(const SMManager& manager) : manager_(manager) {}

  void weight(const char* name, Weight& weight) override;
  void vector(const char* name, StoredVector& vector) override;
  void column(const char* name, StoredVector& vector, const char* message) override;
  void quantized(const char* name, QuantizedMatrix& matrix) override;
  void number(const char* name, float& value, float otherwise) override;
  void integer(const char* name, std::int32_t& value, std::int32_t otherwise) override;
  void whole(const char* name, std::int32_t& value, std::int32_t otherwise, std::int32_t least) override;
  void flag(const char* name, bool& value, bool otherwise) override;
  void size(const char* name, std::uint64_t& value, std::uint64_t otherwise) override;
  void sizes(const char* name, std::span<std::int32_t> values, std::int32_t least, const char* message,
             bool one_for_all) override;
  void parts(const char* name, std::int32_t& count, const VisitPart& visit) override;
  void implied(const char* name, std::int64_t value) override;
  void stated(const char* name, std::int32_t& value) override;
  void mandatory(const char* name, std::int32_t& value) override;
  void word(const char* name, std::int32_t& value, const Words& words) override;
  void text(const char* name, std::string& value) override;
  void mandatory_text(const char* name, std::string& value) override;

 private:
  const SMManager& manager_;
};

/// Attaches a layer to parameters in shared memory. Throws for what isn't there, with the name of the class.
class SMAttacher : public ParameterVisitor {
 public:
  SMAttacher(const SMManager& manager, std::string class_name)
      : manager_(manager), class_name_(std::move(class_name)) {}

  void weight(const char* name, Weight& weight) override;
  void vector(const char* name, StoredVector& vector) override;
  void column(const char* name, StoredVector& vector, const char* message) override;
  void quantized(const char* name, QuantizedMatrix& matrix) override;
  void number(const char* name, float& value, float otherwise) override;
  void integer(const char* name, std::int32_t& value, std::int32_t otherwise) override;
  void whole(const char* name, std::int32_t& value, std::int32_t otherwise, std::int32_t least) override;
  void flag(const char* name, bool& value, bool otherwise) override;
  void size(const char* name, std::uint64_t& value, std::uint64_t otherwise) override;
  void sizes(const char* name, std::span<std::int32_t> values, std::int32_t least, const char* message,
             bool one_for_all) override;
  void parts(const char* name, std::int32_t& count, const VisitPart& visit) override;
  void implied(const char* name, std::int64_t value) override;
  void stated(const char* name, std::int32_t& value) override;
  void mandatory(const char* name, std::int32_t& value) override;
  void word(const char* name, std::int32_t& value, const Words& words) override;
  void text(const char* name, std::string& value) override;
  void mandatory_text(const char* name, std::string& value) override;

 private:
  std::uint64_t stored_size(const std::string& name) const;
  std::shared_ptr<float> block(const std::string& name, std::uint64_t count) const;
  [[noreturn]] void raise_missing(const std::string& name) const;

  const SMManager& manager_;
  std::string class_name_;
};

/// A layer whose parameters stand in shared memory, where other processes read them too: row after row, never packed.
template <class Layer>
class SharedMemory : public Layer {
 public:
  SharedMemory(std::string id, std::string type, SMManager manager)
      : Layer(std::move(id), std::move(type)), manager_(std::move(manager)) {}

  void load_binary(std::istream& stream) override {
    Layer::load_binary(stream);
    SMStorer storer(manager_);
    this->parameters(storer);
  }
  void load_xml(const XmlElement&) override { raise("NOT IMPLEMENTED"); }
  void load_shared_memory() {
    SMAttacher attacher(manager_, "SM" + this->tag() + "Layer");
    this->parameters(attacher);
    this->loaded();
  }

  /// The block of that name if it's there, else a new one.
  std::shared_ptr<float> alloc_param(const std::string& name, Eigen::Index rows, Eigen::Index cols) override {
    const auto count = static_cast<std::uint64_t>(rows) * static_cast<std::uint64_t>(cols);
    return {manager_.find_or_construct_floats(name, count), [](float*) {}};
  }

 protected:
  void pack(Weight&) override {}

 private:
  SMManager manager_;
};

}  // namespace meridane
