// render_page ps|pdf IN OUT.png SIZE: the first page through the document
// renderer alone, as a thumbnailer built on it directly would make it. The
// yardstick for what pxhost thumbnail's fallback path costs on top.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "desktop/document_pages.h"
#include "pxhost/image_io.h"

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fputs("usage: render_page ps|pdf IN OUT.png SIZE\n", stderr);
    return 2;
  }
  pxhost::RgbImage image;
  int size = std::atoi(argv[4]);
  std::string error = std::strcmp(argv[1], "pdf") == 0
                          ? pxhost::RenderPdfPage(argv[2], size, &image)
                          : pxhost::RenderPostScriptPage(argv[2], size, &image);
  std::string png;
  if (error.empty()) error = pxhost::EncodePng(image, &png);
  if (error.empty() && !(std::ofstream(argv[3], std::ios::binary) << png)) error = "cannot write";
  if (!error.empty()) {
    std::fprintf(stderr, "render_page: %s\n", error.c_str());
    return 1;
  }
  return 0;
}
