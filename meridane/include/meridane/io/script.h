#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>

#include "meridane/error.h"

// "${...}" in the texts of parameter documents. Expressions are ECMAScript; what they may take is limited, see
// docs/network-files.md.

namespace meridane {

/// A script that fails, has no value, or takes more than it may.
struct ScriptError : BaseRuntimeError {
  using BaseRuntimeError::BaseRuntimeError;
};

class ScriptEngine;

/// By name; texts are UTF-8.
using ScriptVariables = std::map<std::string, std::variant<double, std::string>>;

/// The variables that the host sets for the expressions of documents, and their expansion.
class ScriptEnv {
 public:
  /// That of the process, made on first use.
  static std::shared_ptr<ScriptEnv> instance();

  /// Seen by documents whose first expression is evaluated later.
  void set(const std::string& name, ScriptVariables::mapped_type value);
  void remove(const std::string& name);

  /// The text with each "${...}" replaced by its value. A "}" in double quotes doesn't end an expression, nor does one
  /// that belongs to a "{" inside it. Values aren't expanded again.
  std::string expand(const std::string& text);

 private:
  ScriptEnv() = default;
  std::string evaluate(const std::string& expression);

  std::mutex mutex_;
  ScriptVariables variables_;
};

/// While one lives, what its thread expands belongs to one document: an expression sees what those before it have
/// defined, and they share the limits. Of several on a thread the first one counts; without one, each text is a
/// document of its own.
class ScriptDocument {
 public:
  ScriptDocument();
  ~ScriptDocument();
  ScriptDocument(const ScriptDocument&) = delete;
  ScriptDocument& operator=(const ScriptDocument&) = delete;

 private:
  friend class ScriptEnv;

  std::unique_ptr<ScriptEngine> engine_;  // made for the first expression
};

/// ScriptEnv::instance()->expand(text).
std::string expand_script(const std::string& text);

}  // namespace meridane
