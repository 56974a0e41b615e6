#pragma once

#include <vector>

namespace sonivo {

/// A source of samples that are pulled, such as a FIFO between two threads or a file.
template <class T>
class Input {
 public:
  virtual ~Input() = default;

  /// Appends up to `require` samples to `out` and returns how many; waits for them where the source does. Who reads
  /// goes by what was appended. 0: no more will come.
  virtual int data(std::vector<T>& out, int require, bool trancate) = 0;
  /// True once no more will come.
  virtual bool end() = 0;
};

}  // namespace sonivo
