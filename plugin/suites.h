// Holders for the host suites the plug-in may acquire, their release, and the
// first-error-wins result helpers.
#pragma once

#include <cstdint>

struct SuiteHolder {
  const void* suite;  // the acquired procedure table; null while not acquired
  int32_t version;
  const char* name;
  int32_t reserved;  // always 0
  // At unload a suite still held is given back; holders are destroyed in the
  // reverse order of their set-up.
  ~SuiteHolder();
};

extern SuiteHolder sPXActionDescriptor, sPXActionControl, sPXActionReference, sPXActionList,
    sPXRegistry, sPXUIHooks, sPXHandle, sKXZString, sPKAccess, sPXFileList, sPXBuffer,
    sPXChannelProcs, sPKRuntime, sPXProperty, sPXAlias, sPXResource;

// Releases every acquired suite through the basic suite, in a fixed order.
void PIUSuitesRelease();

// True when error is 0; otherwise stores it (truncated to 16 bits) unless a
// result is already stored, and returns false.
bool TestAndStoreResult(int16_t* result, int32_t error);
// True when not cancelled; otherwise stores the user-cancelled code unless a
// result is already stored, and returns false.
bool TestAndStoreCancel(int16_t* result, bool cancelled);
