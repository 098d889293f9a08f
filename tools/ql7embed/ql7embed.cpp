// ql7embed: makes a PostScript or PDF page that carries a "%QL7_Thumbnail:"
// preview of an image.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "pxhost/image_io.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

const char kUsage[] =
    "usage: ql7embed IN.png|IN.ppm OUT.ps|OUT.pdf [--bits 8|24] [--rle]\n"
    "                [--xmp-format TEXT] [--xmp-thumbnail] [--xmp-jpeg FILE.jpg]\n"
    "\n"
    "  --bits 8         colour table of 256 entries and one code per pixel (default)\n"
    "  --bits 24        three bytes per pixel\n"
    "  --rle            run-length code the pixel codes (FD count value; FD FD literal)\n"
    "  --xmp-format T   (PDF) write XMP metadata whose xmp:Format is T\n"
    "  --xmp-thumbnail  (PDF) write XMP metadata with a JPEG xmp:Thumbnails item whose\n"
    "                   image is a few bytes that hold no picture\n"
    "  --xmp-jpeg F     (PDF) the same item holding the JPEG file F\n"
    "\n"
    "The output is PDF when OUT ends in .pdf, PostScript otherwise. The preview holds\n"
    "at most 128 x 128 pixels for the host to show it.\n";

constexpr int kMaxSide = 128;

int Usage(const char* message) {
  std::fprintf(stderr, "ql7embed: %s\ntry 'ql7embed --help'\n", message);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  ql7::Options options;
  std::string in, out;
  for (int k = 1; k < argc; ++k) {
    std::string a = argv[k];
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (a == "--bits" && k + 1 < argc) {
      options.bitsPerPixel = std::atoi(argv[++k]);
      if (options.bitsPerPixel != 8 && options.bitsPerPixel != 24)
        return Usage("--bits is 8 or 24");
    } else if (a == "--rle") {
      options.runLength = true;
    } else if (a == "--xmp-format" && k + 1 < argc) {
      options.xmpFormat = argv[++k];
    } else if (a == "--xmp-thumbnail") {
      options.xmpJpegThumbnail = true;
    } else if (a == "--xmp-jpeg" && k + 1 < argc) {
      std::ifstream jpeg(argv[++k], std::ios::binary);
      options.xmpJpeg.assign(std::istreambuf_iterator<char>(jpeg), {});
      if (!jpeg.good() && !jpeg.eof()) return Usage("cannot read the --xmp-jpeg file");
      if (options.xmpJpeg.empty()) return Usage("the --xmp-jpeg file is empty or unreadable");
      options.xmpJpegThumbnail = true;
    } else if (!a.empty() && a[0] == '-') {
      return Usage(("unknown option " + a).c_str());
    } else if (in.empty()) {
      in = a;
    } else if (out.empty()) {
      out = a;
    } else {
      return Usage("too many arguments");
    }
  }
  if (out.empty()) return Usage("expected IN and OUT");
  std::string ext = std::filesystem::path(out).extension().string();
  for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  if (ext != ".ps" && ext != ".eps" && ext != ".pdf")
    return Usage("OUT must end in .ps, .eps or .pdf: that is what is written");
  options.pdf = ext == ".pdf";
  if (!options.pdf && (!options.xmpFormat.empty() || options.xmpJpegThumbnail))
    return Usage("XMP metadata is written into PDF files only");

  pxhost::RgbImage image;
  std::string err = pxhost::ReadImage(in, &image);
  if (!err.empty()) return Usage(err.c_str());
  // The host's read buffer holds a 128 x 128 preview; the plug-in refuses a
  // larger one, so writing it would only make a file without a preview.
  if (image.width > kMaxSide || image.height > kMaxSide)
    return Usage(("the image is " + std::to_string(image.width) + " x " +
                  std::to_string(image.height) + " pixels; a preview holds at most 128 x 128")
                     .c_str());
  std::string file = ql7::VectorFile(image, options);

  FILE* f = std::fopen(out.c_str(), "wb");
  bool written = f != nullptr && std::fwrite(file.data(), 1, file.size(), f) == file.size();
  if (f != nullptr && std::fclose(f) != 0) written = false;
  if (!written) {
    if (f != nullptr) std::remove(out.c_str());  // what was opened, not a file it could not open
    return Usage(("cannot write " + out).c_str());
  }
  return 0;
}
