#pragma once

namespace meridane {

/// Whether what is raised or logged tells the whole name of its function; other compilers than g++ know the last part
/// of it alone.
#ifdef __clang__
inline constexpr bool kTellsWholeNames = false;
#else
inline constexpr bool kTellsWholeNames = true;
#endif

}  // namespace meridane
