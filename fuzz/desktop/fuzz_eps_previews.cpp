// The EPS preview readers as the thumbnailer uses them on a file: the DOS EPS
// header bounded by the file's size, the TIFF section it names decoded, and
// the EPSI preview looked for in the PostScript (the whole input when it is
// not a DOS EPS file).
#include <cstdint>
#include <span>
#include <string_view>

#include "desktop/eps_previews.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const uint8_t> file(data, size);
  std::span<const uint8_t> postscript = file;
  pxhost::RgbImage image;
  if (pxhost::HasDosEpsSignature(file)) {
    pxhost::DosEpsHeader header;
    if (!pxhost::ReadDosEpsHeader(file, size, &header).empty()) return 0;
    postscript = file.subspan(header.postscript.offset, header.postscript.length);
    if (header.tiff.length != 0) {
      bool colour = false;
      pxhost::DecodeTiffPreview(file.subspan(header.tiff.offset, header.tiff.length), &image,
                                &colour);
    }
  }
  bool found = false;
  pxhost::ReadEpsiPreview(
      std::string_view(reinterpret_cast<const char*>(postscript.data()), postscript.size()), &image,
      &found);
  return 0;
}
