// The host's format record, as the host lays it out: packed on 2-byte
// boundaries, so a 32-bit or pointer field may start at an address that is
// 2 modulo 4. The fields the plug-in touches lie in this order; the host's own
// fields sit between them. Pointer fields are native pointers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sdk/host_types.h"
#include "sdk/procs.h"

namespace pixmere {

struct PKBasicSuite;

#pragma pack(push, 2)
struct FormatRecord {
  int16_t hostVersion;  // host
  int32_t dataForkRef;  // reference of the file the host opened for the plug-in
  int16_t imageMode;    // written: 3 (RGB)
  int16_t hostFlags;    // host
  int16_t imageHeight;
  int16_t imageWidth;
  int16_t imageDepth;  // bits per channel
  int16_t planeCount;
  int16_t hostPadA;  // host
  void* pixelData;
  int16_t rectTop;
  int16_t rectLeft;
  int16_t rectBottom;
  int16_t rectRight;
  int16_t firstPlane;
  int16_t lastPlane;
  int16_t columnStride;
  int32_t rowStride;
  int32_t planeStride;
  int16_t hostPadB;  // host
  RequiredProcs* requiredProcs;
  HandleProcs* handleProcs;
  int16_t hostPadC;   // host
  uint32_t fileType;  // four-character code, 0 when unknown
  AdvanceStateProc advanceStateProc;
  const PKBasicSuite* basicSuite;
  int32_t pluginRef;
  int32_t clearedPairA;
  int32_t clearedPairB;
  uint8_t previewOpen;  // non-zero: the host opens the file only for a preview
  uint8_t hostPadD;     // host
  int16_t hostPadE;     // host
  Handle xmpHandle;     // receives the XMP packet at selector 21
  int16_t hostTail;     // host
};
#pragma pack(pop)

// The layout is the host's contract: pin it. Several 32-bit fields, the XMP
// handle slot among them, sit at 2 modulo 4.
static_assert(offsetof(FormatRecord, dataForkRef) == 2);
static_assert(offsetof(FormatRecord, pixelData) == 20);
static_assert(offsetof(FormatRecord, rowStride) == 42);
static_assert(offsetof(FormatRecord, planeStride) == 46);
static_assert(offsetof(FormatRecord, requiredProcs) == 52);
static_assert(offsetof(FormatRecord, fileType) == 70);
static_assert(offsetof(FormatRecord, basicSuite) == 82);
static_assert(offsetof(FormatRecord, pluginRef) == 90);
static_assert(offsetof(FormatRecord, clearedPairA) == 94);
static_assert(offsetof(FormatRecord, previewOpen) == 102);
static_assert(offsetof(FormatRecord, xmpHandle) == 106);
static_assert(sizeof(FormatRecord) == 116);

inline constexpr int16_t kImageModeRGB = 3;

}  // namespace pixmere
