#pragma once

#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "enhance/log.h"
#include "enhance/result.h"

namespace sonivo {

/// "ERROR_AI_SPEECH_ENHANCE_NO_INIT" and its like; "error" of a code without a name.
const char* result_name(int code);

/// How an operation of the third chain ended.
struct Outcome {
  int code = 0;            ///< of enhance/result.h
  std::string text;        ///< for the log; empty: "<Op>: return <name of the code>"
  bool is_logged = false;  ///< the log has a line of it already

  static Outcome of(int code) { return {code, {}, false}; }
  static Outcome told(int code, std::string text) { return {code, std::move(text), false}; }
  static Outcome logged(int code) { return {code, {}, true}; }
};

/// Runs the body of operation `op` under the lock and logs a failure once the lock is free. Answers the code. Without
/// memory that is MEMORY_EMPTY.
template <class Body>
int run_locked(std::mutex& mutex, const char* op, Body&& body) {
  Outcome outcome;
  {
    const std::lock_guard lock(mutex);
    try {
      outcome = body();
    } catch (const std::bad_alloc&) {
      outcome = Outcome::of(ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY);
    }
  }
  if (outcome.code == 0 || outcome.is_logged) return outcome.code;
  if (outcome.text.empty()) {
    log_text(LogLevel::error, "%s: return %s\n", op, result_name(outcome.code));
  } else {
    log_text(LogLevel::error, "%s", outcome.text.c_str());
  }
  return outcome.code;
}

}  // namespace sonivo
