// Selector numbers the host passes to PluginMain. The plug-in acts on the
// read and filter selectors and on the XMP one; every other value is
// answered without doing anything, and the host sends the first call and
// read finish all the same.
#pragma once

#include <cstdint>

namespace pixmere {

inline constexpr int16_t kSelectorAbout = 0;
inline constexpr int16_t kSelectorReadStart = 2;
inline constexpr int16_t kSelectorReadContinue = 3;
inline constexpr int16_t kSelectorReadFinish = 4;
// The ends of the host's options, estimate and write phases: the plug-in
// takes part in none of them, but gives back its suites there as after about
// and read finish.
inline constexpr int16_t kSelectorOptionsFinish = 8;
inline constexpr int16_t kSelectorEstimateFinish = 12;
inline constexpr int16_t kSelectorWriteFinish = 16;
inline constexpr int16_t kSelectorFilterFile = 17;
inline constexpr int16_t kSelectorXMP = 21;

}  // namespace pixmere
