// The host's colour engine, as the host simulator drives it. The plug-in
// reaches the same engine only through the binding (sdk/weft.h), which the
// host offers through WeftGetGetProcAddress.
#pragma once

#include <cstdint>
#include <string>

#include "sdk/weft.h"

extern "C" __attribute__((visibility("default"))) WeftProcLookup WeftGetGetProcAddress();

namespace hostcolour {

// Whether WeftGetGetProcAddress hands out the lookup (default true).
void SetBindingOffered(bool offered);

// The file behind the CMYK family's default profile. Defaults to the one
// found at configure time; a CMYK space asked for while it is missing fails
// and leaves a message in LastError().
void SetDefaultCMYKProfilePath(const std::string& path);
std::string DefaultCMYKProfilePath();
const std::string& LastError();

struct Counters {
  uint64_t transformsCreated = 0;  // cache misses
  uint64_t conversions = 0;        // single colours converted
  int64_t liveObjects = 0;  // client-held profiles references, colour profiles, spaces, options
};
Counters GetCounters();

}  // namespace hostcolour
