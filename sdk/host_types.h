// Basic vocabulary shared by the host and the plug-in: result codes, handles
// and four-character codes.
#pragma once

#include <cstdint>

namespace pixmere {

// Host result codes, 16-bit signed as they travel through PluginMain's result.
inline constexpr int16_t kResultNoError = 0;
inline constexpr int16_t kResultCannotRead = -30501;
inline constexpr int16_t kResultHostInsufficient = -30900;
inline constexpr int16_t kResultUserCancelled = -128;

// A four-character code packed with its first character in the most
// significant byte ("SXF " == 0x53584620).
constexpr uint32_t FourCC(const char (&s)[5]) {
  return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
         (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}

// A handle is a pointer to the host's master pointer of a relocatable block.
using Handle = char**;

}  // namespace pixmere
