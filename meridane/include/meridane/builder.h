#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "meridane/error.h"
#include "meridane/io/logging.h"

namespace meridane {

/// A table from type name to factory function, one per Tag. Written before main() only.
template <class Tag, class Product, class Factory>
class Builder {
 public:
  static bool regist(const std::string& name, Factory factory) {
    log(kLogRegistration, [&] { return formatted("Factory for \"%s\" is registered", name.c_str()); });
    return table().insert_or_assign(name, factory).second;
  }

  static bool has(const std::string& name) { return table().contains(name); }

  /// All that are there, sorted.
  static std::vector<std::string> names() {
    std::vector<std::string> found;
    for (const auto& [name, factory] : table()) found.push_back(name);
    return found;
  }

  /// Throws BuilderNotFound for a name that isn't there.
  static const Factory& get(const std::string& name) {
    const auto found = table().find(name);
    if (found == table().end()) raise<BuilderNotFound>("%s is not registered in the builder", name.c_str());
    return found->second;
  }

  template <class... Arguments>
  static std::shared_ptr<Product> build(const std::string& name, Arguments&&... arguments) {
    return get(name)(std::forward<Arguments>(arguments)...);
  }

 private:
  // Inside a function, since the order in which the tables' writers start isn't known.
  static std::map<std::string, Factory>& table() {
    static std::map<std::string, Factory> the_table;
    return the_table;
  }
};

}  // namespace meridane
