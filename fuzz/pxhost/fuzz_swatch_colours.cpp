// Arbitrary bytes as a swatch book shown by palettes and the swatch
// thumbnail: the reader's survey, every name mended, every display colour,
// and the three palette formats made from them.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "pxhost/palette_formats.h"
#include "pxhost/swatch_colours.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int fd = memfd_create("book", MFD_CLOEXEC);
  if (fd < 0 || ::write(fd, data, size) != ssize_t(size)) std::abort();
  ::lseek(fd, 0, SEEK_SET);
  SwatchFileSurvey survey = SurveySwatchFile(fd);
  ::close(fd);
  std::vector<pxhost::DisplaySwatch> swatches;
  std::string error;
  if (!pxhost::DisplaySwatchesOfBook(survey, &swatches, &error)) return 0;
  for (const pxhost::DisplaySwatch& s : swatches) {
    pxhost::MendedNameWarning(s);
    pxhost::SkippedWarning(s);
  }
  pxhost::PaletteGpl("fuzz", swatches);
  pxhost::PaletteJson("fuzz", swatches);
  pxhost::PaletteCss(swatches);
  return 0;
}
