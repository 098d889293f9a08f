// Why the plug-in refused a file, told the way a person can act on: a swatch
// file is read again with the reader the plug-in uses, so the reason is its
// own, not a guess.
#pragma once

#include <cstdint>
#include <string>

namespace pxhost {

// The reason a swatch request on the open file fd was refused with result,
// e.g. "damaged swatch file: block 12 runs past the end (result -30501)".
std::string SwatchRefusal(int fd, int16_t result);
// The reason read start or read continue refused the open file fd:
// "embedded preview damaged" when the file has the preview's marker, else
// "no embedded preview"; then the result in parentheses.
std::string PreviewRefusal(int fd, int16_t result);

}  // namespace pxhost
