#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "e2easr_model/error.h"
#include "e2easr_model/variable.h"

namespace sonivo::e2e {

/// What an inference returns: values by name. Names in use: `encoded`, `enhanced`, `embed`, `prob`, `vad`, `input`,
/// `active`, `hangover`. A copy has its values in common with the original.
class E2EResult {
 public:
  virtual ~E2EResult() = default;
  E2EResult() = default;
  E2EResult(const E2EResult&) = default;
  E2EResult(E2EResult&&) = default;
  E2EResult& operator=(const E2EResult&) = default;
  E2EResult& operator=(E2EResult&&) = default;

  /// A value of that name that was there is this result's no more.
  template <class T>
  void add(const std::string& name, T value) {
    values_.insert_or_assign(name, std::make_shared<Variable<T>>(name, std::move(value), false, "", VariableAny()));
  }

  /// "変数\"%s\"は存在しない" and "変数\"%s\"の型が取得値と一致しない" where there is none of that type.
  template <class T>
  const T& get(const std::string& name) const {
    const auto found = values_.find(name);
    if (found == values_.end()) raise("変数\"%s\"は存在しない. in %s %d", name.c_str());
    const auto* variable = dynamic_cast<const Variable<T>*>(found->second.get());
    if (variable == nullptr) raise("変数\"%s\"の型が取得値と一致しない. in %s %d", name.c_str());
    return variable->value();
  }

  bool has(const std::string& name) const { return values_.contains(name); }

  /// The same names with equal values.
  bool operator==(const E2EResult& other) const;

 private:
  std::map<std::string, std::shared_ptr<VariableBase>> values_;
};

}  // namespace sonivo::e2e
