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
  void text(const char* name, std::string& value) override;

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
  void text(const char* name, std::string& value) override;

 private:
  std::uint64_t size(const std::string& name) const;
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
    float* const found = manager_.find_floats(name, count);
    return {found != nullptr ? found : manager_.construct_floats(name, count), [](float*) {}};
  }

 protected:
  void pack(Weight&) override {}

 private:
  SMManager manager_;
};

}  // namespace meridane
