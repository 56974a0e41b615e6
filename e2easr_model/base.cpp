#include "e2easr_model/base.h"

#include <algorithm>

#include "e2easr_model/numbers_of_text.h"

namespace sonivo::e2e {

namespace {

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

std::shared_ptr<VariableBase>* Component::find(const std::string& name) {
  const auto found = std::find_if(variables_.begin(), variables_.end(),
                                  [&](const auto& variable) { return variable->name() == name; });
  return found == variables_.end() ? nullptr : &*found;
}

VariableBase& Component::existing(const std::string& name) const {
  for (const auto& variable : variables_) {
    if (variable->name() == name) return *variable;
  }
  raise("変数\"%s\"は存在しない. in %s %d", name.c_str());
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
  for (const auto& variable : other.variables_) {
    std::shared_ptr<VariableBase>* const taken = find(variable->name());
    if (taken == nullptr) {
      variables_.push_back(variable);
    } else if (override) {
      *taken = variable;
    } else {
      raise("同名の変数\"%s\"は追加できない. in %s %d", variable->name().c_str());
    }
  }
}

void Component::save_defaults() {
  defaults_.clear();
  for (const auto& variable : variables_) defaults_.push_back(variable->clone());
}

void Component::restore_defaults() {
  for (const auto& value : defaults_) {
    if (std::shared_ptr<VariableBase>* const variable = find(value->name())) (*variable)->assign(*value);
  }
}

}  // namespace sonivo::e2e
