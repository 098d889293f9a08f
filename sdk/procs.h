// Procedure tables the host hangs off its format record. Each table starts
// with one 32-bit header word (the host's table version) followed by
// procedure pointers.
#pragma once

#include <cstdint>

#include "sdk/host_types.h"

namespace pixmere {

// A host procedure whose signature the plug-in never needs: it only checks
// that the host offers it.
using HostProc = int16_t (*)();

// The required procedures. The plug-in demands the first, second and fourth;
// what they do is the host's business.
struct RequiredProcs {
  int32_t header;
  HostProc proc[4];
};

// Tells the host to take the pixels described by the record now. Its result
// is ignored by the plug-in.
using AdvanceStateProc = int16_t (*)();

struct HandleProcs {
  int32_t header;
  Handle (*newHandle)(int32_t size);
  void (*disposeHandle)(Handle h);
  int32_t (*getHandleSize)(Handle h);
};

}  // namespace pixmere
