#pragma once

namespace sonivo {

/// An open file descriptor, closed with the object.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;

  bool is_open() const { return number_ >= 0; }
  /// -1 when closed.
  int number() const { return number_; }
  /// Hands the descriptor over to the caller.
  int release();
  void close();

 private:
  int number_ = -1;
};

}  // namespace sonivo
