#include "e2easr_model/base.h"

#include <algorithm>
#include <utility>

#include "e2easr_model/numbers_of_text.h"

namespace sonivo::e2e {

namespace {

template <class Variables>
auto find_in(Variables& variables, const std::string& name) {
  return std::find_if(variables.begin(), variables.end(),
                      [&](const auto& variable) { return variable->name() == name; });
}

template <class T>
bool holds(const VariableBase& variable) {
  return dynamic_cast<const Variable<T>*>(&variable) != nullptr;
}

/// Lets a variable be written while this lives.
class Writable {
 public:
  explicit Writable(VariableBase& variable) : variable_(variable), read_only_(variable.read_only()) {
    variable_.set_read_only(false);
  }
  ~Writable() { variable_.set_read_only(read_only_); }
  Writable(const Writable&) = delete;
  Writable& operator=(const Writable&) = delete;

 private:
  VariableBase& variable_;
  bool read_only_;
};

}  // namespace

bool Component::is_declared(const std::string& name) const { return find_in(variables_, name) != variables_.end(); }

VariableBase& Component::existing(const std::string& name) const {
  const auto found = find_in(variables_, name);
  if (found == variables_.end()) raise("変数\"%s\"は存在しない. in %s %d", name.c_str());
  return **found;
}

void Component::set_from_text(const std::string& name, const std::string& text) {
  VariableBase& variable = existing(name);
  const Writable writable(variable);
  set_text(variable, text);
}

void Component::set_text(VariableBase& variable, const std::string& text) {
  if (holds<int>(variable)) {
    set_value<int>(variable, e2e::stoi(text));
  } else if (holds<long>(variable)) {
    set_value<long>(variable, e2e::stol(text));
  } else if (holds<float>(variable)) {
    set_value<float>(variable, e2e::stof(text));
  } else if (holds<double>(variable)) {
    set_value<double>(variable, e2e::stod(text));
  } else if (holds<bool>(variable)) {
    if (text != "true" && text != "false") {
      raise("変数\"%s\"の設定値が有効範囲外. in %s %d", variable.name().c_str());
    }
    set_value<bool>(variable, text == "true");
  } else {
    set_value<std::string>(variable, text);  // of all other types: they have no text
  }
}

void Component::take_over(const Component& other, bool override) {
  Variables all = variables_;
  for (const auto& variable : other.variables_) {
    const auto taken = find_in(all, variable->name());
    if (taken == all.end()) {
      all.push_back(variable);
    } else if (override) {
      *taken = variable;
    } else {
      raise("同名の変数\"%s\"は追加できない. in %s %d", variable->name().c_str());
    }
  }
  variables_ = std::move(all);
}

void Component::save_defaults() {
  Variables clones;
  for (const auto& variable : variables_) clones.push_back(variable->clone());
  defaults_ = std::move(clones);
}

void Component::restore_defaults() {
  for (const auto& value : defaults_) {
    const auto found = find_in(variables_, value->name());
    if (found != variables_.end()) (*found)->assign(*value);
  }
}

}  // namespace sonivo::e2e
