// The interpreter, compiled here since the packaged library can't be told to give up a script.

#include "lib/script/watch.h"

#define DUK_COMPILING_DUKTAPE  // the settings that follow are those of the interpreter itself
#include <duk_config.h>

#undef DUK_USE_NATIVE_STACK_CHECK
#define DUK_USE_NATIVE_STACK_CHECK() meridane_script_must_stop()
#define DUK_USE_INTERRUPT_COUNTER
// `ctr` is the number of instructions up to the next check, in the one function that this stands in. A single one may
// go through a long text, so that the 262144 which it would be are too many.
#define DUK_USE_EXEC_TIMEOUT_CHECK(engine) (ctr = 16, meridane_script_must_stop())

#include <duktape.c>  // NOLINT(bugprone-suspicious-include)
