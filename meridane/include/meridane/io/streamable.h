#pragma once

#include <istream>
#include <ostream>

#include "meridane/io/script.h"
#include "meridane/io/xml.h"

// Objects with a binary and an XML form. What the forms are, a traits class of the object says.

namespace meridane {

class BinaryStreamable {
 public:
  virtual ~BinaryStreamable() = default;
  virtual void load_binary_stream(std::istream& stream) = 0;
  virtual void dump_binary_stream(std::ostream& stream) const = 0;
};

/// load(T&, std::istream&) and dump(const T&, std::ostream&).
template <class T>
struct BinaryStreamTraits;

template <class T>
class BinaryStreamableImpl : public BinaryStreamable {
 public:
  void load_binary_stream(std::istream& stream) override {
    BinaryStreamTraits<T>::load(static_cast<T&>(*this), stream);
  }
  void dump_binary_stream(std::ostream& stream) const override {
    BinaryStreamTraits<T>::dump(static_cast<const T&>(*this), stream);
  }
};

class XmlStorable {
 public:
  virtual ~XmlStorable() = default;
  /// Parses the whole stream first: "Failed to parse xml".
  virtual void load_xml_stream(std::istream& stream) = 0;
  virtual void dump_xml_stream(std::ostream& stream) const = 0;
};

/// load(T&, const XmlFile&) and dump(const T&, XmlFile&).
template <class T>
struct XmlStoreTraits;

template <class T>
class XmlStorableImpl : public XmlStorable {
 public:
  void load_xml_stream(std::istream& stream) override {
    const XmlFile file(stream);
    const ScriptDocument document;
    XmlStoreTraits<T>::load(static_cast<T&>(*this), file);
  }
  void dump_xml_stream(std::ostream& stream) const override {
    XmlFile file;
    XmlStoreTraits<T>::dump(static_cast<const T&>(*this), file);
    file.write(stream);
  }
};

}  // namespace meridane
