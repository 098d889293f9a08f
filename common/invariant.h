// QL_ASSERT(condition): an internal invariant, something the code around it
// has already made true. The sanitizer build (and so every test and fuzz run)
// stops at once naming the file and line when one fails; other builds compile
// the check out, so the code after it must stay safe without it.
#pragma once

#if defined(QL_CHECK_INVARIANTS)
#include <cstdio>
#include <cstdlib>

namespace ql {
[[noreturn]] inline void InvariantFailed(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: invariant failed: %s\n", file, line, condition);
  std::abort();
}
}  // namespace ql

#define QL_ASSERT(condition) \
  ((condition) ? static_cast<void>(0) : ::ql::InvariantFailed(#condition, __FILE__, __LINE__))
#else
// Unevaluated: the condition must still compile, and costs nothing.
#define QL_ASSERT(condition) static_cast<void>(sizeof(!(condition)))
#endif
