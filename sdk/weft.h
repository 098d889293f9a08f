// The host library binding: the host hands the plug-in one lookup function,
// and the plug-in resolves each colour-engine procedure from it by name.
// Everything crossing it is C: opaque object pointers, fixed-width integers
// and floats.
//
// Object lifetimes: profiles are reference-counted (ProfileFromCode hands out
// one reference, UnReferenceProfile returns it); colour profiles, colour
// spaces and convert options are released by their release procedure. Colour
// profiles and colour spaces hold their own reference to the profile they
// were made from.
#pragma once

#include <cstdint>

extern "C" {

using WeftProcLookup = void* (*)(const char* procName);

// Exported by the host executable; null when the host offers no binding.
using WeftGetGetProcAddressProc = WeftProcLookup (*)();

// A profile by four-character code ("sGra", "LD50", "mRGB"); null if unknown.
using WeftTinctProfileFromCodeProc = void* (*)(uint32_t code);
using WeftTinctUnReferenceProfileProc = void (*)(void* profile);

// A colour profile keeps its profile referenced for the request. renderIntent
// is one of the four ICC intents (0..3), bpcState and flag are 0 or 1;
// anything else is refused (null). Conversions take their intent from the
// convert options.
using WeftColorProfileCreateProc = void* (*)(void* profile, int32_t renderIntent, int32_t bpcState,
                                             int32_t flag);
using WeftColorProfileReleaseProc = void (*)(void* colorProfile);

// The five flags are construction options of the host's own spaces; this
// engine has none of them and accepts any values.
using WeftColorSpaceFromProfileProc = void* (*)(void* profile, int32_t flag1, int32_t flag2,
                                                int32_t flag3, int32_t flag4, int32_t flag5);
// family 2: CMYK, made from the engine's default CMYK profile.
using WeftColorSpaceFromFamilyProc = void* (*)(int32_t family, int32_t flag1, int32_t flag2,
                                               int32_t flag3, int32_t flag4, int32_t flag5);
using WeftColorSpaceReleaseProc = void (*)(void* colorSpace);

// Default options: render intent 1 (relative colorimetric), no black-point
// compensation.
using WeftColorConvertOptionsCreateProc = void* (*)();
using WeftColorConvertOptionsReleaseProc = void (*)(void* options);

// Converts one colour; 1 on success, 0 on failure (out untouched). Inputs:
// gray 0..1, Lab L 0..100 with a and b as given, RGB and CMYK 0..1 per
// channel. Outputs in the same ranges and NOT clipped: a colour outside the
// destination's gamut comes out below 0 or above 1, and the caller clamps.
// The three trailing arguments must be 0.
using WeftColorSpaceConvertOneColorProc = int32_t (*)(const void* source, const void* destination,
                                                      const float* in, float* out,
                                                      const void* options, int32_t reserved1,
                                                      int32_t reserved2, int32_t reserved3);

}  // extern "C"

// The names the lookup answers to.
inline constexpr char kWeftGetGetProcAddress[] = "WeftGetGetProcAddress";
inline constexpr char kWeftTinctProfileFromCode[] = "Tinct.ProfileFromCode";
inline constexpr char kWeftTinctUnReferenceProfile[] = "Tinct.UnReferenceProfile";
inline constexpr char kWeftColorProfileCreate[] = "Graven.ColorProfile.Create";
inline constexpr char kWeftColorProfileRelease[] = "Graven.ColorProfile.Release";
inline constexpr char kWeftColorSpaceFromProfile[] = "Graven.ColorSpace.FromProfile";
inline constexpr char kWeftColorSpaceFromFamily[] = "Graven.ColorSpace.FromFamily";
inline constexpr char kWeftColorSpaceRelease[] = "Graven.ColorSpace.Release";
inline constexpr char kWeftColorConvertOptionsCreate[] = "Graven.ColorConvertOptions.Create";
inline constexpr char kWeftColorConvertOptionsRelease[] = "Graven.ColorConvertOptions.Release";
inline constexpr char kWeftColorSpaceConvertOneColor[] = "Graven.ColorSpace.ConvertOneColor";
