#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "swatchbook/kelto_swatchbook.h"
#include "swatchbook/vantor_swatch_book.h"

namespace {

using KB = KeltoSwatchbook;

// TranslateEncoding on components given and returned as doubles, whatever
// the two encodings.
std::vector<double> Translate(int32_t space, int32_t from, const std::vector<double>& in,
                              int32_t to) {
  // Components packed one after another in their encoding's width, in room
  // for four components of the widest encoding.
  constexpr size_t kMaxComponents = 4;
  std::vector<unsigned char> packed;
  EXPECT_LE(in.size(), kMaxComponents);
  const size_t n = std::min(in.size(), kMaxComponents);
  for (size_t i = 0; i < n; ++i) {
    unsigned char bytes[8] = {};
    size_t width = from == KB::kEncoding8Bit ? 1 : from == KB::kEncoding16Bit ? 2 : 8;
    uint16_t word = uint16_t(in[i]);
    if (from == KB::kEncoding8Bit) bytes[0] = uint8_t(in[i]);
    if (from == KB::kEncoding16Bit) std::memcpy(bytes, &word, 2);
    if (from == KB::kEncodingDouble) std::memcpy(bytes, &in[i], 8);
    packed.insert(packed.end(), bytes, bytes + width);
  }
  packed.resize(8 * kMaxComponents);
  std::vector<unsigned char> results(8 * kMaxComponents);
  unsigned char *source = packed.data(), *result = results.data();
  EXPECT_EQ(KB::TranslateEncoding(space, from, source, to, result), 1);
  std::vector<double> out(n);
  for (size_t i = 0; i < n; ++i) {
    uint16_t word = 0;
    std::memcpy(&word, result + 2 * i, 2);
    if (to == KB::kEncoding8Bit) out[i] = result[i];
    if (to == KB::kEncoding16Bit) out[i] = word;
    if (to == KB::kEncodingDouble) std::memcpy(&out[i], result + 8 * i, 8);
  }
  return out;
}

TEST(TranslateEncoding, EveryPairForPlainSpacesAndLab) {
  constexpr int32_t kRGB = KB::kColorSpaceRGB, kLAB = KB::kColorSpaceLAB;
  const struct {
    int32_t space, from;
    std::vector<double> in;
    int32_t to;
    std::vector<double> out;
  } cases[] = {
      {kRGB, 1, {128, 0, 255}, 2, {32896, 0, 65535}},
      {kRGB, 1, {128, 0, 255}, 3, {128.0 / 255.0, 0, 1}},
      {KB::kColorSpaceCMYK, 1, {128, 1, 3, 255}, 3, {0.5, 0, 0.01, 1}},  // CMYK alone: 2 decimals
      {kRGB, 2, {65535, 25956, 32768}, 1, {255, 100, 127}},
      {kRGB, 2, {65535, 25956, 32768}, 3, {1, 25956.0 / 65535.0, 32768.0 / 65535.0}},
      {kRGB, 3, {0.5, -0.1, 1.5}, 1, {128, 0, 255}},
      {kRGB, 3, {0.003, 0.0039, -0.5}, 2, {197, 65535, 0}},  // any result above 255 saturates
      {kLAB, 1, {100, 10, 255}, 2, {25700, 2560, 65280}},
      {kLAB, 1, {255, 0, 255}, 3, {100, -128, 127}},
      {kLAB, 2, {65535, 65408, 65407}, 1, {255, 255, 255}},
      {kLAB, 2, {257, 32768, 0}, 1, {1, 128, 0}},
      {kLAB, 2, {257, 32768, 0}, 3, {257 * 100.0 / 65535, 0, -128}},
      {kLAB, 3, {50, -20, 30}, 1, {128, 109, 158}},
      {kLAB, 3, {50, -20, 30}, 2, {65535, 0, 7808}},  // a and b: offset 128, not 128 x 256
      {kLAB, 3, {0, -0.7, 500}, 1, {0, 128, 255}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Translate(c.space, c.from, c.in, c.to), c.out)
        << "space " << c.space << ", " << c.from << " to " << c.to << ", first " << c.in[0];
}

// Stored values round to the nearest step, never down: a fraction above a
// half goes up at every conversion that rounds (one below it stays), and the
// kept exceptions stay as they are: Lab a and b from doubles add a half and
// truncate, so negative values go toward zero (-10.6 gives -10), and plain
// and Lab L components from 16 to 8 bits truncate.
TEST(TranslateEncoding, FractionsAboveAHalfRoundUp) {
  constexpr int32_t kRGB = KB::kColorSpaceRGB, kLAB = KB::kColorSpaceLAB;
  const struct {
    int32_t space, from;
    std::vector<double> in;
    int32_t to;
    std::vector<double> out;
  } cases[] = {
      // 0.78, 50.59 and 99.61 hundredths.
      {KB::kColorSpaceCMYK, 1, {2, 129, 254, 1}, 3, {0.01, 0.51, 1, 0}},
      {kRGB, 3, {0.312, 0.3105, 0.9985}, 1, {80, 79, 255}},  // 79.56, 79.18, 254.62
      {kRGB, 3, {0.0025, 0.0001, 0}, 2, {164, 7, 0}},        // 163.84, 6.55
      {kLAB, 3, {50.5, 10.6, -10.6}, 1, {129, 139, 118}},    // L 128.78
      {kLAB, 3, {0.3, 0.003, -0.003}, 2, {197, 129, 128}},   // L 196.61; a, b 0.77 and -0.77
      {kLAB, 2, {25828, 32895, 32896}, 1, {100, 128, 129}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Translate(c.space, c.from, c.in, c.to), c.out)
        << "space " << c.space << ", " << c.from << " to " << c.to << ", first " << c.in[0];
}

TEST(TranslateEncoding, RefusedSpacesAndUnknownEncodings) {
  double in[4] = {1, 1, 1, 1};
  double out[4] = {7, 7, 7, 7};
  EXPECT_EQ(KB::TranslateEncoding(KB::kColorSpaceNone, 3, in, 1, out), 0);
  EXPECT_EQ(KB::TranslateEncoding(7, 3, in, 3, out), 0);
  EXPECT_EQ(KB::TranslateEncoding(KB::kColorSpaceRGB, 4, in, 3, out), 1);  // nothing written
  EXPECT_EQ(out[0], 7);
}

TEST(FormatTable, RowsIDsAndStrings) {
  VantorSwatchBook book;
  ASSERT_EQ(book.GetNumFormats(), 4);
  EXPECT_EQ(book.GetFormatNumChannels(3), 4);
  int32_t row = book.AddFormat();
  ASSERT_EQ(row, 4);
  EXPECT_EQ(book.GetFormatColorSpace(row), 0);
  EXPECT_EQ(book.SetFormatNumChannels(row, 6), 1);  // no space yet: free
  EXPECT_EQ(book.SetFormatNumChannels(row, -1), 0);
  EXPECT_EQ(book.SetFormatColorSpace(row, KB::ColorSpace(7)), 0);
  EXPECT_EQ(book.SetFormatColorSpace(row, KB::kColorSpaceNone), 1);
  EXPECT_EQ(book.GetFormatNumChannels(row), 6);   // None has no count of its own
  EXPECT_EQ(book.SetFormatNumChannels(1, 2), 0);  // RGB fixes its count

  EXPECT_TRUE(book.GetFormatID(2, 1) == XMLString("2"));
  EXPECT_EQ(book.GetFormatID(2, 0).GetLength(), 0);
  EXPECT_EQ(book.FindFormatByID(XMLString("2")), 2);
  EXPECT_EQ(book.SetFormatID(1, XMLString("screen")), 1);
  EXPECT_EQ(book.FindFormatByID(XMLString("screen")), 1);
  EXPECT_EQ(book.FindFormatByID(XMLString("1")), -1);

  EXPECT_TRUE(book.GetFormatColorSpaceString(1, 1) == XMLString("RGB"));
  EXPECT_EQ(book.GetFormatColorSpaceString(1, 0).GetLength(), 0);
  EXPECT_EQ(book.GetFormatColorSpaceString(0, 1).GetLength(), 0);  // Gray has no default
  book.SetFormatColorSpaceString(2, XMLString("CIELAB D50"));
  EXPECT_TRUE(book.GetFormatColorSpaceString(2, 1) == XMLString("CIELAB D50"));
  EXPECT_TRUE(book.GetFormatColorSpaceString(3, 1) == XMLString("CMYK"));
  EXPECT_EQ(book.SetFormatColorSpace(row, KB::kColorSpaceXYZ), 1);
  EXPECT_TRUE(book.GetFormatColorSpaceString(row, 1) == XMLString("XYZ"));

  // Conditions are strings of the book's heap: compaction keeps them, bad
  // rows neither take nor give one.
  EXPECT_EQ(book.SetFormatCondition(3, XMLString("coated")), 1);
  EXPECT_EQ(book.SetFormatCondition(9, XMLString("x")), 0);
  book.SetFormatID(1, XMLString("web"));  // leaves "screen" unused
  book.Compact();
  EXPECT_TRUE(book.GetFormatCondition(3) == XMLString("coated"));
  EXPECT_TRUE(book.GetFormatID(1, 0) == XMLString("web"));
  EXPECT_TRUE(book.GetFormatColorSpaceString(2, 1) == XMLString("CIELAB D50"));
  EXPECT_EQ(book.GetFormatCondition(9).GetLength(), 0);
  EXPECT_EQ(book.GetFormatColorSpace(-1), 0);
  EXPECT_EQ(book.GetFormatEncoding(9), 0);
}

// Values given as bytes or 16-bit words are translated into the format's
// encoding before they are stored.
TEST(FormatTable, TypedValuesAreTranslatedToTheFormatsEncoding) {
  VantorSwatchBook book;
  int32_t s = book.AddSwatch(-1);
  const unsigned char rgb8[3] = {255, 0, 51};
  ASSERT_EQ(book.AddColorValues(s, 1, rgb8), 1);
  double rgb[3] = {-1, -1, -1};
  ASSERT_EQ(book.GetColorValues(s, 1, rgb), 1);
  EXPECT_EQ(rgb[0], 1.0);
  EXPECT_EQ(rgb[1], 0.0);
  EXPECT_NEAR(rgb[2], 0.2, 1e-6);  // stored at single precision
  const uint16_t grey16[1] = {32768};
  int32_t t = book.AddSwatch(-1);
  ASSERT_EQ(book.AddColorValues(t, 0, grey16), 1);
  double grey = -1;
  ASSERT_EQ(book.GetColorValues(t, 0, &grey), 1);
  EXPECT_NEAR(grey, 0.5, 1e-4);
}

TEST(BestFormat, RanksSpacesThenEncodings) {
  VantorSwatchBook book;
  book.AddSwatch(-1);
  // Clearing drops the constructor's formats but keeps the swatch count;
  // the store still lists format indices 0 to 3.
  book.Clear();
  const KB::ColorSpace spaces[4] = {KB::kColorSpaceGray, KB::kColorSpaceRGB, KB::kColorSpaceLAB,
                                    KB::kColorSpaceLAB};
  const KB::Encoding encodings[4] = {KB::kEncodingDouble, KB::kEncoding8Bit, KB::kEncoding8Bit,
                                     KB::kEncoding16Bit};
  for (int i = 0; i < 4; ++i) {
    int32_t f = book.AddFormat();
    book.SetFormatColorSpace(f, spaces[i]);
    book.SetFormatEncoding(f, encodings[i]);
  }
  EXPECT_EQ(book.GetBestFormat(0, 0), 3);
  EXPECT_EQ(book.GetBestFormat(0, KB::kColorSpaceRGB), 1);
  EXPECT_EQ(book.GetBestFormat(0, KB::kColorSpaceLAB), 3);
  EXPECT_EQ(book.GetBestFormat(0, KB::kColorSpaceCMYK), -1);
  EXPECT_EQ(book.GetBestFormat(-1, 0), 0);  // a bad swatch gives format 0, not -1
  EXPECT_EQ(book.GetBestFormat(1, 0), 0);

  VantorSwatchBook fresh;
  fresh.AddSwatch(-1);
  EXPECT_EQ(fresh.GetBestFormat(0, 0), 2);  // all double: LAB ranks first
  EXPECT_EQ(fresh.GetBestFormat(0, KB::kColorSpaceGray), 0);
}

// A store that keeps a prefix, a postfix and a book ID.
class NamedBook : public VantorSwatchBook {
 public:
  NamedBook(const char* prefix, const char* postfix, int32_t id)
      : prefix_(prefix), postfix_(postfix), id_(id) {}
  XMLString GetPrefix() override { return prefix_; }
  XMLString GetPostfix() override { return postfix_; }
  int32_t GetBookID() override { return id_; }
  void Add(const char* name) { SetSwatchName(AddSwatch(-1), XMLString(name)); }

 private:
  XMLString prefix_, postfix_;
  int32_t id_;
};

TEST(SwatchNames, PrefixPostfixAndSearch) {
  NamedBook book("ab", "yz", 0);
  EXPECT_TRUE(book.RemovePrefixPostfix(XMLString("ab185yz")) == XMLString("185"));
  EXPECT_EQ(book.RemovePrefixPostfix(XMLString("abyz")).GetLength(), 0);
  EXPECT_EQ(book.RemovePrefixPostfix(XMLString("xx185yz")).GetLength(), 0);
  book.Add("185");
  book.Add("7");
  EXPECT_EQ(book.FindSwatchByName(XMLString("ab7yz"), 1, 0), 1);
  EXPECT_EQ(book.FindSwatchByName(XMLString("7"), 1, 0), -1);  // lacks the affixes
  EXPECT_EQ(book.FindSwatchByName(XMLString("7"), 0, 0), 1);

  NamedBook coated("", "", 3002);
  coated.Add("Red 032 C");
  EXPECT_EQ(coated.FindSwatchByName(XMLString("Red 032 CVC"), 1, 1), 0);
  EXPECT_EQ(coated.FindSwatchByName(XMLString("Red 032 CVC"), 1, 0), -1);

  VantorSwatchBook plain;  // no affixes: names are found as they are
  EXPECT_TRUE(plain.RemovePrefixPostfix(XMLString("x")) == XMLString("x"));
  for (const char* n : {"x", "y", "x"}) plain.SetSwatchName(plain.AddSwatch(-1), XMLString(n));
  EXPECT_EQ(plain.FindSwatchByName(XMLString("x"), 0, 0, 5), 0);  // start past the end: from 0
  EXPECT_EQ(plain.FindSwatchByName(XMLString("x"), 0, 0, 1), 2);
  EXPECT_EQ(plain.FindSwatchByName(XMLString("y"), 0, 0, 2), 1);  // wraps round
  EXPECT_EQ(plain.FindSwatchByName(XMLString("z"), 0, 0, 1), -1);
  EXPECT_EQ(plain.FindSwatchByName(XMLString(""), 1, 0), -1);
}

TEST(VantorStore, GroupsAndUngroupedSwatches) {
  VantorSwatchBook book;
  int32_t unused = 0;
  EXPECT_EQ(book.CountSwatchGroups(unused), 0);
  EXPECT_EQ(book.AddSwatch(-1), 0);
  EXPECT_EQ(book.CountSwatchGroups(unused), 1);
  EXPECT_EQ(book.IsUngrouped(99), 1);  // the argument is ignored: the active group answers
  EXPECT_EQ(book.CreateSwatchGroup(), 1);
  EXPECT_EQ(book.IsUngrouped(0), 0);
  EXPECT_EQ(book.AddSwatch(-1), 0);
  EXPECT_EQ(book.GetNumSwatches(), 2);
  book.SetSwatchGroupName(XMLString("Brand"));
  book.CloseSwatchGroup();  // changes nothing: later swatches stay in the group
  EXPECT_EQ(book.AddSwatch(-1), 1);
  EXPECT_TRUE(book.GetSwatchGroupName(0) == XMLString("Brand"));
  book.SetActiveSwatchGroup(0);
  EXPECT_EQ(book.CountSwatchesInActiveGroup(), 1);
  EXPECT_EQ(book.GetSwatchGroupName(0).GetLength(), 0);

  // Writes into a group that does not exist change nothing.
  EXPECT_EQ(book.SetActiveSwatchGroup(7), 1);
  EXPECT_EQ(book.CountSwatchesInActiveGroup(), 0);
  EXPECT_EQ(book.AddSwatch(-1), -1);
  EXPECT_EQ(book.SetSwatchName(0, XMLString("lost")), 1);
  EXPECT_EQ(book.SetSwatchGroupName(XMLString("lost")), 1);
  EXPECT_EQ(book.GetNumSwatches(), 3);
  EXPECT_EQ(book.CountSwatchGroups(unused), 2);
}

TEST(VantorStore, SwatchFields) {
  VantorSwatchBook book;
  int32_t s = book.AddSwatch(-1);
  book.SetSwatchName(s, XMLString("Sky"));
  book.SetSwatchTint(s, 0.3);
  book.SetSwatchType(s, KB::kSwatchTypeSpot);
  book.SetSwatchType(s, KB::SwatchType(4));  // ignored
  EXPECT_EQ(book.GetSwatchType(s), KB::kSwatchTypeSpot);
  uint32_t flag = 0;
  EXPECT_EQ(book.GetSwatchTint(99, flag), 0.0);
  EXPECT_EQ(flag, 1u);
  EXPECT_EQ(book.GetSwatchTint(s, flag), 0.3);
  EXPECT_EQ(book.GetSwatchName(5, 0).GetLength(), 0);
  EXPECT_EQ(book.SetSwatchName(5, XMLString("x")), 1);  // a bad index changes nothing
  int32_t formats[4];
  EXPECT_EQ(book.GetSwatchFormats(42, formats), 4);
  EXPECT_EQ(formats[2], 2);

  // Book-level fields this store does not keep: setters change nothing and
  // getters answer -1 or an empty string.
  book.SetVersion(3);
  book.SetColorsPerPage(6);
  book.SetKeyColor(1);
  book.SetBookID(77);
  for (int32_t value :
       {book.GetVersion(), book.GetColorsPerPage(), book.GetKeyColor(), book.GetBookID()})
    EXPECT_EQ(value, -1);
  book.SetTitle(XMLString("t"));
  book.SetCopyright(XMLString("c"));
  book.SetPrefix(XMLString("p"));
  book.SetPostfix(XMLString("q"));
  for (const XMLString& text : {book.GetTitle(), book.GetCopyright(), book.GetPrefix(),
                                book.GetPostfix(), book.GetSwatchCode(s)})
    EXPECT_EQ(text.GetLength(), 0);
  EXPECT_EQ(book.SetSwatchCode(s, XMLString("code")), 1);
  book.Compact();
  EXPECT_TRUE(book.GetSwatchName(s, 0) == XMLString("Sky"));
}

TEST(VantorStore, ColourValues) {
  VantorSwatchBook book;
  int32_t s = book.AddSwatch(-1);
  const double cmyk[4] = {0.1, 0.2, 0.3, 0.4};
  ASSERT_EQ(book.AddColorValues(s, 3, cmyk), 1);
  EXPECT_EQ(book.GetSwatchColorSpace(s), KB::kColorSpaceCMYK);
  double out[4] = {-1, -1, -1, -1};
  ASSERT_EQ(book.GetColorValues(s, 3, out), 1);
  EXPECT_EQ(out[0], 0.10000000149011612);  // kept at single precision
  double rgb[4] = {-1, -1, -1, -1};
  ASSERT_EQ(book.GetColorValues(s, 1, rgb), 1);  // the first three, unconverted
  EXPECT_EQ(rgb[2], double(0.3f));
  EXPECT_EQ(rgb[3], -1);
  EXPECT_EQ(book.GetColorValues(s, 7, out), 0);
  EXPECT_EQ(book.GetColorValues(4, 3, out), 0);

  const unsigned char bytes[3] = {255, 0, 128};
  ASSERT_EQ(book.AddColorValues(s, 1, bytes), 1);  // translated to double
  ASSERT_EQ(book.GetColorValues(s, 1, rgb), 1);
  EXPECT_EQ(rgb[2], double(float(128.0 / 255.0)));
  unsigned char back[3] = {};
  ASSERT_EQ(book.GetColorValues(s, 1, KB::kEncoding8Bit, back), 1);
  EXPECT_EQ(back[0], 255);
  EXPECT_EQ(back[2], 128);
}

TEST(VantorStore, FreeChannelCountNeverReadsPastFourValues) {
  VantorSwatchBook book;
  book.Clear();  // the format added next is then one of the store's own
  int32_t s = book.AddSwatch(-1);
  int32_t f = book.AddFormat();
  book.SetFormatEncoding(f, KB::kEncodingDouble);
  book.SetFormatNumChannels(f, 10);
  const double values[10] = {};
  EXPECT_EQ(book.AddColorValues(s, f, values), 0);  // a space without components
  double out[10];
  std::fill(std::begin(out), std::end(out), 9.0);
  ASSERT_EQ(book.GetColorValues(s, f, static_cast<void*>(out)), 1);
  EXPECT_EQ(out[3], 0.0);
  EXPECT_EQ(out[4], 9.0);
}

}  // namespace
