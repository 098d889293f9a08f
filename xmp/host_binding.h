// The plug-in's side of the host library binding: finds the host's lookup at
// run time, resolves the colour-engine procedures by name, and wraps them in
// the classes the swatch pages use. Without a binding (or before
// WeftClientInit) every wrapper is inert: profiles are null and conversions
// fail.
#pragma once

#include <cstdint>

#include "sdk/weft.h"

// The host's lookup, or null when the host exports none or offers none.
WeftProcLookup FindWeftProcLookup();

// 0 when every procedure resolved; otherwise -1 and the binding stays unset.
int32_t WeftClientInit(WeftProcLookup lookup);
void WeftClientTerminate();

class CTinct {
 public:
  // A counted reference to the engine's profile for a four-character code.
  static void* ProfileFromCode(uint32_t code);
  static void UnReferenceProfile(void* profile);
};

class CGravenColorProfile {
 public:
  CGravenColorProfile(void* profile, int32_t renderIntent, int32_t bpcState, bool flag);
  ~CGravenColorProfile();
  CGravenColorProfile(const CGravenColorProfile&) = delete;
  CGravenColorProfile& operator=(const CGravenColorProfile&) = delete;

 private:
  void* ref_;
};

class CGravenColorConvertOptions {
 public:
  CGravenColorConvertOptions();  // relative colorimetric, no black-point compensation
  ~CGravenColorConvertOptions();
  CGravenColorConvertOptions(const CGravenColorConvertOptions&) = delete;
  CGravenColorConvertOptions& operator=(const CGravenColorConvertOptions&) = delete;

 private:
  friend class CGravenColorSpace;
  void* ref_;
};

class CGravenColorSpace {
 public:
  static constexpr int32_t kFamilyCMYK = 2;

  CGravenColorSpace(void* profile, bool flag1, bool flag2, bool flag3, bool flag4, bool flag5);
  CGravenColorSpace(int32_t family, bool flag1, bool flag2, bool flag3, bool flag4, bool flag5);
  ~CGravenColorSpace();
  CGravenColorSpace(const CGravenColorSpace&) = delete;
  CGravenColorSpace& operator=(const CGravenColorSpace&) = delete;

  // See WeftColorSpaceConvertOneColorProc for ranges: the output is not
  // clipped. False (out untouched) when either space could not be made.
  bool ConvertOneColor(const CGravenColorSpace& destination, const float* in, float* out,
                       const CGravenColorConvertOptions& options, int32_t reserved1,
                       int32_t reserved2, int32_t reserved3) const;

 private:
  void* ref_;
};
