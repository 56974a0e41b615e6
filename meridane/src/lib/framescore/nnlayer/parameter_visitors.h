#pragma once

#include <vector>

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Throws "Incorrect \"NAME\" for \"TYPE\"".
[[noreturn]] void raise_incorrect(const char* name, const std::string& type);
/// For the element of another layer.
[[noreturn]] void raise_wrong_type(const std::string& class_name);

/// Reads the parameters from a record, into memory that the layer gives.
class BinaryLoader : public ParameterVisitor {
 public:
  BinaryLoader(ParameterLayer& layer, std::string type, MatrixCoding coding, std::istream& stream)
      : layer_(layer), type_(std::move(type)), coding_(coding), stream_(stream) {}

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
  void read_vector(const char* name, StoredVector& vector, MatrixSize size);

  ParameterLayer& layer_;
  std::string type_;
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
  MatrixCoding coding_;
  std::ostream& stream_;
};

/// Matrices are child elements, numbers and texts attributes.
class XmlLoader : public ParameterVisitor {
 public:
  XmlLoader(ParameterLayer& layer, std::string type, const XmlElement& element)
      : layer_(layer), places_{{std::move(type), &element}} {}

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
  void begin(const char* name, const char* type) override;
  void end() override;

 private:
  /// The element that is being read, and the type of the layer that it belongs to.
  struct Place {
    std::string type;
    const XmlElement* element;
  };

  const XmlElement& element() const { return *places_.back().element; }
  const XmlElement& child(const char* name) const;
  void take_vector(const char* name, StoredVector& vector, const RowMatrix& matrix);

  ParameterLayer& layer_;
  std::vector<Place> places_;  // those around the last one before it
};

class XmlDumper : public ParameterVisitor {
 public:
  XmlDumper(XmlElement& element, XmlDocument& document) : elements_{&element}, document_(document) {}

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
  void begin(const char* name, const char* type) override;
  void end() override;

 private:
  XmlElement& element() { return *elements_.back(); }

  std::vector<XmlElement*> elements_;  // those around the last one before it
  XmlDocument& document_;
};

class ParameterCounter : public ParameterVisitor {
 public:
  const LayerSize& counted() const { return size_; }

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
  void add_product(std::int64_t rows, std::int64_t cols);

  LayerSize size_;
};

}  // namespace meridane
