// What a host may ask of the preview reader without reaching into it: the
// document kinds its classifier tells apart (from a vector file's first 512
// bytes and its XMP packet).
#pragma once

#include <cstdint>

inline constexpr int32_t kQLDocumentPDF = 1;           // "%PDF" among the first 156 bytes
inline constexpr int32_t kQLDocumentPostScript = 2;    // "%!PS" among the first 156 bytes
inline constexpr int32_t kQLDocumentXapThumbnail = 3;  // an XMP packet naming "xap::Thumbnails"
inline constexpr int32_t kQLDocumentOther = 4;

// The kind of the document open as `fd`, read from its current offset, which
// the reading moves: one of the codes above, or 0 when the file is shorter
// than 512 bytes or cannot be read.
int32_t ClassifyDocument(int fd);
