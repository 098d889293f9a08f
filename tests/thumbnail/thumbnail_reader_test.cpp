// The embedded-thumbnail reader on files written byte by byte: where the
// keyword may stand, how numbers and tokens read, and what each kind of pixel
// data decodes to.
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/fixture_file.h"
#include "thumbnail/ql_thumbnail.h"

namespace {

// The keyword search only trusts complete 256-byte fillings of the scan
// buffer, so fixtures end with a trailer long enough to keep the header out
// of the file's tail.
const std::string kTrailer = "\n%%Trailer\n" + std::string(300, '%') + "\n%%EOF\n";

std::string HexOf(const std::vector<uint8_t>& bytes) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string s;
  for (uint8_t b : bytes) s += {kHex[(b >> 4) & 15], kHex[b & 15]};
  return s;
}

// A colour table whose entry i is (i, 255 - i, i / 2).
std::vector<uint8_t> Entries(const std::vector<int>& codes) {
  std::vector<uint8_t> rgb;
  for (int i : codes) rgb.insert(rgb.end(), {uint8_t(i), uint8_t(255 - i), uint8_t(i / 2)});
  return rgb;
}

std::string TableHex() {
  std::vector<int> codes(256);
  std::iota(codes.begin(), codes.end(), 0);
  return "%" + HexOf(Entries(codes)) + "\n";
}

struct Decoded {
  int32_t ok, width, height;
  std::vector<uint8_t> pixels;
};

// With withPixels false only the size is asked for, as read start does.
Decoded Decode(const std::string& file, bool withPixels = true) {
  qltest::MemFile f(file);
  QLThumbnail reader(f.fd());
  std::vector<char> buffer(kThumbnailBufferBytes, 0x11);
  Decoded d{};
  d.ok = reader.GetThumbnailInfo(&d.width, &d.height, withPixels ? buffer.data() : nullptr,
                                 withPixels ? kThumbnailBufferBytes : 0);
  if (d.ok && withPixels) d.pixels.assign(buffer.begin(), buffer.begin() + d.width * d.height * 3);
  return d;
}

std::string Block(const std::string& dims, const std::string& data) {
  return "%!PS-Adobe-3.0\n%QL7_Thumbnail: " + dims + "\n%%BeginData: 99 Hex Bytes\n" + data +
         "\n%%EndData" + kTrailer;
}

TEST(ThumbnailData, EachKindOfPixelData) {
  using Bytes = std::vector<uint8_t>;
  struct Case {
    const char* what;
    const char* dims;
    std::string data;
    Bytes pixels;
  } cases[] = {
      {"colour-table codes", "2 2 8", TableHex() + "%00010203", Entries({0, 1, 2, 3})},
      // FD 04 07: entry 7 four times; FD FD: entry 253 once; then a plain code.
      {"run-length codes", "6 1 8", TableHex() + "%524C45FD0407FDFD09",
       Entries({7, 7, 7, 7, 253, 9})},
      {"24-bit bytes", "2 1 24", "%0A0B0C\n% 0d 0E\t0F", Bytes{10, 11, 12, 13, 14, 15}},
      {"a run without a table repeats one channel byte", "2 1 24", "%524C45FD05AA33",
       Bytes{0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0x33}},
      {"separators between the digits of a byte", "1 1 24", "%1\n%2 3%%4\n5   6",
       Bytes{0x12, 0x34, 0x56}},
      // 0xFE per digit: (0xFE << 4 | 0xFE) keeps 0xFE in its low byte; 'G'
      // is invalid too.
      {"characters above ASCII", "1 1 24", "%\xC3\xA9G000", Bytes{0xFE, 0xE0, 0x00}},
      {"a run clipped at the image end", "2 1 24", "%524C45FDFF77", Bytes(6, 0x77)},
  };
  for (const Case& c : cases) {
    Decoded d = Decode(Block(c.dims, c.data));
    ASSERT_EQ(d.ok, 1) << c.what;
    EXPECT_EQ(d.pixels, c.pixels) << c.what;
  }
}

TEST(ThumbnailData, DataEndingWithTheFile) {
  // The file ends inside the data: decoding fails at its last byte.
  std::string file =
      "%QL7_Thumbnail: 40 40 24\n%%BeginData: 99 Hex Bytes\n%" + std::string(600, 'A');
  EXPECT_EQ(Decode(file).ok, 0);

  // Ending a few digits in, after a long first filling: the rest of the scan
  // buffer still holds bytes of that filling, and they are not data.
  std::string shortBlock = "%!PS-Adobe-3.0\n%" + std::string(120, 'q') +
                           "\n%QL7_Thumbnail: 2 2 24\n%%BeginData: 12 Hex Bytes\n" +
                           std::string(80, '%') + "\n%0A0B0C";
  EXPECT_EQ(Decode(shortBlock).ok, 0);

  // Complete data in the file's last, partial filling decodes.
  std::vector<uint8_t> bytes(300);
  std::iota(bytes.begin(), bytes.end(), 0);
  Decoded d = Decode("%!PS-Adobe-3.0\n%QL7_Thumbnail: 10 10 24\n%%BeginData: 300 Hex Bytes\n%" +
                     HexOf(bytes) + "\n%%EndData\n");
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, bytes);
}

TEST(ThumbnailData, OversizeImagesAreRefusedBeforeDecoding) {
  // The last sides overflow 64 bits once multiplied and tripled (a fuzz
  // finding).
  for (const char* dims : {"129 128 24", "0 5 24", "2000000000 2000000000 24"})
    EXPECT_EQ(Decode(Block(dims, "%00")).ok, 0) << dims;
  EXPECT_EQ(Decode(Block("128 128 24", std::string(128 * 128 * 6, '0'))).ok, 1);
  EXPECT_FALSE(ThumbnailFits(2000000000, 2000000000));
  EXPECT_TRUE(ThumbnailFits(16384, 1));  // exactly the buffer
  EXPECT_FALSE(ThumbnailFits(16385, 1));
}

TEST(ThumbnailHeader, TheDataBlockKeyword) {
  // Any leading part of "%%BeginData:" opens the data; without it only the
  // size reads.
  EXPECT_EQ(Decode("%QL7_Thumbnail: 1 1 24\n%%Begin 9 a b\n%010203" + kTrailer).ok, 1);
  EXPECT_EQ(Decode("%QL7_Thumbnail: 1 1 24\n%%BeginDataX: 9 a b\n%010203" + kTrailer).ok, 0);
  std::string file = "%!PS\n%QL7_Thumbnail: 12 7 8\n" + kTrailer;
  Decoded size = Decode(file, false);
  EXPECT_EQ(std::tuple(size.ok, size.width, size.height), std::tuple(1, 12, 7));
  EXPECT_EQ(Decode(file).ok, 0);
}

TEST(ThumbnailHeader, NumbersReadWithTheirOddRules) {
  struct Case {
    const char* what;
    std::string header;
    int32_t width, height;
  } cases[] = {
      // '-' counts as -3 in its place: "-5" is -30 + 5; a letter keeps its
      // place without adding.
      {"odd digit range", "%QL7_Thumbnail: -5 4x 8", -25, 40},
      {"keyword glued to its number loses the first digit", "%QL7_Thumbnail:128 64 8", 28, 64},
      // The token limit is a position in the scan buffer: ten characters of
      // white space leave no room for the number.
      {"too many blanks read as zero", "%QL7_Thumbnail: 5" + std::string(12, ' ') + "6 8", 5, 0},
  };
  for (const Case& c : cases) {
    Decoded d = Decode(c.header + "\n" + kTrailer, false);
    EXPECT_EQ(d.ok, 1) << c.what;
    EXPECT_EQ(std::tuple(d.width, d.height), std::tuple(c.width, c.height)) << c.what;
  }
}

TEST(ThumbnailSearch, WhereTheKeywordIsFound) {
  // Fillings overlap by 100 bytes: positions up to 155 are searched in the
  // first, later ones in the next, including one that straddles byte 256.
  for (size_t at : {0u, 155u, 156u, 200u, 250u, 5000u}) {
    Decoded d = Decode(std::string(at, '.') + "%QL7_Thumbnail: 3 2 8\n" + kTrailer, false);
    EXPECT_EQ(std::tuple(d.ok, d.width), std::tuple(1, 3)) << "keyword at " << at;
  }
  // The final partial filling is not searched: of 300 bytes the first filling
  // searches 0..155, and a second would need bytes up to 411.
  std::string file = std::string(200, '.') + "%QL7_Thumbnail: 3 2 8\n";
  file.resize(300, '.');
  for (const std::string& f : {file, std::string(), std::string("%QL7_Thumbnail: 3 2 8")})
    EXPECT_EQ(Decode(f, false).ok, 0) << f.size();
}

// The search reads the file in large blocks and must find exactly what
// fillings 156 bytes apart would: a keyword on either side of a block's end
// or across it, and at the file's end only inside a complete filling.
TEST(ThumbnailSearch, LargeFilesAsFillingsWouldSeeThem) {
  const std::string keyword = "%QL7_Thumbnail: 3 2 8\n";
  const size_t block = 256 * 1024;
  // The pixel data is read on from where the keyword's filling ends.
  const std::string preview = Block("2 1 24", "%0A0B0C\n% 0d 0E\t0F").substr(15);
  for (size_t at : {block - 400, block - 256, block - 156, block - 10, block, block + 155,
                    2 * block - 300, 3 * block + 1}) {
    // A decoy first: the keyword without its colon.
    std::string file(at, '.');
    file.replace(at / 2, 14, "%QL7_Thumbnail");
    Decoded d = Decode(file + preview);
    EXPECT_EQ(std::tuple(d.ok, d.width, d.height), std::tuple(1, 2, 1)) << "keyword at " << at;
    EXPECT_EQ(d.pixels, (std::vector<uint8_t>{10, 11, 12, 13, 14, 15})) << "keyword at " << at;
  }
  for (size_t tail = 0; tail < 300; tail += 7) {
    std::string file(block + 1000, '.');
    size_t at = file.size();
    file += keyword + std::string(tail, '.');
    bool whole = at / 156 * 156 + 256 <= file.size();
    EXPECT_EQ(Decode(file, false).ok, whole ? 1 : 0) << "tail " << tail;
  }
}

}  // namespace

namespace {

int32_t Classify(const std::string& file) {
  qltest::MemFile f(file);
  return QLThumbnail(f.fd()).GetRenderingMethod();
}

TEST(ThumbnailClassifier, DocumentKindFromTheHeadAndTheXmp) {
  const std::string pad(600, ' ');
  struct Case {
    std::string file;
    int32_t kind;
  } cases[] = {
      {"%PDF-1.4\n" + pad, kQLDocumentPDF},
      {"%!PS-Adobe-3.0\n" + pad, kQLDocumentPostScript},
      {std::string(155, '\n') + "%!PS" + pad, kQLDocumentPostScript},  // last place looked at
      {std::string(156, '\n') + "%!PS" + pad, kQLDocumentOther},       // one past it
      {"%!PS %PDF" + pad, kQLDocumentPDF},                             // PDF is asked first
      {"%!PS" + std::string(400, ' '), 0},  // shorter than the 512-byte head
      {pad + "<?xpacket begin?><xap::Thumbnails>" + pad, kQLDocumentXapThumbnail},
      {pad + "<?xpacket begin?><xap:Thumbnails>" + pad, kQLDocumentOther},  // single colon
      {pad + "<xap::Thumbnails>" + pad, kQLDocumentOther},                  // no packet
  };
  for (const Case& c : cases) EXPECT_EQ(Classify(c.file), c.kind) << c.file.substr(0, 40);
}

}  // namespace

namespace {

// Where a file's last filling ends decides whether a keyword near the end is
// seen: a filling that ends on the file's last byte is whole, one a byte
// short of it is not. In the first search block and in a later one, where
// the block no longer starts at the file's start.
TEST(ThumbnailSearch, AFillingEndingOnTheLastByteIsWhole) {
  const std::string keyword = "%QL7_Thumbnail: 3 2 8\n";
  for (size_t at : {size_t(200), size_t(156), size_t(600000 + 37), size_t(3 * 156 * 1024 + 155)}) {
    size_t fillingEnd = at / 156 * 156 + 256;
    std::string file(at, '.');
    file += keyword;
    file.resize(fillingEnd, '.');
    Decoded whole = Decode(file, false);
    EXPECT_EQ(std::tuple(whole.ok, whole.width, whole.height), std::tuple(1, 3, 2))
        << "keyword at " << at;
    file.pop_back();
    EXPECT_EQ(Decode(file, false).ok, 0) << "keyword at " << at << ", one byte short";
  }
}

}  // namespace

namespace {

// "RLE" as the first six digits is the run-length marker wherever the file
// ends: with nothing after it there is no pixel, and the same digits are
// never taken for a pixel's bytes.
TEST(ThumbnailData, TheRunLengthMarkerAtTheFilesEnd) {
  const std::string head = "%!PS-Adobe-3.0\n%QL7_Thumbnail: 1 1 24\n%%BeginData: 6 Hex Bytes\n" +
                           std::string(250, '%') + "\n";
  EXPECT_EQ(Decode(head + "524C45").ok, 0);
  Decoded d = Decode(head + "524C45AABBCC");
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, (std::vector<uint8_t>{0xAA, 0xBB, 0xCC}));
  d = Decode(head + "524C46");
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, (std::vector<uint8_t>{0x52, 0x4C, 0x46}));
}

}  // namespace

namespace {

// A word in parentheses is one token, blanks and all, up to its closing
// parenthesis; one left open runs on to the token's limit and so is never
// the data block's keyword.
TEST(ThumbnailHeader, WordsInParentheses) {
  Decoded d =
      Decode("%QL7_Thumbnail: 2 1 24\n(%%BeginData:) 6 (Hex Bytes) (x)\n%0A0B0C0D0E0F" + kTrailer);
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, (std::vector<uint8_t>{10, 11, 12, 13, 14, 15}));
  EXPECT_EQ(
      Decode("%QL7_Thumbnail: 2 1 24\n(%%BeginData: 6 Hex Bytes\n%0A0B0C0D0E0F" + kTrailer).ok, 0);
  // Characters below '*' in a number keep their place without adding.
  Decoded size = Decode("%QL7_Thumbnail: 1#2 3!\n" + kTrailer, false);
  EXPECT_EQ(std::tuple(size.ok, size.width, size.height), std::tuple(1, 102, 30));
}

}  // namespace
