#pragma once

#include <streambuf>
#include <string>

// Streams that can't tell where they end.

namespace meridane::test {

/// Bytes that can only be read one after the other, as from a pipe.
class Pipe : public std::streambuf {
 public:
  explicit Pipe(std::string bytes) : bytes_(std::move(bytes)) {
    setg(bytes_.data(), bytes_.data(), bytes_.data() + bytes_.size());
  }

 private:
  std::string bytes_;
};

/// A pipe that says the same character again and again.
class EndlessPipe : public std::streambuf {
 public:
  explicit EndlessPipe(char character) : characters_(1 << 16, character) {}

 protected:
  int_type underflow() override {
    setg(characters_.data(), characters_.data(), characters_.data() + characters_.size());
    return traits_type::to_int_type(characters_.front());
  }

 private:
  std::string characters_;
};

}  // namespace meridane::test
