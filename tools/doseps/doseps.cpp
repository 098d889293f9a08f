// doseps IN.eps PREVIEW.png OUT.eps [--grey]: a DOS EPS file with IN's
// PostScript and the picture as its TIFF preview (RGB, or grey with --grey).
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "tools/doseps/doseps_writer.h"

int main(int argc, char** argv) {
  bool grey = argc == 5 && std::strcmp(argv[4], "--grey") == 0;
  if (argc != 4 && !grey) {
    std::fprintf(stderr, "usage: doseps IN.eps PREVIEW.png OUT.eps [--grey]\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  std::string postscript((std::istreambuf_iterator<char>(in)), {});
  pxhost::RgbImage preview;
  std::string error = pxhost::ReadImage(argv[2], &preview);
  if (!in.is_open() || !error.empty()) {
    std::fprintf(stderr, "doseps: %s\n", !in.is_open() ? argv[1] : error.c_str());
    return 1;
  }
  std::ofstream out(argv[3], std::ios::binary);
  out << doseps::DosEps(postscript, doseps::Tiff(preview, grey));
  if (!out.flush()) {
    std::fprintf(stderr, "doseps: %s: cannot write\n", argv[3]);
    return 1;
  }
  return 0;
}
