#include "lib/script/engine.h"

#include <duktape.h>

#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "lib/script/watch.h"
#include "meridane/error.h"

namespace meridane {
namespace {

constexpr const char* kName = "__EVAL__";

thread_local ScriptEngine* running = nullptr;

void* take(void* engine, duk_size_t size) { return static_cast<ScriptEngine*>(engine)->resize(nullptr, size); }
void* change(void* engine, void* block, duk_size_t size) {
  return static_cast<ScriptEngine*>(engine)->resize(block, size);
}
void give_back(void* engine, void* block) { static_cast<ScriptEngine*>(engine)->resize(block, 0); }

/// All of the interpreter runs in calls that catch its errors.
[[noreturn]] void fatal(void*, const char*) { std::abort(); }

// The interpreter leaves functions by a jump: those that it calls here have nothing that wants to be destroyed.

duk_ret_t set_up(duk_context* context, void* data) {
  duk_push_global_object(context);
  duk_del_prop_string(context, -1, "Duktape");
  duk_del_prop_string(context, -1, "Date");
  duk_del_prop_string(context, -1, "performance");
  duk_get_prop_string(context, -1, "Math");
  duk_del_prop_string(context, -1, "random");
  duk_pop(context);
  for (const auto& [name, value] : **static_cast<const ScriptVariables**>(data)) {
    if (const auto* number = std::get_if<double>(&value)) {
      duk_push_number(context, *number);
    } else {
      const std::string& text = std::get<std::string>(value);
      duk_push_lstring(context, text.data(), text.size());
    }
    duk_put_prop_lstring(context, -2, name.data(), name.size());
  }
  return 0;
}

duk_ret_t evaluate_text(duk_context* context, void* data) {
  const auto& expression = *static_cast<const std::string_view*>(data);
  duk_push_string(context, kName);
  duk_compile_lstring_filename(context, DUK_COMPILE_EVAL, expression.data(), expression.size());
  duk_call(context, 0);
  if (duk_is_undefined(context, -1)) return duk_type_error(context, "expression without a value");
  duk_to_string(context, -1);
  return 1;
}

duk_ret_t describe_error(duk_context* context, void*) {
  duk_to_string(context, -1);
  return 1;
}

bool is_surrogate(std::string_view text, std::size_t at, unsigned char least) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
  return at + 2 < text.size() && byte(0) == 0xED && byte(1) >= least && byte(1) < least + 16;
}

/// The interpreter writes characters beyond U+FFFF as two surrogates of three bytes each.
std::string with_joined_surrogates(std::string_view text) {
  std::string joined;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!is_surrogate(text, i, 0xA0) || !is_surrogate(text, i + 3, 0xB0)) {
      joined += text[i];
      continue;
    }
    const auto bits = [&](std::size_t k) { return static_cast<std::uint32_t>(text[i + k]) & 0x3F; };
    const std::uint32_t code = 0x10000 + ((bits(1) & 0xF) << 16 | bits(2) << 10 | (bits(4) & 0xF) << 6 | bits(5));
    joined += static_cast<char>(0xF0 | code >> 18);
    joined += static_cast<char>(0x80 | (code >> 12 & 0x3F));
    joined += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    joined += static_cast<char>(0x80 | (code & 0x3F));
    i += 5;
  }
  return joined;
}

}  // namespace

/// Stands before each piece of memory of the interpreter.
struct alignas(std::max_align_t) ScriptEngine::Block {
  std::size_t size;
  Block* before;
  Block* after;
};

/// While one lives, the interpreter may run: time and stack are counted from here.
class ScriptEngine::Running {
 public:
  explicit Running(ScriptEngine& engine) : engine_(engine), before_(running), start_(Clock::now()) {
    engine.end_ = start_ + engine.limits_.time - engine.time_used_;
    engine.stack_ = static_cast<const char*>(__builtin_frame_address(0));
    running = &engine;
  }
  ~Running() {
    engine_.time_used_ += Clock::now() - start_;
    running = before_;
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

 private:
  using Clock = std::chrono::steady_clock;

  ScriptEngine& engine_;
  ScriptEngine* before_;
  Clock::time_point start_;
};

ScriptEngine::ScriptEngine(const ScriptVariables& variables, const ScriptLimits& limits) : limits_(limits) {
  context_ = duk_create_heap(take, change, give_back, this, fatal);
  const ScriptVariables* data = &variables;
  if (context_ == nullptr || duk_safe_call(context_, set_up, &data, 0, 1) != DUK_EXEC_SUCCESS) {
    free_blocks();
    raise<ScriptError>("no memory for the variables of scripts");
  }
  duk_pop(context_);
}

ScriptEngine::~ScriptEngine() { free_blocks(); }

/// The interpreter itself has nothing else to give back, and may have been left in the middle.
void ScriptEngine::free_blocks() {
  while (blocks_ != nullptr) std::free(std::exchange(blocks_, blocks_->after));
}

/// False if the call ended in an error, which is then what it leaves on the interpreter's stack, or if the time is up.
bool ScriptEngine::call(int (*function)(duk_hthread*, void*), void* data, int arguments) {
  if (setjmp(leave_) != 0) {  // the interpreter's frames have nothing to destroy
    context_ = nullptr;
    return false;
  }
  return duk_safe_call(context_, function, data, arguments, 1) == DUK_EXEC_SUCCESS;
}

void ScriptEngine::leave_if_over_time() {
  if (running == this && std::chrono::steady_clock::now() >= end_) std::longjmp(leave_, 1);
}

std::string ScriptEngine::evaluate(std::string_view expression) {
  const Running now(*this);
  over_heap_ = false;
  if (context_ == nullptr || !call(evaluate_text, &expression, 0)) raise_error(expression);
  duk_size_t size = 0;
  const char* const text = duk_get_lstring(context_, -1, &size);
  std::string value = with_joined_surrogates({text, size});
  duk_pop(context_);
  value_bytes_ += value.size();
  if (value_bytes_ > limits_.value_bytes) {
    raise<ScriptError>("values of scripts have more than %zu bytes", limits_.value_bytes);
  }
  return value;
}

/// For a call that failed.
void ScriptEngine::raise_error(std::string_view expression) {
  constexpr std::size_t kShown = 200;
  std::string what;
  if (context_ != nullptr && !over_heap_) {
    const bool is_text = call(describe_error, nullptr, 1);
    if (context_ != nullptr) {
      what = is_text ? with_joined_surrogates(duk_get_string(context_, -1)) : "error of unknown kind";
    }
  }
  if (context_ == nullptr) {
    what = formatted("script runs for more than %lld ms", static_cast<long long>(limits_.time.count()));
  } else {
    duk_pop(context_);
    if (over_heap_) what = formatted("script needs more than %zu bytes of memory", limits_.heap_bytes);
  }
  raise<ScriptError>("%s in %s \"%s\"", what.c_str(), kName, std::string(expression.substr(0, kShown)).c_str());
}

bool ScriptEngine::must_stop() {
  leave_if_over_time();
  const auto* const here = static_cast<const char*>(__builtin_frame_address(0));
  return static_cast<std::size_t>(std::max(stack_ - here, here - stack_)) > limits_.stack_bytes;
}

void* ScriptEngine::resize(void* memory, std::size_t size) {
  Block* block = memory == nullptr ? nullptr : static_cast<Block*>(memory) - 1;
  const std::size_t before = block == nullptr ? 0 : block->size;
  if (size > before) {
    leave_if_over_time();
    if (size - before > limits_.heap_bytes - heap_used_) {
      over_heap_ = true;
      return nullptr;
    }
  }
  Block* resized = nullptr;
  if (size > 0) {
    resized = static_cast<Block*>(std::malloc(sizeof(Block) + size));
    if (resized == nullptr) return nullptr;
    new (resized) Block{size, nullptr, blocks_};
    if (block != nullptr) std::memcpy(resized + 1, memory, std::min(size, before));
    if (blocks_ != nullptr) blocks_->before = resized;
    blocks_ = resized;
  }
  if (block != nullptr) {
    (block->before == nullptr ? blocks_ : block->before->after) = block->after;
    if (block->after != nullptr) block->after->before = block->before;
    std::free(block);
  }
  heap_used_ = heap_used_ - before + size;
  return resized == nullptr ? nullptr : resized + 1;
}

}  // namespace meridane

extern "C" int meridane_script_must_stop() {
  return meridane::running != nullptr && meridane::running->must_stop() ? 1 : 0;
}
