#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

#include "swatchbook/vantor_swatch_book.h"
#include "swatchio/swatch_file_survey.h"
#include "swatchio/sxf_reader.h"
#include "tests/support/fixture_file.h"
#include "tests/support/memory_stream.h"
#include "tests/swatchbook/probe.h"
#include "tools/sxfwrite/sxf_writer.h"

namespace {

using KB = KeltoSwatchbook;
using qltest::MemoryStream;

std::string Sxf(const char* json) {
  std::string bytes, error;
  EXPECT_TRUE(sxfwrite::BuildSxf(nlohmann::json::parse(json), &bytes, &error)) << error;
  return bytes;
}

// A stream that never ends, without holding its bytes.
class EndlessStream : public KeltoSwatchbookStream {
 public:
  int32_t IsValid() const override { return 1; }
  int32_t IsReading() const override { return 1; }
  int32_t Read(char*, int32_t count) override { return count; }
  int32_t Write(const char*, int32_t) override { return 0; }
};

int32_t Parse(const std::string& bytes, VantorSwatchBook& book, int32_t flags = 0) {
  MemoryStream stream(bytes);
  return book.ParseSXF(stream, flags);
}

int32_t Check(const std::string& bytes, int32_t* unknown = nullptr, int32_t valid = 1) {
  MemoryStream stream(bytes, valid);
  int32_t count = -1;
  int32_t result = KB::CheckSXF(stream, count);
  if (unknown) *unknown = count;
  return result;
}

std::string Header(uint32_t count) {
  std::string h = "SXFF";
  h += std::string("\x00\x01\x00\x00", 4);
  for (int shift = 24; shift >= 0; shift -= 8) h.push_back(char(count >> shift & 0xFF));
  return h;
}

TEST(SXFHeader, ResultCodes) {
  VantorSwatchBook book;
  book.SetSwatchName(book.AddSwatch(-1), XMLString("kept"));
  EXPECT_EQ(Parse("", book), 5);
  EXPECT_EQ(Parse("SXF", book), 5);
  EXPECT_EQ(Parse(Sxf(R"({"signature": "SXFG"})"), book), 3);
  EXPECT_EQ(Parse(Sxf(R"({"major": 2})"), book), 4);
  EXPECT_EQ(Parse(Header(0).substr(0, 11), book), 5);
  EXPECT_EQ(Parse(Header(10001), book), 6);
  MemoryStream invalid(Header(0), 0);
  EXPECT_EQ(book.ParseSXF(invalid, 0), 1);
  // None of these touched the book.
  int32_t unused = 0;
  EXPECT_EQ(book.CountSwatchGroups(unused), 1);
  EXPECT_EQ(book.GetNumFormats(), 4);
  EXPECT_TRUE(book.GetSwatchName(0, 0) == XMLString("kept"));

  for (const std::string& bad : {std::string(), std::string("SXF"), Sxf(R"({"signature": "FFXS"})"),
                                 Sxf(R"({"major": 0})"), Header(10001), Header(3)})
    EXPECT_EQ(Check(bad), 0);
  int32_t unknown = -1;
  EXPECT_EQ(Check(Header(0), &unknown, 0), 0);
  EXPECT_EQ(unknown, 0);
}

TEST(SXFHeader, EmptyBookAndMinorVersion) {
  VantorSwatchBook book;
  book.AddSwatch(-1);
  EXPECT_EQ(Check(Header(0)), 1);
  EXPECT_EQ(Parse(Header(0) + "trailing bytes are ignored", book), 0);
  int32_t unused = 0;
  EXPECT_EQ(book.CountSwatchGroups(unused), 0);  // emptied, formats included
  EXPECT_EQ(book.GetNumFormats(), 0);
  EXPECT_EQ(book.GetNumSwatches(), 1);  // the store keeps its count
  EXPECT_EQ(Parse(Sxf(R"({"minor": 65535})"), book), 0);
}

// Loading stops at the 256 MiB cap on the file buffer (slow: it really
// fills the buffer up to the cap). Check loads through the same heap.
TEST(SXFHeader, StreamTooLargeToLoad) {
  VantorSwatchBook book;
  book.AddSwatch(-1);
  EndlessStream endless;
  EXPECT_EQ(book.ParseSXF(endless, 0), 1);
  int32_t unused = 0;
  EXPECT_EQ(book.CountSwatchGroups(unused), 1);
}

TEST(SXFBlocks, CountLimits) {
  std::string blocks;
  for (int i = 0; i < 10000; ++i) blocks += std::string("\xC0\x02\x00\x00\x00\x00", 6);
  VantorSwatchBook book;
  EXPECT_EQ(Check(Header(10000) + blocks), 1);
  EXPECT_EQ(Parse(Header(10000) + blocks, book), 0);
  EXPECT_EQ(Check(Header(10001) + blocks + blocks.substr(0, 6)), 0);
  EXPECT_EQ(Parse(Header(10001) + blocks + blocks.substr(0, 6), book), 6);
}

TEST(SXFBlocks, LastBlockBoundaries) {
  const char* exact = R"({"blocks": [{"group": "G"}, {"blockType": 77, "raw": "010203"}]})";
  VantorSwatchBook book;
  EXPECT_EQ(Check(Sxf(exact)), 1);
  EXPECT_EQ(Parse(Sxf(exact), book), 0);

  std::string shortByOne = Sxf(exact);
  shortByOne.pop_back();
  EXPECT_EQ(Check(shortByOne), 0);
  EXPECT_EQ(Parse(shortByOne, book), 5);

  const char* huge = R"({"blocks": [{"blockType": 77, "raw": "", "length": 4294967295}]})";
  EXPECT_EQ(Check(Sxf(huge)), 0);
  EXPECT_EQ(Parse(Sxf(huge), book), 5);

  // Too few blocks for the count: the header promises more.
  EXPECT_EQ(Check(Sxf(R"({"blockCount": 2, "blocks": [{"groupEnd": true}]})")), 0);
  EXPECT_EQ(Parse(Header(1) + std::string("\xC0\x02\x00\x00", 4), book), 5);
}

TEST(SXFBlocks, UnknownBlocksAndModels) {
  const char* json = R"({"blocks": [
      {"blockType": 3, "raw": "ffff"},
      {"swatch": "Six inks", "model": "HEXA", "values": [0, 0.5, 1, 0, 0, 0]},
      {"blockType": 49155, "raw": ""},
      {"swatch": "After", "model": "RGB ", "values": [0.25, 0.5, 0.75], "extra": "0102030405"}]})";
  int32_t unknown = 0;
  EXPECT_EQ(Check(Sxf(json), &unknown), 1);
  EXPECT_EQ(unknown, 2);
  VantorSwatchBook book;
  ASSERT_EQ(Parse(Sxf(json), book), 0);
  EXPECT_EQ(book.GetNumFormats(), 1);  // the unknown model made no format
  EXPECT_EQ(book.CountSwatchesInActiveGroup(), 1);
  EXPECT_EQ(book.GetSwatchName(0, 0).ToUTF8(), "After");
  double v[3];
  ASSERT_EQ(book.GetColorValues(0, 0, v), 1);
  EXPECT_EQ(v[2], 0.75);
}

TEST(SXFColours, FormatsValuesAndClamps) {
  const char* json = R"({"blocks": [
      {"swatch": "A", "model": "RGB ", "values": [1.5, -0.2, 0.5]},
      {"swatch": "B", "model": "RGB ", "values": [0.1, 0.2, 0.3]},
      {"swatch": "C", "model": "LAB ", "values": [0.5, -200, 300]},
      {"swatch": "D", "model": "LAB ", "values": [1.2, 12.5, -128]},
      {"swatch": "E", "model": "CMYK", "values": [0, 0.25, 2, -1]},
      {"swatch": "F", "model": "Gray", "values": [0.5]}]})";
  VantorSwatchBook book;
  ASSERT_EQ(Parse(Sxf(json), book), 0);
  ASSERT_EQ(book.GetNumFormats(), 4);  // one per model, in order of first use
  const KB::ColorSpace spaces[] = {KB::kColorSpaceRGB, KB::kColorSpaceLAB, KB::kColorSpaceCMYK,
                                   KB::kColorSpaceGray};
  for (int32_t f = 0; f < 4; ++f) EXPECT_EQ(book.GetFormatColorSpace(f), spaces[f]) << f;
  struct Expect {
    int32_t format;
    std::vector<double> values;
  } expected[] = {{0, {1.0, 0.0, 0.5}},       {0, {double(0.1f), double(0.2f), double(0.3f)}},
                  {1, {50.0, -128.0, 128.0}}, {1, {100.0, 12.5, -128.0}},
                  {2, {0.0, 0.25, 1.0, 0.0}}, {3, {0.5}}};
  for (int32_t s = 0; s < 6; ++s) {
    double v[4] = {-9, -9, -9, -9};
    ASSERT_EQ(book.GetColorValues(s, expected[s].format, v), 1) << s;
    for (size_t i = 0; i < expected[s].values.size(); ++i)
      EXPECT_EQ(v[i], expected[s].values[i]) << "swatch " << s << " value " << i;
  }
}

TEST(SXFColours, TintsAndTypeWords) {
  const char* json = R"({"blocks": [
      {"swatch": "t0", "model": "Gray", "values": [0], "type": 0, "tint": 0.25},
      {"swatch": "t1", "model": "Gray", "values": [0], "type": 1},
      {"swatch": "t2", "model": "Gray", "values": [0], "type": 2},
      {"swatch": "t3", "model": "Gray", "values": [0], "type": 3},
      {"swatch": "high", "model": "Gray", "values": [0], "type": 65532}]})";
  VantorSwatchBook book;
  ASSERT_EQ(Parse(Sxf(json), book), 0);
  const KB::SwatchType types[] = {KB::kSwatchTypeProcess, KB::kSwatchTypeSpot,
                                  KB::kSwatchTypeProcessUntinted, KB::kSwatchTypeSpot,
                                  KB::kSwatchTypeProcess};
  for (int32_t s = 0; s < 5; ++s) EXPECT_EQ(book.GetSwatchType(s), types[s]) << s;
  uint32_t flag = 0;
  EXPECT_EQ(book.GetSwatchTint(0, flag), 0.25);
  EXPECT_EQ(book.GetSwatchTint(1, flag), 0.0);
}

TEST(SXFNames, DisplayTextAfterKeyPaths) {
  const char* json = R"({"blocks": [
      {"group": "$$$/Groups/Warm=Warm"},
      {"swatch": "$$$/Swatch/Red=Red", "model": "Gray", "values": [0], "type": 1},
      {"swatch": "$$$ no key", "model": "Gray", "values": [0]},
      {"swatch": "$$/Two=Two", "model": "Gray", "values": [0]},
      {"swatch": "Cr\u00e8me \ud83c\udf89", "model": "Gray", "values": [0]},
      {"swatch": "", "model": "Gray", "values": [0]}]})";
  VantorSwatchBook stripped;
  ASSERT_EQ(Parse(Sxf(json), stripped, 0), 0);
  EXPECT_EQ(stripped.GetSwatchGroupName(0).ToUTF8(), "Warm");
  EXPECT_EQ(stripped.GetSwatchName(0, 0).ToUTF8(), "Red");
  EXPECT_EQ(stripped.GetSwatchType(0), KB::kSwatchTypeSpot);  // the fields after the name line up
  EXPECT_EQ(stripped.GetSwatchName(1, 0).ToUTF8(), "$$$ no key");
  EXPECT_EQ(stripped.GetSwatchName(2, 0).ToUTF8(), "$$/Two=Two");
  EXPECT_EQ(stripped.GetSwatchName(3, 0).ToUTF8(), "Cr\xC3\xA8me \xF0\x9F\x8E\x89");
  EXPECT_EQ(SwatchbookProbe::Format(stripped.GetSwatchName(3, 0)), XMLString::kUTF16);
  EXPECT_EQ(stripped.GetSwatchName(4, 0).GetLength(), 0);

  VantorSwatchBook whole;
  ASSERT_EQ(Parse(Sxf(json), whole, 1), 0);
  EXPECT_EQ(whole.GetSwatchGroupName(0).ToUTF8(), "$$$/Groups/Warm=Warm");
  EXPECT_EQ(whole.GetSwatchName(0, 0).ToUTF8(), "$$$/Swatch/Red=Red");
}

TEST(SXFNames, CountsAndTerminators) {
  VantorSwatchBook book;
  // A count larger than the data left fails the parse.
  EXPECT_EQ(Parse(Sxf(R"({"blocks": [{"group": "abc", "nameCount": 40}]})"), book), 5);
  EXPECT_EQ(Parse(Header(1) + std::string("\xC0\x01\x00\x00\x00\x01\x00", 7), book), 5);
  // The text runs to its first zero unit, not to the count.
  ASSERT_EQ(Parse(Sxf(R"({"blocks": [{"group": "ABC", "nameCount": 2}]})"), book), 0);
  EXPECT_EQ(book.GetSwatchGroupName(0).ToUTF8(), "ABC");
  ASSERT_EQ(Parse(Sxf(R"({"blocks": [{"group": "A\u0000B", "nameCount": 3}]})"), book), 0);
  EXPECT_EQ(book.GetSwatchGroupName(0).ToUTF8(), "A");
}

std::string BigEndianUnits(const std::u16string& text, uint16_t count) {
  std::string out{char(count >> 8), char(count & 0xFF)};
  for (char16_t u : text) {
    out.push_back(char(u >> 8));
    out.push_back(char(u & 0xFF));
  }
  return out;
}

// A block as the file holds it: type, body length, body (big-endian).
std::string Block(uint16_t type, const std::string& body) {
  std::string b{char(type >> 8), char(type & 0xFF)};
  for (int shift = 24; shift >= 0; shift -= 8) b.push_back(char(body.size() >> shift & 0xFF));
  return b + body;
}

// The last block of a file, cut off inside each of its fields; a name
// that reaches the end of the file is still read, as far as it goes.
TEST(SXFBlocks, LastBlockCutOffInsideEachField) {
  const std::string empty("\0\0", 2), rgb = "RGB ", tint("\x3F\x00\x00\x00", 4);
  const std::string values(12, '\0');
  struct Case {
    std::string file;
    int32_t result;
  } cases[] = {
      {"SXFF\x00\x01", 5},                                     // the version
      {Header(1) + Block(2, "\x3F"), 5},                       // the tint
      {Header(1) + Block(1, empty), 5},                        // the model's code
      {Header(1) + Block(2, tint + empty + rgb + values), 5},  // the type word
      {Header(1) + Block(2, tint + empty + rgb + values + std::string("\0\0", 2)), 0},
  };
  for (const Case& c : cases) {
    VantorSwatchBook book;
    EXPECT_EQ(Parse(c.file, book), c.result) << c.file.size();
  }
  struct Name {
    std::u16string units;
    const char* shown;
  } names[] = {{u"$$", "$$"}, {u"$x$=y", "$x$=y"}, {u"$$$key", "$$$key"}, {u"$$$k=v", "v"}};
  for (const Name& n : names) {
    VantorSwatchBook book;
    std::string name = BigEndianUnits(n.units, uint16_t(n.units.size()));
    ASSERT_EQ(Parse(Header(1) + Block(0xC001, name), book), 0) << n.shown;
    EXPECT_EQ(book.GetSwatchGroupName(0).ToUTF8(), n.shown);
  }
}

TEST(ReadUTF16Test, CursorAdvance) {
  // The longest string a count can give, with its prefix: the skip past
  // the prefix needs all of its 17 bits.
  XMLString out;
  std::u16string longest = u"$$$=" + std::u16string(65530, u'x');
  std::string big = BigEndianUnits(longest, 65535) + std::string(2, '\0') + "z";
  char* cur = big.data();
  ASSERT_EQ(ReadUTF16(cur, big.data() + big.size(), out, 0), 1);
  EXPECT_EQ(cur, big.data() + 2 + 2 * 65535);
  EXPECT_EQ(out.Length(), 65530);

  // An equals sign found past the count gives a skip of 2 x (count - used)
  // in 17 bits: far past the data, so the cursor stops at its end.
  std::string past = BigEndianUnits(u"$$$ab", 5) + BigEndianUnits(u"cd=e", 0).substr(2) + "xy";
  cur = past.data();
  char* end = past.data() + past.size();
  ASSERT_EQ(ReadUTF16(cur, end, out, 0), 1);
  EXPECT_EQ(cur, end);

  std::string empty("\x00\x00rest", 6);
  cur = empty.data();
  ASSERT_EQ(ReadUTF16(cur, empty.data() + 6, out, 0), 1);
  EXPECT_EQ(cur, empty.data() + 2);
  EXPECT_EQ(out.GetLength(), 0);
}

TEST(SXFGroups, UnbalancedAndUngrouped) {
  const char* json = R"({"blocks": [
      {"groupEnd": true},
      {"swatch": "loose", "model": "Gray", "values": [0]},
      {"group": "First"},
      {"swatch": "in first", "model": "Gray", "values": [0]},
      {"groupEnd": true},
      {"swatch": "after end", "model": "Gray", "values": [0]},
      {"group": "Open"},
      {"swatch": "in open", "model": "Gray", "values": [0]}]})";
  VantorSwatchBook book;
  ASSERT_EQ(Parse(Sxf(json), book), 0);
  int32_t unused = 0;
  ASSERT_EQ(book.CountSwatchGroups(unused), 3);
  book.SetActiveSwatchGroup(0);
  EXPECT_EQ(book.IsUngrouped(0), 1);
  EXPECT_EQ(book.GetSwatchName(0, 0).ToUTF8(), "loose");
  book.SetActiveSwatchGroup(1);
  EXPECT_EQ(book.IsUngrouped(1), 0);
  ASSERT_EQ(book.CountSwatchesInActiveGroup(), 2);  // a group end does not leave the group
  EXPECT_EQ(book.GetSwatchName(1, 0).ToUTF8(), "after end");
  book.SetActiveSwatchGroup(2);
  EXPECT_EQ(book.GetSwatchGroupName(0).ToUTF8(), "Open");
  EXPECT_EQ(book.GetNumSwatches(), 4);
}

TEST(SXFGroups, PartialBookAfterATruncatedBlock) {
  const char* json = R"({"truncate": 5, "blocks": [
      {"group": "Partial"},
      {"swatch": "Complete", "model": "RGB ", "values": [0, 0.5, 1]},
      {"swatch": "Cut", "model": "CMYK", "values": [0.1, 0.2, 0.3, 0.4], "type": 1, "tint": 0.5}]})";
  VantorSwatchBook book;
  EXPECT_EQ(Check(Sxf(json)), 0);
  ASSERT_EQ(Parse(Sxf(json), book), 5);
  ASSERT_EQ(book.CountSwatchesInActiveGroup(), 2);
  EXPECT_EQ(book.GetSwatchName(1, 0).ToUTF8(), "Cut");
  uint32_t flag = 0;
  EXPECT_EQ(book.GetSwatchTint(1, flag), 0.5);
  double v[4];
  EXPECT_EQ(book.GetColorValues(1, 1, v), 0);  // no values were stored
  EXPECT_EQ(book.GetColorValues(0, 0, v), 1);
}

// What a host learns through the survey: the reader's verdict on the open
// file, the block a truncation hit and the entries the packet leaves out,
// with the file's offset back at its start for the host's next reader.
TEST(SwatchFileSurvey, VerdictAndSteppedOverEntries) {
  qltest::MemFile sound(Sxf(R"({"blocks": [
      {"swatch": "Six inks", "model": "HEXA", "values": [0, 0.5, 1, 0, 0, 0]},
      {"swatch": "After", "model": "RGB ", "values": [0.25, 0.5, 0.75]}]})"));
  ASSERT_EQ(::lseek(sound.fd(), 7, SEEK_SET), 7);  // the survey reads from the start
  SwatchFileSurvey survey = SurveySwatchFile(sound.fd());
  EXPECT_EQ(survey.result, kSXFParsed);
  ASSERT_EQ(survey.steppedOver.size(), 1u);
  EXPECT_EQ(survey.steppedOver[0].name, "Six inks");
  EXPECT_EQ(survey.steppedOver[0].model, 0x48455841u);  // "HEXA"
  EXPECT_EQ(::lseek(sound.fd(), 0, SEEK_CUR), 0);

  std::string cut = Sxf(R"({"blocks": [{"group": "G"}, {"blockType": 77, "raw": "010203"}]})");
  cut.pop_back();
  qltest::MemFile truncated(cut);
  survey = SurveySwatchFile(truncated.fd());
  EXPECT_EQ(survey.result, kSXFTruncated);
  EXPECT_EQ(survey.failedBlock, 2u);
  EXPECT_EQ(::lseek(truncated.fd(), 0, SEEK_CUR), 0);

  qltest::MemFile empty("");
  EXPECT_NE(SurveySwatchFile(empty.fd()).result, kSXFParsed);
}

}  // namespace

namespace {

// The structural check counts as unknown only what no reader handles: every
// known block kind passes uncounted; a file too short for its signature or
// a stream that cannot be read is no swatch file.
TEST(SXFCheck, KnownBlocksAndShortFiles) {
  const char* json = R"({"blocks": [
      {"group": "G"},
      {"swatch": "Tinted", "model": "RGB ", "values": [1, 0, 0], "tint": 0.5},
      {"swatch": "Plain", "model": "Gray", "values": [0.5]},
      {"groupEnd": true},
      {"blockType": 9, "raw": "00"}]})";
  int32_t unknown = -1;
  EXPECT_EQ(Check(Sxf(json), &unknown), 1);
  EXPECT_EQ(unknown, 1);
  EXPECT_EQ(Check(Sxf(json), &unknown, 0), 0);
  EXPECT_EQ(unknown, 0);
  for (const std::string& shortFile : {std::string(), std::string("SXF"), Header(0).substr(0, 11)})
    EXPECT_EQ(Check(shortFile), 0) << shortFile.size();
  EXPECT_EQ(Check(Header(0)), 1);
}

}  // namespace
