#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace sonivo::e2e {

/// A named value of some type.
class VariableBase {
 public:
  VariableBase(std::string name, bool read_only, std::string description)
      : name_(std::move(name)), read_only_(read_only), description_(std::move(description)) {}
  virtual ~VariableBase() = default;

  /// Becomes a copy of the other: name, flag, description, value and validator. std::bad_cast for one of another type.
  virtual void assign(const VariableBase& other) = 0;
  /// Compares values; false for a variable of another type.
  virtual bool equals(const VariableBase& other) const = 0;
  virtual std::shared_ptr<VariableBase> clone() const = 0;
  /// Unique for each type of value; only to be compared.
  virtual std::string type_name() const = 0;

  const std::string& name() const { return name_; }
  bool read_only() const { return read_only_; }
  void set_read_only(bool read_only) { read_only_ = read_only; }
  const std::string& description() const { return description_; }  ///< the help text

 protected:
  VariableBase(const VariableBase&) = default;
  VariableBase& operator=(const VariableBase&) = default;

 private:
  std::string name_;
  bool read_only_;
  std::string description_;
};

/// T: int, float, bool, std::string, std::vector<short>, E2EResult, meridane::Matrix.
template <class T>
class Variable : public VariableBase {
 public:
  using Validator = std::function<bool(const T&)>;

  Variable(std::string name, T value, bool read_only, std::string description, Validator validator)
      : VariableBase(std::move(name), read_only, std::move(description)),
        value_(std::move(value)),
        validator_(std::move(validator)) {}

  void assign(const VariableBase& other) override { *this = dynamic_cast<const Variable&>(other); }
  bool equals(const VariableBase& other) const override {
    const auto* same = dynamic_cast<const Variable*>(&other);
    return same != nullptr && same_value(value_, same->value_);
  }
  std::shared_ptr<VariableBase> clone() const override { return std::make_shared<Variable>(*this); }
  std::string type_name() const override { return typeid(T).name(); }

  const T& value() const { return value_; }
  T& value() { return value_; }
  /// The value as load() and store() of other threads see it: a number is read and written whole.
  T load() const {
    if constexpr (std::is_arithmetic_v<T>) {
      return std::atomic_ref<T>(const_cast<T&>(value_)).load(std::memory_order_relaxed);
    } else {
      return value_;
    }
  }
  void store(const T& value) {
    if constexpr (std::is_arithmetic_v<T>) {
      std::atomic_ref<T>(value_).store(value, std::memory_order_relaxed);
    } else {
      value_ = value;
    }
  }
  /// Throws std::bad_function_call for a variable that was declared without a validator.
  bool accepts(const T& value) const { return validator_(value); }

 private:
  static bool same_value(const T& a, const T& b) {
    if constexpr (requires { a.rows(); }) {  // matrices of different sizes can't be compared
      return a.rows() == b.rows() && a.cols() == b.cols() && a == b;
    } else {
      return a == b;
    }
  }

  T value_;
  Validator validator_;
};

// Validators.

/// Values at or above the bound.
template <class T>
struct VariableGreaterEqual {
  T bound;
  bool operator()(const T& value) const { return value >= bound; }
};

/// Values from low to high, both included.
template <class T>
struct VariableRange {
  T low;
  T high;
  bool operator()(const T& value) const { return value >= low && value <= high; }
};

/// One of the values.
template <class T>
struct VariableAnyOf {
  std::vector<T> values;
  bool operator()(const T& value) const { return std::find(values.begin(), values.end(), value) != values.end(); }
};

/// All values.
struct VariableAny {
  template <class T>
  bool operator()(const T&) const {
    return true;
  }
};

}  // namespace sonivo::e2e
