// FlushCoverageCounts(): the coverage build writes each process's counts when
// it exits normally; a process that leaves by _exit (the renderer child, the
// batch workers) skips that, so it calls this first. Other builds compile it
// to nothing.
#pragma once

//
// CoverageCountsFolder(): where the coverage build writes its counts (beneath
// GCOV_PREFIX when that is set, else beside the objects in the build tree),
// so that a process confined by the kernel may still write them; "" in other
// builds.
#include <cstdlib>
#include <string>

#if defined(QL_COVERAGE)
extern "C" void __gcov_dump(void);

namespace ql {
inline void FlushCoverageCounts() {
  __gcov_dump();
}
inline std::string CoverageCountsFolder() {
  const char* prefix = std::getenv("GCOV_PREFIX");
  return prefix != nullptr && *prefix != '\0' ? prefix : QL_COVERAGE_COUNTS_DIR;
}
}  // namespace ql
#else
namespace ql {
inline void FlushCoverageCounts() {}
inline std::string CoverageCountsFolder() {
  return {};
}
}  // namespace ql
#endif
