// Selector numbers the host passes to PluginMain. Only the ones the plug-in
// acts on have names; every other value is answered without doing anything.
#pragma once

#include <cstdint>

namespace pixmere {

inline constexpr int16_t kSelectorReadStart = 2;
inline constexpr int16_t kSelectorReadContinue = 3;
inline constexpr int16_t kSelectorFilterFile = 17;
inline constexpr int16_t kSelectorXMP = 21;

}  // namespace pixmere
