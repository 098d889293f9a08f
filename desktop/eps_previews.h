// The pictures EPS files carry of themselves: the sections of a DOS EPS
// file's binary header (PostScript, WMF, TIFF), the TIFF section decoded with
// libtiff, and an EPSI preview's hex bitmap in the leading comments.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "pxhost/rgb_image.h"

namespace pxhost {

struct EpsSection {
  uint32_t offset = 0;  // from the start of the file
  uint32_t length = 0;  // 0: the file has no such section
};

struct DosEpsHeader {
  EpsSection postscript, wmf, tiff;
};

// The header is 30 bytes: the signature C5 D0 D3 C6, then offset and length
// (little-endian 32-bit) of the PostScript, WMF and TIFF sections, then a
// checksum.
inline constexpr size_t kDosEpsHeaderSize = 30;

bool HasDosEpsSignature(std::span<const uint8_t> head);

// The sections named by the header at the start of `head` in a file of
// fileSize bytes. "" with *header set, or the reason: a PostScript section
// missing, a section of zero length where an offset is given, one reaching
// past the end of the file, into the header or into another section.
std::string ReadDosEpsHeader(std::span<const uint8_t> head, uint64_t fileSize,
                             DosEpsHeader* header);

// Previews above this many pixels are refused before anything is allocated:
// a screen-resolution picture of a poster is a few million.
inline constexpr int64_t kMaxPreviewPixels = int64_t(4096) * 4096;

// A TIFF section decoded to RGB (any photometric, compression and layout
// libtiff reads). *colour is false for a bilevel or grey picture, which only
// sketches a colour page. "" with *image set, or the reason.
std::string DecodeTiffPreview(std::span<const uint8_t> tiff, RgbImage* image, bool* colour);

// The EPSI preview (%%BeginPreview: width height depth lines, then that many
// comment lines of hex; depth 1, 2, 4 or 8; 0 is white) among the document's
// leading comments. *found is false when there is none; otherwise "" with
// *image set, or the reason.
std::string ReadEpsiPreview(std::string_view document, RgbImage* image, bool* found);

}  // namespace pxhost
