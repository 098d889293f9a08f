// Base64 text back to bytes, for reading the page images of a swatch packet.
#pragma once

#include <string>

namespace qltest {

// The standard alphabet; line feeds and anything else outside it are
// skipped, padding ends nothing early.
std::string DecodeBase64(const std::string& text);

}  // namespace qltest
