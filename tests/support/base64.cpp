#include "tests/support/base64.h"

#include <cstdint>
#include <cstring>

namespace qltest {

std::string DecodeBase64(const std::string& text) {
  static const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  uint32_t acc = 0;
  int bits = 0;
  for (char c : text) {
    const char* hit = c == 0 ? nullptr : std::strchr(alphabet, c);
    if (hit == nullptr) continue;
    acc = acc << 6 | uint32_t(hit - alphabet);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(char(acc >> bits & 0xFF));
    }
  }
  return out;
}

}  // namespace qltest
