// The EPS preview readers on the layouts writers produce and on the damage
// a file can carry: DOS EPS section bounds, TIFF sections written by libtiff
// in each colour model, and EPSI hex at every depth.
#include "desktop/eps_previews.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "common/coverage_counts.h"
#include "desktop/eps_files.h"
#include "tests/support/fixture_file.h"

namespace {

using pxhost::DosEpsHeader;
using pxhost::RgbImage;

std::span<const uint8_t> Bytes(const std::string& s) {
  return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

void Put32(std::string* s, uint32_t v) {
  for (int k = 0; k < 4; ++k) s->push_back(char(v >> (8 * k)));
}

std::string Header(uint32_t psOff, uint32_t psLen, uint32_t wmfOff, uint32_t wmfLen,
                   uint32_t tiffOff, uint32_t tiffLen) {
  std::string h = "\xC5\xD0\xD3\xC6";
  for (uint32_t v : {psOff, psLen, wmfOff, wmfLen, tiffOff, tiffLen}) Put32(&h, v);
  return h + "\xFF\xFF";
}

TEST(DosEpsHeader, SectionsInsideTheFileAreRead) {
  DosEpsHeader h;
  EXPECT_EQ(pxhost::ReadDosEpsHeader(Bytes(Header(30, 100, 0, 0, 130, 20)), 150, &h), "");
  EXPECT_EQ(h.postscript.offset, 30u);
  EXPECT_EQ(h.postscript.length, 100u);
  EXPECT_EQ(h.wmf.length, 0u);
  EXPECT_EQ(h.tiff.offset, 130u);
  EXPECT_EQ(h.tiff.length, 20u);
  // The preview may come first (some writers put the TIFF before the
  // PostScript).
  EXPECT_EQ(pxhost::ReadDosEpsHeader(Bytes(Header(80, 70, 0, 0, 30, 50)), 150, &h), "");
}

TEST(DosEpsHeader, BoundsAndOverlapsAreRefused) {
  struct Case {
    std::string header;
    uint64_t size;
    const char* reason;
  } cases[] = {
      {Header(30, 121, 0, 0, 0, 0), 150, "PostScript section reaches past the end"},
      {Header(0xFFFFFFF0u, 0x20, 0, 0, 0, 0), 150, "reaches past the end"},  // would wrap
      {Header(30, 100, 0, 0, 131, 20), 150, "TIFF section reaches past the end"},
      {Header(30, 100, 0, 0, 129, 20), 150, "PostScript and TIFF sections overlap"},
      {Header(30, 100, 40, 10, 0, 0), 150, "PostScript and WMF sections overlap"},
      {Header(30, 50, 100, 30, 110, 30), 150, "WMF and TIFF sections overlap"},
      {Header(30, 100, 0, 0, 130, 0), 150, "TIFF section is empty"},
      {Header(30, 0, 0, 0, 0, 0), 150, "PostScript section is empty"},
      {Header(0, 0, 0, 0, 30, 100), 150, "names no PostScript section"},
      {Header(10, 100, 0, 0, 0, 0), 150, "overlaps the header"},
      {Header(30, 100, 0, 0, 0, 0).substr(0, 20), 20, "cut short"},
      {"%!PS-Adobe-3.0 EPSF-3.0\n", 24, "not a DOS EPS file"},
  };
  for (const Case& c : cases) {
    DosEpsHeader h;
    std::string error = pxhost::ReadDosEpsHeader(Bytes(c.header), c.size, &h);
    EXPECT_NE(error.find(c.reason), std::string::npos) << error << " / " << c.reason;
  }
}

// A TIFF written by libtiff itself: w x h pixels of `samples` bytes each.
std::string WriteTiff(int w, int h, uint16_t photometric, uint16_t samples, uint16_t bits,
                      uint16_t compression, const std::vector<uint8_t>& data,
                      const std::vector<uint16_t>* palette = nullptr) {
  char name[] = "/tmp/eps_previews_test.XXXXXX";
  int fd = mkstemp(name);
  EXPECT_GE(fd, 0);
  close(fd);
  TIFF* t = TIFFOpen(name, "w");
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, samples);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
  TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 2);
  if (palette != nullptr)
    TIFFSetField(t, TIFFTAG_COLORMAP, palette->data(), palette->data() + 256,
                 palette->data() + 512);
  size_t row = (size_t(w) * samples * bits + 7) / 8;
  for (int y = 0; y < h; ++y)
    EXPECT_EQ(TIFFWriteScanline(t, const_cast<uint8_t*>(data.data() + y * row), y, 0), 1);
  TIFFClose(t);
  std::ifstream in(name, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  std::remove(name);
  return bytes;
}

std::vector<uint8_t> Px(const RgbImage& image, int x, int y) {
  const uint8_t* p = &image.pixels[size_t((y * image.width + x) * 3)];
  return {p[0], p[1], p[2]};
}

TEST(TiffPreview, EveryColourModelAndCompressionWritersUse) {
  // 3 x 2: red, green, blue / white, black, grey.
  std::vector<uint8_t> rgb = {255, 0,   0,   0, 255, 0, 0,   0,   255,
                              255, 255, 255, 0, 0,   0, 128, 128, 128};
  std::vector<uint8_t> cmyk = {0, 255, 255, 0, 255, 0, 255, 0,   255, 255, 0, 0,
                               0, 0,   0,   0, 0,   0, 0,   255, 0,   0,   0, 127};
  std::vector<uint16_t> palette(768, 0);
  for (int k = 0; k < 256; ++k)
    palette[k] = palette[256 + k] = palette[512 + k] = uint16_t(k * 257);
  palette[1] = 0xFFFF, palette[256 + 1] = 0, palette[512 + 1] = 0;  // entry 1: red
  std::vector<uint8_t> indexed = {1, 0, 0, 255, 0, 128};
  for (uint16_t compression : {COMPRESSION_NONE, COMPRESSION_PACKBITS, COMPRESSION_LZW}) {
    RgbImage image;
    bool colour = false;
    ASSERT_EQ(pxhost::DecodeTiffPreview(
                  Bytes(WriteTiff(3, 2, PHOTOMETRIC_RGB, 3, 8, compression, rgb)), &image, &colour),
              "");
    EXPECT_TRUE(colour);
    ASSERT_EQ(image.width, 3);
    ASSERT_EQ(image.height, 2);
    EXPECT_EQ(image.pixels, rgb) << compression;

    ASSERT_EQ(pxhost::DecodeTiffPreview(
                  Bytes(WriteTiff(3, 2, PHOTOMETRIC_SEPARATED, 4, 8, compression, cmyk)), &image,
                  &colour),
              "");
    EXPECT_TRUE(colour);
    EXPECT_EQ(Px(image, 0, 0), (std::vector<uint8_t>{255, 0, 0}));
    EXPECT_EQ(Px(image, 2, 0), (std::vector<uint8_t>{0, 0, 255}));
    EXPECT_EQ(Px(image, 1, 1), (std::vector<uint8_t>{0, 0, 0}));

    ASSERT_EQ(pxhost::DecodeTiffPreview(
                  Bytes(WriteTiff(3, 2, PHOTOMETRIC_PALETTE, 1, 8, compression, indexed, &palette)),
                  &image, &colour),
              "");
    EXPECT_TRUE(colour);
    EXPECT_EQ(Px(image, 0, 0), (std::vector<uint8_t>{255, 0, 0}));
    EXPECT_EQ(Px(image, 2, 1), (std::vector<uint8_t>{128, 128, 128}));
  }
}

TEST(TiffPreview, GreyAndBilevelAreSketches) {
  RgbImage image;
  bool colour = true;
  ASSERT_EQ(pxhost::DecodeTiffPreview(
                Bytes(WriteTiff(2, 1, PHOTOMETRIC_MINISBLACK, 1, 8, COMPRESSION_NONE, {0, 200})),
                &image, &colour),
            "");
  EXPECT_FALSE(colour);
  EXPECT_EQ(image.pixels, (std::vector<uint8_t>{0, 0, 0, 200, 200, 200}));
  // Bilevel, 0 is white: 8 pixels in one byte, the first black.
  ASSERT_EQ(pxhost::DecodeTiffPreview(
                Bytes(WriteTiff(8, 1, PHOTOMETRIC_MINISWHITE, 1, 1, COMPRESSION_CCITTFAX4, {0x80})),
                &image, &colour),
            "");
  EXPECT_FALSE(colour);
  EXPECT_EQ(Px(image, 0, 0), (std::vector<uint8_t>{0, 0, 0}));
  EXPECT_EQ(Px(image, 7, 0), (std::vector<uint8_t>{255, 255, 255}));
}

// A little-endian TIFF with one IFD announcing width x height, one 8-bit
// grey strip of `stripBytes` at offset 8.
std::string TiffAnnouncing(uint32_t width, uint32_t height, uint32_t stripBytes) {
  std::string t = "II*";
  t.push_back(0);
  Put32(&t, 8 + stripBytes);
  t += std::string(stripBytes, '\x40');
  auto entry = [&](uint16_t tag, uint16_t type, uint32_t value) {
    t.push_back(char(tag)), t.push_back(char(tag >> 8));
    t.push_back(char(type)), t.push_back(0);
    Put32(&t, 1);
    Put32(&t, value);
  };
  t.push_back(8), t.push_back(0);
  entry(256, 4, width);
  entry(257, 4, height);
  entry(258, 3, 8);
  entry(262, 3, PHOTOMETRIC_MINISBLACK);
  entry(273, 4, 8);
  entry(278, 4, height);
  entry(279, 4, stripBytes);
  entry(259, 3, COMPRESSION_NONE);
  Put32(&t, 0);
  return t;
}

// The same with one entry's value changed: a strip that lies beyond the
// file, or samples of a size libtiff's RGBA reader does not take.
std::string Patched(int entry, uint16_t value) {
  std::string t = TiffAnnouncing(4, 2, 8);
  size_t at = 8 + 8 + 2 + size_t(entry) * 12 + 8;
  t[at] = char(value);
  t[at + 1] = char(value >> 8);
  return t;
}

TEST(TiffPreview, DamageGivesAReasonAndNoPicture) {
  RgbImage image;
  bool colour = false;
  EXPECT_EQ(pxhost::DecodeTiffPreview(Bytes(TiffAnnouncing(4, 2, 8)), &image, &colour), "");
  EXPECT_EQ(Px(image, 3, 1), (std::vector<uint8_t>{0x40, 0x40, 0x40}));
  struct Case {
    std::string bytes;
    const char* reason;
  } cases[] = {
      {"%!PS-Adobe-3.0 EPSF-3.0\n", "is not a TIFF image"},
      {"II*", "is not a TIFF image"},
      {TiffAnnouncing(100000, 100000, 8), "100000 x 100000 pixels is too large"},
      {TiffAnnouncing(4, 2, 8).substr(0, 30), "TIFF preview"},  // the IFD cut off
      {TiffAnnouncing(0, 2, 8), "TIFF preview"},
      {Patched(4 /* StripOffsets */, 0x7000), "TIFF preview is damaged: "},
      {Patched(2 /* BitsPerSample */, 3),
       "TIFF preview: Sorry, can not handle images with 3-bit samples"},
  };
  for (const Case& c : cases) {
    RgbImage none;
    std::string error = pxhost::DecodeTiffPreview(Bytes(c.bytes), &none, &colour);
    EXPECT_NE(error.find(c.reason), std::string::npos) << error << " / " << c.reason;
    EXPECT_TRUE(none.pixels.empty());
  }
}

std::string Epsi(const std::string& begin, const std::string& hexLines) {
  return "%!PS-Adobe-3.0 EPSF-3.0\r\n%%BoundingBox: 0 0 4 2\r\n%%EndComments\r\n" + begin + "\r\n" +
         hexLines + "%%EndPreview\r\nnewpath\r\n";
}

TEST(EpsiPreview, EveryDepthZeroIsWhite) {
  struct Case {
    std::string begin, lines;
    std::vector<uint8_t> first;  // the first row's greys
  } cases[] = {
      {"%%BeginPreview: 4 2 1 2", "% 50\r\n% F0\r\n", {255, 0, 255, 0}},
      {"%%BeginPreview: 4 2 2 1", "% 1B 00\r\n", {255, 170, 85, 0}},
      {"%%BeginPreview: 4 2 4 2", "%  0F 8F\r\n%00 00\r\n", {255, 0, 119, 0}},
      {"%%BeginPreview: 4 2 8 3", "% 00FF\r\n% 8040\r\n% 0000000000000000\r\n", {255, 0, 127, 191}},
      // Lower-case hex, blanks anywhere, blanks around the numbers.
      {"%%BeginPreview:\t4 2\t8 2 \t", "%\t00ff 80\t40\r\n% 00000000\r\n", {255, 0, 127, 191}},
  };
  for (const Case& c : cases) {
    RgbImage image;
    bool found = false;
    ASSERT_EQ(pxhost::ReadEpsiPreview(Epsi(c.begin, c.lines), &image, &found), "") << c.begin;
    EXPECT_TRUE(found);
    ASSERT_EQ(image.width, 4);
    ASSERT_EQ(image.height, 2);
    for (int x = 0; x < 4; ++x) EXPECT_EQ(Px(image, x, 0)[0], c.first[size_t(x)]) << c.begin;
  }
}

TEST(EpsiPreview, AbsentOrDamaged) {
  RgbImage image;
  bool found = true;
  EXPECT_EQ(pxhost::ReadEpsiPreview("%!PS\n%%EndComments\n0 0 moveto\n", &image, &found), "");
  EXPECT_FALSE(found);
  // After the first line of program a preview is some embedded document's.
  EXPECT_EQ(
      pxhost::ReadEpsiPreview("%!PS\nnewpath\n%%BeginPreview: 1 1 1 1\n% 00\n", &image, &found),
      "");
  EXPECT_FALSE(found);
  struct Case {
    std::string begin, lines;
    const char* reason;
  } cases[] = {
      {"%%BeginPreview: 4 2 1 3", "% 50\r\n% F0\r\n", "fewer lines than the 3 it announces"},
      {"%%BeginPreview: 4 2 1 2", "% 50\r\n% F\r\n", "odd number of hex digits"},
      {"%%BeginPreview: 4 2 1 2", "% 50\r\n% FG\r\n", "not hex"},
      {"%%BeginPreview: 4 2 8 2", "% 50\r\n% F0\r\n", "less data than its size needs"},
      {"%%BeginPreview: 4 2 3 2", "% 50\r\n% F0\r\n", "depth 3 is not 1, 2, 4 or 8"},
      {"%%BeginPreview: 100000 100000 1 2", "% 50\r\n% F0\r\n", "too large"},
      {"%%BeginPreview: 0 2 1 2", "% 50\r\n% F0\r\n", "empty"},
      {"%%BeginPreview: 4 2 1", "% 50\r\n% F0\r\n", "not four numbers"},
      {"%%BeginPreview: 4 2 1 99999999999999999999", "", "not four numbers"},
      {"%%BeginPreview: 4x 2 1 2", "% 50\r\n% F0\r\n", "not four numbers"},
      {"%%BeginPreview: 4 2 1 2 5", "% 50\r\n% F0\r\n", "not four numbers"},
      {"%%BeginPreview: 4 0 1 2", "% 50\r\n% F0\r\n", "empty"},
      // The preview's lines end at a blank line, a line of program or a
      // structure comment.
      {"%%BeginPreview: 4 2 1 2", "% 50\r\n\r\n", "fewer lines than the 2 it announces"},
      {"%%BeginPreview: 4 2 1 2", "% 50\r\n0 0 moveto\r\n", "fewer lines than the 2"},
      {"%%BeginPreview: 4 2 1 2", "% 50\r\n", "fewer lines than the 2"},  // then %%EndPreview
  };
  for (const Case& c : cases) {
    RgbImage none;
    std::string error = pxhost::ReadEpsiPreview(Epsi(c.begin, c.lines), &none, &found);
    EXPECT_TRUE(found);
    EXPECT_NE(error.find(c.reason), std::string::npos) << error << " / " << c.reason;
    EXPECT_TRUE(none.pixels.empty());
  }
}

// The readers over an open descriptor: only the bytes each needs, and a
// reason for a file that ends early or cannot be read.
TEST(EpsFiles, WhatTheFirstBytesSay) {
  using pxhost::DocumentStart;
  struct Case {
    std::string head;
    DocumentStart start;
  } cases[] = {
      {"%!PS-Adobe-3.0\n", DocumentStart::kPostScript},
      {"%!PS", DocumentStart::kPostScript},
      {"%PDF-1.4\n", DocumentStart::kPdf},
      {"%PDF", DocumentStart::kUnknown},
      {"\xC5\xD0\xD3\xC6", DocumentStart::kDosEps},
      {"\xC5\xD0\xD3", DocumentStart::kUnknown},
      {"%!Q", DocumentStart::kUnknown},
      {"", DocumentStart::kUnknown},
  };
  for (const Case& c : cases) {
    qltest::MemFile file(c.head);
    EXPECT_EQ(pxhost::SniffDocument(file.fd()), c.start) << c.head;
  }
}

TEST(EpsFiles, SectionsReadFromTheDescriptorOrAReason) {
  std::string ps = "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 4 2\nshowpage\n";
  std::string eps = Header(30, uint32_t(ps.size()), 0, 0, 0, 0) + ps;
  qltest::MemFile file(eps), shortFile(eps.substr(0, 29));
  char dirName[] = "/tmp/eps_files_test.XXXXXX";
  ASSERT_NE(mkdtemp(dirName), nullptr);
  std::string dir = dirName;
  int folder = open(dirName, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::string writeOnlyName = dir + "/write-only";
  std::ofstream(writeOnlyName) << eps;
  int writeOnly = open(writeOnlyName.c_str(), O_WRONLY | O_CLOEXEC);

  DosEpsHeader h;
  EXPECT_EQ(pxhost::ReadDosEpsFile(file.fd(), &h), "");
  EXPECT_EQ(h.postscript.length, ps.size());
  EXPECT_EQ(pxhost::ReadDosEpsFile(shortFile.fd(), &h), "DOS EPS header cut short");
  EXPECT_EQ(pxhost::ReadDosEpsFile(folder, &h), "is a directory");
  EXPECT_EQ(pxhost::ReadDosEpsFile(writeOnly, &h), "bad file descriptor");

  RgbImage image;
  bool colour = false;
  DosEpsHeader beyond;
  beyond.tiff = {uint32_t(eps.size() - 4), 40};  // as if the file shrank since its header was read
  EXPECT_EQ(pxhost::ReadTiffSection(file.fd(), beyond, &image, &colour),
            "the file ended early (changed while read?)");
  beyond.tiff = {30, 0x7FFFFFFF};
  EXPECT_EQ(pxhost::ReadTiffSection(file.fd(), beyond, &image, &colour),
            "TIFF preview section is too large");
  EXPECT_TRUE(image.pixels.empty());

  // The PostScript alone, for the renderer; nothing left behind on failure.
  std::string copy;
  ASSERT_EQ(pxhost::CopySection(file.fd(), {30, uint32_t(ps.size())}, dir, &copy), "");
  std::ifstream in(copy, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), ps);
  std::remove(copy.c_str());
  struct Failure {
    int fd;
    pxhost::EpsSection section;
    std::string folder, reason;
  } failures[] = {
      {file.fd(), {30, uint32_t(ps.size()) + 1}, dir, "the file ended early (changed while read?)"},
      {writeOnly, {30, 10}, dir, "bad file descriptor"},
      {file.fd(),
       {30, 10},
       dir + "/gone",
       "cannot write the PostScript for the renderer: no such file"},
  };
  for (const Failure& f : failures) {
    std::string path;
    EXPECT_EQ(pxhost::CopySection(f.fd, f.section, f.folder, &path), f.reason);
    EXPECT_TRUE(path.empty());
  }
  // The renderer's folder full (here: a file size limit), in a child.
  pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit small{10, RLIM_INFINITY}, none{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &small);
    std::string path;
    std::string reason = pxhost::CopySection(file.fd(), {30, uint32_t(ps.size())}, dir, &path);
    setrlimit(RLIMIT_FSIZE, &none);
    ql::FlushCoverageCounts();
    _exit(reason == "cannot write the PostScript for the renderer: file too large" ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  close(writeOnly);
  std::remove(writeOnlyName.c_str());
  EXPECT_EQ(rmdir(dirName), 0) << "a copy was left behind";
  close(folder);
}

TEST(EpsFiles, AnEpsiPreviewLongerThanTheFirstReadIsReadWhole) {
  // 512 x 512 at 8 bits: a megabyte of hex, well past the first 64 KiB.
  const int side = 512;
  std::string lines;
  for (int y = 0; y < side; ++y)
    lines += "% " + std::string(size_t(side) * 2, y % 2 ? 'F' : '0') + "\r\n";
  std::string doc = Epsi("%%BeginPreview: 512 512 8 512", lines);
  qltest::MemFile file(doc);
  RgbImage image;
  bool found = false;
  // Length 0: the whole file is the PostScript.
  ASSERT_EQ(pxhost::ReadEpsiFile(file.fd(), {0, 0}, &image, &found), "");
  EXPECT_TRUE(found);
  ASSERT_EQ(image.width, side);
  ASSERT_EQ(image.height, side);
  EXPECT_EQ(Px(image, 0, side - 1)[0], 0);  // the last row, which only the second read holds
  // A section that ends before the preview does is refused, not read further.
  found = false;
  EXPECT_NE(pxhost::ReadEpsiFile(file.fd(), {0, 100000}, &image, &found), "");
  EXPECT_TRUE(found);
}

}  // namespace
