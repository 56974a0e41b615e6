#include "meridane/io/script.h"

#include "lib/script/engine.h"

namespace meridane {
namespace {

thread_local ScriptDocument* current = nullptr;

/// Where the "}" of the "{" at `open` stands, or npos.
std::size_t closing_brace(const std::string& text, std::size_t open) {
  std::size_t depth = 0;
  bool quoted = false;
  for (std::size_t i = open; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted && c == '\\') {
      ++i;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && c == '{') {
      ++depth;
    } else if (!quoted && c == '}' && --depth == 0) {
      return i;
    }
  }
  return text.npos;
}

}  // namespace

std::shared_ptr<ScriptEnv> ScriptEnv::instance() {
  static const std::shared_ptr<ScriptEnv> the_environment(new ScriptEnv);
  return the_environment;
}

void ScriptEnv::set(const std::string& name, ScriptVariables::mapped_type value) {
  const std::lock_guard lock(mutex_);
  variables_.insert_or_assign(name, std::move(value));
}

void ScriptEnv::remove(const std::string& name) {
  const std::lock_guard lock(mutex_);
  variables_.erase(name);
}

std::string ScriptEnv::expand(const std::string& text) {
  std::size_t open = text.find("${");
  if (open == text.npos) return text;
  const ScriptDocument document;
  std::string expanded;
  std::size_t done = 0;
  for (; open != text.npos; open = text.find("${", done)) {
    expanded.append(text, done, open - done);
    const std::size_t close = closing_brace(text, open + 1);
    if (close == text.npos) raise<ScriptError>("\"${\" without its \"}\" in __EVAL__");
    expanded += evaluate(text.substr(open + 2, close - open - 2));
    done = close + 1;
  }
  return expanded.append(text, done);
}

std::string ScriptEnv::evaluate(const std::string& expression) {
  if (current->engine_ == nullptr) {
    std::unique_lock lock(mutex_);
    const ScriptVariables variables = variables_;
    lock.unlock();
    current->engine_ = std::make_unique<ScriptEngine>(variables);
  }
  return current->engine_->evaluate(expression);
}

ScriptDocument::ScriptDocument() {
  if (current == nullptr) current = this;
}

ScriptDocument::~ScriptDocument() {
  if (current == this) current = nullptr;
}

std::string expand_script(const std::string& text) { return ScriptEnv::instance()->expand(text); }

}  // namespace meridane
