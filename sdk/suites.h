// The host's suite registry: the basic suite hands out named, versioned
// procedure tables, and the "PK Suites Suite" lets a plug-in add its own.
#pragma once

#include <cstdint>

#include "sdk/host_types.h"

namespace pixmere {

using PKSuiteRef = void*;

struct PKBasicSuite {
  // Acquire a suite by name and version; the table comes back in *suite.
  int32_t (*AcquireSuite)(const char* name, int32_t version, const void** suite);
  int32_t (*ReleaseSuite)(const char* name, int32_t version);
};

inline constexpr char kPKSuitesSuite[] = "PK Suites Suite";
inline constexpr int32_t kPKSuitesSuiteVersion = 2;

struct PKSuitesSuite {
  int32_t (*CountSuites)(int32_t* count);
  int32_t (*FindSuite)(const char* name, int32_t version, PKSuiteRef* ref);
  // The first two arguments are the host's; plug-ins pass 0 for both.
  int32_t (*AddSuite)(int32_t hostArgA, int32_t hostArgB, const char* name, int32_t version,
                      int32_t internalVersion, const void* procs, PKSuiteRef* ref);
};

// Host error codes of the registry (four-character codes).
inline constexpr int32_t kPKErrSuiteNotFound = int32_t(FourCC("!nfd"));
inline constexpr int32_t kPKErrSuiteExists = int32_t(FourCC("!dup"));

// The plug-in's own suite: how a vector file should be previewed.
inline constexpr char kQLRenderingMethodSuite[] = "Kelto QL Rendering method Suite";
inline constexpr int32_t kQLRenderingMethodSuiteVersion = 1;

inline constexpr int32_t kQLRenderingMethodPDF = 1;
inline constexpr int32_t kQLRenderingMethodXMPThumbnail = 2;
inline constexpr int32_t kQLRenderingMethodEmbeddedThumbnail = 3;

inline constexpr int32_t kQLErrParm = int32_t(FourCC("Parm"));
inline constexpr int32_t kQLErrKXEC = int32_t(FourCC("KXEC"));

struct QLRenderingMethodSuite {
  int32_t (*GetQLRenderingMethodForFile)(const char* path, int32_t* method);
};

}  // namespace pixmere
