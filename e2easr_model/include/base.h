#pragma once

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "e2easr_model/error.h"
#include "e2easr_model/variable.h"

namespace sonivo::e2e {

/// Something with named, typed, validated variables. Messages name the variable and the line that raised them. Without
/// a lock: a number may be set by one thread while another one reads it with current().
class Component {
 public:
  virtual ~Component() = default;

  using Variables = std::vector<std::shared_ptr<VariableBase>>;
  const Variables& variables() const { return variables_; }  ///< in the order of their declaration

  /// The value; "変数\"%s\"は存在しない" and "変数\"%s\"の型が取得値と一致しない" where there is none of that type.
  template <class T>
  const T& get(const std::string& name) const;
  /// The same by value, of a number that another thread may set meanwhile.
  template <class T>
  T current(const std::string& name) const;
  /// Throws for a variable that isn't there, is of another type or is read-only, and for a value out of its range.
  template <class T>
  void set(const std::string& name, const std::type_identity_t<T>& value);
  /// Sets a variable, read-only or not, to the value that the text means for its type.
  virtual void set_from_text(const std::string& name, const std::string& text);

 protected:
  Component() = default;
  Component(const Component&) = delete;
  Component& operator=(const Component&) = delete;

  /// "同名の変数\"%s\"は定義できない" for a name that is taken. Without a validator, set() throws
  /// std::bad_function_call.
  template <class T>
  void add_variable(const std::string& name, std::type_identity_t<T> default_value, bool read_only,
                    const std::string& description, typename Variable<T>::Validator validator = {});
  /// Adds the other's variables, which both then have in common. A name that is taken: the other's variable replaces
  /// the one that is here if `override` says so; otherwise "同名の変数\"%s\"は追加できない", and none is added.
  void take_over(const Component& other, bool override);
  /// What restore_defaults() goes back to. The last thing that a model's constructor does.
  void save_defaults();
  void restore_defaults();

 private:
  template <class T>
  const Variable<T>& typed(const std::string& name) const;
  bool is_declared(const std::string& name) const;
  VariableBase& existing(const std::string& name) const;
  template <class T>
  void set_value(VariableBase& variable, const T& value);
  void set_text(VariableBase& variable, const std::string& text);

  Variables variables_;
  Variables defaults_;
};

template <class T>
const Variable<T>& Component::typed(const std::string& name) const {
  const auto* variable = dynamic_cast<const Variable<T>*>(&existing(name));
  if (variable == nullptr) raise("変数\"%s\"の型が取得値と一致しない. in %s %d", name.c_str());
  return *variable;
}

template <class T>
const T& Component::get(const std::string& name) const {
  return typed<T>(name).value();
}

template <class T>
T Component::current(const std::string& name) const {
  return typed<T>(name).load();
}

template <class T>
void Component::set(const std::string& name, const std::type_identity_t<T>& value) {
  set_value<T>(existing(name), value);
}

template <class T>
void Component::set_value(VariableBase& variable, const T& value) {
  const char* const name = variable.name().c_str();
  auto* typed = dynamic_cast<Variable<T>*>(&variable);
  if (typed == nullptr) raise("変数\"%s\"の型が設定値と一致しない. in %s %d", name);
  if (variable.read_only()) raise("変数\"%s\"は読み取り専用. in %s %d", name);
  if (!typed->accepts(value)) raise("変数\"%s\"の設定値が有効範囲外. in %s %d", name);
  typed->store(value);
}

template <class T>
void Component::add_variable(const std::string& name, std::type_identity_t<T> default_value, bool read_only,
                             const std::string& description, typename Variable<T>::Validator validator) {
  if (is_declared(name)) raise("同名の変数\"%s\"は定義できない. in %s %d", name.c_str());
  variables_.push_back(
      std::make_shared<Variable<T>>(name, std::move(default_value), read_only, description, std::move(validator)));
}

}  // namespace sonivo::e2e
