#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "meridane/framescore/multigmm.h"

namespace meridane::test {

constexpr const char* kBinary = "application/meridane-bin";
constexpr const char* kXml = "text/xml";

/// A file, field by field.
class Bytes {
 public:
  Bytes& text(const std::string& bytes) {
    bytes_ += bytes;
    return *this;
  }
  template <class Number>
  Bytes& number(Number value) {
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
    return *this;
  }
  Bytes& matrix(std::int64_t rows, std::int64_t cols, const std::vector<float>& values) {
    number(rows).number(cols);
    for (const float value : values) number(value);
    return *this;
  }
  const std::string& str() const { return bytes_; }

 private:
  std::string bytes_;
};

/// Two means and two factors, three Gaussians, a mixture of two and one of all three.
inline Bytes mixtures() {
  Bytes file;
  file.text("MeGMMpar").number(2);
  file.matrix(2, 1, {1, -2}).matrix(2, 1, {0.5f, 3});
  file.number(2).matrix(2, 2, {2, 0, 0.5f, 1}).matrix(2, 2, {0.25f, 0, -1, 4});
  file.number(3);
  for (const int index : {0, 0, 1, 1, 0, 1}) file.number(index);
  file.number(2).matrix(2, 2, {0, -0.5f, 1, -1});
  file.matrix(3, 2, {2, -2, 0, -0.25f, 1, -3});
  return file;
}

template <class Loadable = MultiGMMParameter>
Loadable loaded(const std::string& bytes, const std::string& mime = kBinary) {
  std::istringstream stream(bytes);
  Loadable object;
  if (mime == kXml) {
    object.load_xml_stream(stream);
  } else {
    object.load_binary_stream(stream);
  }
  return object;
}

template <class Dumpable>
std::string dumped(const Dumpable& object, const std::string& mime = kBinary) {
  std::ostringstream stream;
  if (mime == kXml) {
    object.dump_xml_stream(stream);
  } else {
    object.dump_binary_stream(stream);
  }
  return stream.str();
}

inline Vector vector(std::initializer_list<float> values) {
  Vector x(static_cast<Eigen::Index>(values.size()));
  std::copy(values.begin(), values.end(), x.data());
  return x;
}

}  // namespace meridane::test
