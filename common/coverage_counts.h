// FlushCoverageCounts(): the coverage build writes each process's counts when
// it exits normally; a process that leaves by _exit (the renderer child, the
// batch workers) skips that, so it calls this first. Other builds compile it
// to nothing.
#pragma once

#if defined(QL_COVERAGE)
extern "C" void __gcov_dump(void);

namespace ql {
inline void FlushCoverageCounts() {
  __gcov_dump();
}
}  // namespace ql
#else
namespace ql {
inline void FlushCoverageCounts() {}
}  // namespace ql
#endif
