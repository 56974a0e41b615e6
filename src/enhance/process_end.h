#pragma once

namespace sonivo {

/// Ends the process because a thread of it can't go on: one line on standard error and in the log, "<who>: <why>", all
/// files of the C library written out, and exit code 1. Nothing of the process is torn down, since its threads run.
[[noreturn]] void end_process(const char* who, const char* why);

}  // namespace sonivo
