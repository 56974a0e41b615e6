#pragma once

namespace sonivo {

/// Keeps in force what it was made for; destroying it ends that.
class Registration {
 public:
  virtual ~Registration() = default;
};

}  // namespace sonivo
