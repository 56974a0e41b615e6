#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Reads the parameters from a record, into memory that the layer gives.
class BinaryLoader : public ParameterVisitor {
 public:
  BinaryLoader(ParameterLayer& layer, MatrixCoding coding, std::istream& stream)
      : layer_(layer), coding_(coding), stream_(stream) {}

  void weight(const char* name, Weight& weight) override;
  void vector(const char* name, StoredVector& vector) override;
  void column(const char* name, StoredVector& vector, const char* message) override;
  void quantized(const char* name, QuantizedMatrix& matrix) override;
  void number(const char* name, float& value, float otherwise) override;
  void integer(const char* name, std::int32_t& value, std::int32_t otherwise) override;
  void text(const char* name, std::string& value) override;

 private:
  void read_vector(const char* name, StoredVector& vector, MatrixSize size);

  ParameterLayer& layer_;
  MatrixCoding coding_;
  std::istream& stream_;
};

class BinaryDumper : public ParameterVisitor {
 public:
  BinaryDumper(MatrixCoding coding, std::ostream& stream) : coding_(coding), stream_(stream) {}

  void weight(const char* name, Weight& weight) override;
  void vector(const char* name, StoredVector& vector) override;
  void column(const char* name, StoredVector& vector, const char* message) override;
  void quantized(const char* name, QuantizedMatrix& matrix) override;
  void number(const char* name, float& value, float otherwise) override;
  void integer(const char* name, std::int32_t& value, std::int32_t otherwise) override;
  void text(const char* name, std::string& value) override;

 private:
  MatrixCoding coding_;
  std::ostream& stream_;
};

/// Matrices are child elements, numbers and texts attributes.
class XmlLoader : public ParameterVisitor {
 public:
  XmlLoader(ParameterLayer& layer, std::string type, const XmlElement& element)
      : layer_(layer), type_(std::move(type)), element_(element) {}

  void weight(const char* name, Weight& weight) override;
  void vector(const char* name, StoredVector& vector) override;
  void column(const char* name, StoredVector& vector, const char* message) override;
  void quantized(const char* name, QuantizedMatrix& matrix) override;
  void number(const char* name, float& value, float otherwise) override;
  void integer(const char* name, std::int32_t& value, std::int32_t otherwise) override;
  void text(const char* name, std::string& value) override;

 private:
  const XmlElement& child(const char* name) const;
  void take_vector(const char* name, StoredVector& vector, const RowMatrix& matrix);

  ParameterLayer& layer_;
  std::string type_;
  const XmlElement& element_;
};

class XmlDumper : public ParameterVisitor {
 public:
  XmlDumper(XmlElement& element, XmlDocument& document) : element_(element), document_(document) {}

  void weight(const char* name, Weight& weight) override;
  void vector(const char* name, StoredVector& vector) override;
  void column(const char* name, StoredVector& vector, const char* message) override;
  void quantized(const char* name, QuantizedMatrix& matrix) override;
  void number(const char* name, float& value, float otherwise) override;
  void integer(const char* name, std::int32_t& value, std::int32_t otherwise) override;
  void text(const char* name, std::string& value) override;

 private:
  XmlElement& element_;
  XmlDocument& document_;
};

class ParameterCounter : public ParameterVisitor {
 public:
  const LayerSize& size() const { return size_; }

  void weight(const char* name, Weight& weight) override;
  void vector(const char* name, StoredVector& vector) override;
  void column(const char* name, StoredVector& vector, const char* message) override;
  void quantized(const char* name, QuantizedMatrix& matrix) override;
  void number(const char* name, float& value, float otherwise) override;
  void integer(const char* name, std::int32_t& value, std::int32_t otherwise) override;
  void text(const char* name, std::string& value) override;

 private:
  void add_product(std::int64_t rows, std::int64_t cols);

  LayerSize size_;
};

}  // namespace meridane
