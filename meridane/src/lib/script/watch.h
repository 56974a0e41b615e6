#pragma once

/// Asked by the interpreter before each call and every few instructions: 1 when the script that this thread runs has
/// used up its time or its part of the stack.
extern "C" int meridane_script_must_stop();
