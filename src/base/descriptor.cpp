#include "base/descriptor.h"

#include <unistd.h>

#include <utility>

namespace sonivo {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    close();
    number_ = other.release();
  }
  return *this;
}

int Descriptor::release() { return std::exchange(number_, -1); }

void Descriptor::close() {
  if (number_ >= 0) ::close(release());
}

}  // namespace sonivo
