// The pictures an EPS file carries of itself, read from its open descriptor
// (only the bytes each needs), and what a document's first bytes say it is.
#pragma once

#include <string>

#include "desktop/eps_previews.h"

namespace pxhost {

// What a document's first bytes say: "%!PS", "%PDF-" or the DOS EPS
// signature; the reader's classifier names nothing in a file shorter than
// 512 bytes, and a complete drawing can be far shorter.
enum class DocumentStart { kUnknown, kPostScript, kPdf, kDosEps };
DocumentStart SniffDocument(int fd);

// The DOS EPS header of the file at fd (which must start with the
// signature): "" with *header set, or the reason.
std::string ReadDosEpsFile(int fd, DosEpsHeader* header);

// The TIFF section the header names, decoded; *colour as DecodeTiffPreview.
std::string ReadTiffSection(int fd, const DosEpsHeader& header, RgbImage* image, bool* colour);

// The EPSI preview of the PostScript in `section` (the whole file when its
// length is 0); *found false when there is none.
std::string ReadEpsiFile(int fd, EpsSection section, RgbImage* image, bool* found);

// Copies `section` to a new file in folder: "" with *path set, or the
// reason. The renderer gets a DOS EPS file's PostScript alone, never its
// binary header.
std::string CopySection(int fd, EpsSection section, const std::string& folder, std::string* path);

}  // namespace pxhost
