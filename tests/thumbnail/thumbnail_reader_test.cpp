// The embedded-thumbnail reader on files written byte by byte: where the
// keyword may stand, how numbers and tokens read, and what each kind of pixel
// data decodes to.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/fixture_file.h"
#include "thumbnail/ql_thumbnail.h"

namespace {

// The keyword search only trusts complete 256-byte fillings of the scan
// buffer, so fixtures end with a trailer long enough to keep the header out
// of the file's tail.
std::string Trailer() {
  return "\n%%Trailer\n" + std::string(300, '%') + "\n%%EOF\n";
}

std::string HexOf(const std::vector<int>& bytes) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string s;
  for (int b : bytes) s += {kHex[(b >> 4) & 15], kHex[b & 15]};
  return s;
}

// A colour table whose entry i is (i, 255 - i, i / 2).
std::string TableHex() {
  std::vector<int> t;
  for (int i = 0; i < 256; ++i) t.insert(t.end(), {i, 255 - i, i / 2});
  std::string lines;
  std::string hex = HexOf(t);
  for (size_t k = 0; k < hex.size(); k += 64) lines += "%" + hex.substr(k, 64) + "\n";
  return lines;
}

std::vector<uint8_t> Entries(std::initializer_list<int> codes) {
  std::vector<uint8_t> rgb;
  for (int i : codes) rgb.insert(rgb.end(), {uint8_t(i), uint8_t(255 - i), uint8_t(i / 2)});
  return rgb;
}

struct Decoded {
  int32_t ok, width, height;
  std::vector<uint8_t> pixels;
};

Decoded Decode(const std::string& file) {
  qltest::MemFile f(file);
  QLThumbnail reader(f.fd());
  std::vector<char> buffer(kThumbnailBufferBytes, 0x11);
  Decoded d{};
  d.ok = reader.GetThumbnailInfo(&d.width, &d.height, buffer.data(), kThumbnailBufferBytes);
  int64_t n = d.ok ? int64_t(d.width) * d.height * 3 : 0;
  d.pixels.assign(buffer.begin(), buffer.begin() + n);
  return d;
}

Decoded Size(const std::string& file) {
  qltest::MemFile f(file);
  QLThumbnail reader(f.fd());
  Decoded d{};
  d.ok = reader.GetThumbnailInfo(&d.width, &d.height, nullptr, 0);
  return d;
}

std::string Block(const std::string& dims, const std::string& data) {
  return "%!PS-Adobe-3.0\n%QL7_Thumbnail: " + dims + "\n%%BeginData: 99 Hex Bytes\n" + data +
         "\n%%EndData" + Trailer();
}

TEST(ThumbnailData, ColourTableCodesGiveTableEntries) {
  Decoded d = Decode(Block("2 2 8", TableHex() + "%00010203"));
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.width, 2);
  EXPECT_EQ(d.height, 2);
  EXPECT_EQ(d.pixels, Entries({0, 1, 2, 3}));
}

TEST(ThumbnailData, RunLengthRunsAndTheLiteralMarker) {
  // FD 04 07: entry 7 four times; FD FD: entry 253 once; then a plain code.
  Decoded d = Decode(Block("6 1 8", TableHex() + "%524C45FD0407FDFD09"));
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, Entries({7, 7, 7, 7, 253, 9}));
}

TEST(ThumbnailData, TwentyFourBitBytesAreCopiedStraight) {
  Decoded d = Decode(Block("2 1 24", "%0A0B0C\n% 0d 0E\t0F"));
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, (std::vector<uint8_t>{10, 11, 12, 13, 14, 15}));
}

TEST(ThumbnailData, WithoutTableARunRepeatsOneChannelByte) {
  Decoded d = Decode(Block("2 1 24", "%524C45FD05AA33"));
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, (std::vector<uint8_t>{0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0x33}));
}

TEST(ThumbnailData, SeparatorsMayStandBetweenTheDigitsOfOneByte) {
  Decoded d = Decode(Block("1 1 24", "%1\n%2 3%%4\n5   6"));
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, (std::vector<uint8_t>{0x12, 0x34, 0x56}));
}

TEST(ThumbnailData, CharactersAboveAsciiDecodeAsInvalidDigits) {
  // 0xFE per digit: (0xFE << 4 | 0xFE) keeps 0xFE in its low byte; 'G' is
  // invalid too.
  Decoded d = Decode(Block("1 1 24",
                           "%\xC3\xA9G0"
                           "00"));
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, (std::vector<uint8_t>{0xFE, 0xE0, 0x00}));
}

TEST(ThumbnailData, ARunIsClippedAtTheImageEnd) {
  std::string file = Block("2 1 24", "%524C45FDFF77");
  Decoded d = Decode(file);
  ASSERT_EQ(d.ok, 1);
  EXPECT_EQ(d.pixels, (std::vector<uint8_t>(6, 0x77)));
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
  std::string pixels;
  for (int i = 0; i < 300; ++i) pixels += HexOf({i & 0xFF});
  std::string last = "%!PS-Adobe-3.0\n%QL7_Thumbnail: 10 10 24\n%%BeginData: 300 Hex Bytes\n%" +
                     pixels + "\n%%EndData\n";
  Decoded d = Decode(last);
  ASSERT_EQ(d.ok, 1);
  ASSERT_EQ(d.pixels.size(), 300u);
  EXPECT_EQ(d.pixels[299], 299 & 0xFF);
}

TEST(ThumbnailData, OversizeImagesAreRefusedBeforeDecoding) {
  EXPECT_EQ(Decode(Block("129 128 24", "%00")).ok, 0);
  EXPECT_EQ(Decode(Block("0 5 24", "%00")).ok, 0);
  EXPECT_EQ(Decode(Block("128 128 24", std::string(128 * 128 * 6, '0'))).ok, 1);
  // Sides whose product overflows 64 bits once tripled (a fuzz finding).
  EXPECT_EQ(Decode(Block("2000000000 2000000000 24", "%00")).ok, 0);
  EXPECT_FALSE(ThumbnailFits(2000000000, 2000000000));
  EXPECT_TRUE(ThumbnailFits(16384, 1));  // exactly the buffer
  EXPECT_FALSE(ThumbnailFits(16385, 1));
}

TEST(ThumbnailHeader, BeginDataMayBeALeadingPartOfTheKeyword) {
  std::string ok = "%QL7_Thumbnail: 1 1 24\n%%Begin 9 a b\n%010203" + Trailer();
  EXPECT_EQ(Decode(ok).ok, 1);
  std::string bad = "%QL7_Thumbnail: 1 1 24\n%%BeginDataX: 9 a b\n%010203" + Trailer();
  EXPECT_EQ(Decode(bad).ok, 0);
}

TEST(ThumbnailHeader, AMissingDataBlockStillGivesTheSize) {
  std::string file = "%!PS\n%QL7_Thumbnail: 12 7 8\n" + Trailer();
  Decoded size = Size(file);
  EXPECT_EQ(size.ok, 1);
  EXPECT_EQ(size.width, 12);
  EXPECT_EQ(size.height, 7);
  EXPECT_EQ(Decode(file).ok, 0);
}

TEST(ThumbnailHeader, NumbersReadWithTheirOddDigitRange) {
  // '-' counts as -3 in its place: "-5" is -30 + 5.
  Decoded d = Size("%QL7_Thumbnail: -5 4x 8\n" + Trailer());
  EXPECT_EQ(d.ok, 1);
  EXPECT_EQ(d.width, -25);
  EXPECT_EQ(d.height, 40);  // a letter keeps its place without adding
}

TEST(ThumbnailHeader, AKeywordGluedToItsNumberLosesTheFirstDigit) {
  Decoded d = Size("%QL7_Thumbnail:128 64 8\n" + Trailer());
  EXPECT_EQ(d.width, 28);
  EXPECT_EQ(d.height, 64);
}

TEST(ThumbnailHeader, TooManyBlanksBeforeANumberReadAsZero) {
  // The token limit is a position in the scan buffer: ten characters of white
  // space leave no room for the number.
  Decoded d = Size("%QL7_Thumbnail: 5" + std::string(12, ' ') + "6 8\n" + Trailer());
  EXPECT_EQ(d.width, 5);
  EXPECT_EQ(d.height, 0);
}

TEST(ThumbnailSearch, KeywordPositionsAroundTheRefillBoundary) {
  // Fillings overlap by 100 bytes: positions up to 155 are searched in the
  // first, later ones in the next, including one that straddles byte 256.
  for (size_t at : {0u, 155u, 156u, 200u, 250u, 5000u}) {
    std::string file = std::string(at, '.') + "%QL7_Thumbnail: 3 2 8\n" + Trailer();
    Decoded d = Size(file);
    EXPECT_EQ(d.ok, 1) << "keyword at " << at;
    EXPECT_EQ(d.width, 3) << "keyword at " << at;
  }
}

TEST(ThumbnailSearch, TheFinalPartialFillingIsNotSearched) {
  // 300 bytes: the first filling covers 0..255 but searches only 0..155; the
  // second would need bytes up to 411.
  std::string file = std::string(200, '.') + "%QL7_Thumbnail: 3 2 8\n";
  file.resize(300, '.');
  EXPECT_EQ(Size(file).ok, 0);
  EXPECT_EQ(Size("").ok, 0);
  EXPECT_EQ(Size("%QL7_Thumbnail: 3 2 8").ok, 0);  // shorter than one filling
}

}  // namespace
