#pragma once

#include <chrono>
#include <csetjmp>
#include <cstddef>
#include <string>
#include <string_view>

#include "meridane/io/script.h"

struct duk_hthread;

namespace meridane {

/// What the scripts of one document may take together.
struct ScriptLimits {
  std::chrono::milliseconds time{1000};
  std::size_t heap_bytes = std::size_t{1} << 20;    ///< of memory at a time
  std::size_t value_bytes = std::size_t{16} << 20;  ///< of values
  std::size_t stack_bytes = std::size_t{256} << 10;
};

/// Evaluates the expressions of one document, one after the other: what one of them defines, the next ones see.
///
/// Scripts come from outside. They reach no file, no clock and no chance, so that a document means the same each time,
/// and one that exceeds a limit ends in an error. Memory is counted where the interpreter takes it; stack and time are
/// looked at before each call, with each piece of memory and every few instructions. A script whose time is up is left
/// where it is, without its having a say, and the engine evaluates nothing more. What can run over is a single step in
/// a text of the size of the heap, by a fraction of a second.
class ScriptEngine {
 public:
  explicit ScriptEngine(const ScriptVariables& variables, const ScriptLimits& limits = {});
  ~ScriptEngine();
  ScriptEngine(const ScriptEngine&) = delete;
  ScriptEngine& operator=(const ScriptEngine&) = delete;

  /// The value as text. Throws ScriptError for a script that fails, has no value or exceeds a limit.
  std::string evaluate(std::string_view expression);

  /// For the interpreter. Doesn't come back when the time is up.
  bool must_stop();
  void* resize(void* block, std::size_t size);

 private:
  class Running;
  struct Block;

  bool call(int (*function)(duk_hthread*, void*), void* data, int arguments);
  void leave_if_over_time();
  void free_blocks();
  [[noreturn]] void raise_error(std::string_view expression);

  ScriptLimits limits_;
  std::size_t heap_used_ = 0;
  std::size_t value_bytes_ = 0;
  std::chrono::steady_clock::duration time_used_{};
  std::chrono::steady_clock::time_point end_;  // of the script that runs
  const char* stack_ = nullptr;                // where it began
  std::jmp_buf leave_;                         // where it goes when its time is up
  bool over_heap_ = false;
  Block* blocks_ = nullptr;
  duk_hthread* context_ = nullptr;  // null once the time is up
};

}  // namespace meridane
