#include "swatchbook/xml_string.h"
#include "tests/swatchbook/probe.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

XMLString Utf8(const std::string& bytes) {
  std::string serialized(1, char(XMLString::kUTF8));
  serialized += bytes;
  return XMLString(int32_t(serialized.size()), serialized.data());
}

XMLString Utf16(const std::u16string& units) {
  XMLString s;
  s.SetUTF16(reinterpret_cast<const uint16_t*>(units.data()), int32_t(units.size()));
  return s;
}

std::string Bytes(const XMLString& s) {
  return s.GetLength() > 0 ? std::string(s.GetData(), size_t(s.GetLength())) : std::string();
}

std::u16string Units(const XMLString& s) {
  EXPECT_EQ(SwatchbookProbe::Format(s), XMLString::kUTF16);
  std::u16string units(size_t(s.GetLength()) / 2, u'\0');
  if (!units.empty()) std::memcpy(units.data(), s.GetData(), units.size() * 2);
  return units;
}

const std::string kGrinning = "\xF0\x9F\x98\x80";  // U+1F600 in UTF-8

TEST(XMLStringConstruction, FromSerializedBytes) {
  XMLString bad(5, "\3abcd");  // format byte 3 names no format
  EXPECT_EQ(SwatchbookProbe::Format(bad), XMLString::kUTF8);
  EXPECT_EQ(bad.GetLength(), 0);
  EXPECT_EQ(bad.GetData(), nullptr);

  XMLString wide = Utf16(u"a\U0001F600");
  ASSERT_EQ(wide.GetSerializedSize(), 7);
  char serialized[7];
  wide.GetSerializedData(serialized);
  XMLString rebuilt(7, serialized);
  EXPECT_EQ(SwatchbookProbe::Capacity(rebuilt), 6);
  EXPECT_EQ(Units(rebuilt), u"a\U0001F600");
}

TEST(XMLStringComparison, AcrossFormats) {
  XMLString ascii("abc");
  EXPECT_TRUE(ascii == Utf8("abc"));
  EXPECT_TRUE(ascii == Utf16(u"abc"));
  EXPECT_TRUE(Utf8("abc") == ascii);
  EXPECT_TRUE(Utf16(u"abc") == Utf8("abc"));
  EXPECT_FALSE(ascii == XMLString("abd"));
  EXPECT_FALSE(ascii == Utf8("abcd"));

  // Non-ASCII bytes of an ASCII string stand for 0x7F.
  EXPECT_TRUE(XMLString("\xE9") == Utf8("\x7F"));
  EXPECT_FALSE(XMLString("\xE9") == Utf8("\xC3\xA9"));
  EXPECT_TRUE(Utf8("\xC3\xA9") == Utf16(u"\u00E9"));

  // A supplementary character converts to UTF-8 whole, but its UTF-16 size
  // is counted short: equal one way, unequal the other.
  EXPECT_TRUE(Utf8(kGrinning) == Utf16(u"\U0001F600"));
  EXPECT_FALSE(Utf16(u"\U0001F600") == Utf8(kGrinning));
}

TEST(XMLStringConcatenation, FormatOfTheResult) {
  XMLString a = XMLString("ab") + Utf16(u"cd");
  EXPECT_EQ(Units(a), u"abcd");
  EXPECT_EQ(SwatchbookProbe::Capacity(a), a.GetLength());

  XMLString b = Utf8("\xC3\xA9") + XMLString("x\xFF");
  EXPECT_EQ(SwatchbookProbe::Format(b), XMLString::kUTF8);
  EXPECT_EQ(Bytes(b), "\xC3\xA9x\x7F");

  // The appended supplementary character keeps only the short count's bytes.
  XMLString e = Utf16(u"a") + Utf8(kGrinning);
  EXPECT_EQ(Units(e), u"a\xD83D");
}

TEST(XMLStringSubString, RangesAndFormats) {
  XMLString four = Utf8("abcd");
  EXPECT_EQ(Units(four.SubString(2, 100)), u"cd");
  EXPECT_EQ(four.SubString(4, 1).GetLength(), 0);
  EXPECT_EQ(four.SubString(-1, 2).GetLength(), 0);
  EXPECT_EQ(four.SubString(0, -1).GetLength(), 0);

  XMLString ascii = XMLString("hello").SubString(1, 3);
  EXPECT_EQ(SwatchbookProbe::Format(ascii), XMLString::kASCII);
  EXPECT_EQ(Bytes(ascii), "ell");
  EXPECT_EQ(Units(Utf16(u"hello").SubString(3, 9)), u"lo");
}

TEST(XMLStringSubString, SupplementaryCharacters) {
  // Length() counts code points, the substring counts UTF-16 units.
  XMLString text = Utf8("a" + kGrinning + "b");
  EXPECT_EQ(text.Length(), 3);
  EXPECT_EQ(Units(text.SubString(0, 3)), u"a\U0001F600");
  EXPECT_EQ(Units(text.SubString(2, 5)), u"\xDE00");

  XMLString wide = Utf16(u"x\U0001F600");
  EXPECT_EQ(wide.Length(), 3);
  EXPECT_EQ(Units(wide.SubString(1, 1)), u"\xD83D");
}

TEST(XMLStringSubString, BeginsWithAndEndsWith) {
  EXPECT_TRUE(XMLString().BeginsWith(XMLString()));
  EXPECT_TRUE(XMLString("abc").EndsWith(XMLString("")));

  XMLString naive = Utf8("na\xC3\xAFve");
  EXPECT_TRUE(naive.BeginsWith(XMLString("na")));
  EXPECT_TRUE(naive.EndsWith(XMLString("ve")));
  EXPECT_TRUE(naive.EndsWith(Utf16(u"\u00EFve")));
  EXPECT_FALSE(naive.BeginsWith(XMLString("nai")));
  EXPECT_FALSE(XMLString("ab").BeginsWith(XMLString("abc")));
}

TEST(XMLUnicodeUtilsTest, UTF8ToUTF16Quirks) {
  // The count is 2 per code point, whatever was written.
  const struct {
    std::string in;
    int32_t count;
    std::u16string out;
  } cases[] = {
      {kGrinning, 2, u"\U0001F600"},           // 4 bytes written, 2 counted
      {"\x80z", 4, u"\u0080z"},                // a stray continuation byte is its own value
      {"a\xE2\x82", 2, u"a"},                  // a cut-off sequence is dropped
      {"\xC0\xAF", 2, u"/"},                   // overlong '/' is accepted
      {"\xED\xA0\x80", 2, u"\xD800"},          // an encoded surrogate passes through
      {"\xF4\x90\x80\x80", 2, u"\uFFFD"},      // U+110000
      {"\xF8\x88\x80\x80\x80", 2, u"\uFFFD"},  // a 5-byte form
  };
  for (const auto& c : cases) {
    uint16_t buffer[16];
    std::fill(std::begin(buffer), std::end(buffer), uint16_t(0xAAAA));
    auto bytes = reinterpret_cast<const unsigned char*>(c.in.data());
    const int32_t size = int32_t(c.in.size());
    EXPECT_EQ(XMLUnicodeUtils::ConvertUTF8toUTF16(bytes, size, nullptr), c.count);
    EXPECT_EQ(XMLUnicodeUtils::ConvertUTF8toUTF16(bytes, size, buffer), c.count);
    std::u16string out;
    for (uint16_t u : buffer)
      if (u != 0xAAAA) out.push_back(char16_t(u));
    EXPECT_EQ(out, c.out) << c.in;
  }
}

TEST(XMLUnicodeUtilsTest, UTF16ToUTF8AndASCII) {
  auto toUtf8 = [](const std::u16string& in) {
    unsigned char buffer[32] = {};
    auto units = reinterpret_cast<const uint16_t*>(in.data());
    int32_t n = XMLUnicodeUtils::ConvertUTF16toUTF8(units, int32_t(in.size()), buffer);
    EXPECT_EQ(n, XMLUnicodeUtils::ConvertUTF16toUTF8(units, int32_t(in.size()), nullptr));
    return std::string(reinterpret_cast<char*>(buffer), size_t(n));
  };
  EXPECT_EQ(toUtf8(u"\U0001F600"), kGrinning);
  EXPECT_EQ(toUtf8(u"\xD800"), "\xED\xA0\x80");                    // lone high surrogate
  EXPECT_EQ(toUtf8(u"\xDC00\xD800"), "\xED\xB0\x80\xED\xA0\x80");  // pair in the wrong order
  EXPECT_EQ(toUtf8(u"A\u00E9\u20AC"), "A\xC3\xA9\xE2\x82\xAC");

  std::string in = "\xC3\xA9" + kGrinning + "k";
  char ascii[8] = {};
  EXPECT_EQ(XMLUnicodeUtils::ConvertUTF8toASCII(reinterpret_cast<const unsigned char*>(in.data()),
                                                int32_t(in.size()), ascii),
            3);
  EXPECT_EQ(std::string(ascii), "\x7F\x7Fk");
}

TEST(XMLStringConversion, TerminatorsAndEmptySources) {
  unsigned char out[8];
  std::memset(out, 0xAA, sizeof out);
  EXPECT_EQ(XMLString().ConvertOrMeasureString(XMLString::kUTF16, out, 1), 2);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(out), 3), std::string("\0\0\xAA", 3));
  EXPECT_EQ(XMLString().ConvertOrMeasureString(XMLString::kASCII, nullptr, 1), 1);
  EXPECT_EQ(XMLString().ConvertOrMeasureString(XMLString::kUTF8, nullptr, 0), 0);
  EXPECT_EQ(XMLString("ab").ConvertOrMeasureString(XMLString::Format(7), out, 1), 0);

  std::memset(out, 0xAA, sizeof out);
  EXPECT_EQ(XMLString("a\xE9").ConvertOrMeasureString(XMLString::kUTF8, out, 1), 3);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(out), 3), std::string("a\x7F\0", 3));
}

// The measured size must be the filled size: a UTF-16 name with a character
// beyond the basic plane and a zero unit inside comes out whole.
TEST(XMLStringConversion, ToUTF8KeepsEveryByte) {
  EXPECT_EQ(XMLString().ToUTF8(), "");
  EXPECT_EQ(Utf16(u"").ToUTF8(), "");
  EXPECT_EQ(Utf16(std::u16string(u"A\0\U0001F389", 4)).ToUTF8(),
            std::string("A\0\xF0\x9F\x8E\x89", 6));
  EXPECT_EQ(Utf8("Cr\xC3\xA8me").ToUTF8(), "Cr\xC3\xA8me");
}

TEST(XMLStringSetData, ReassignmentSlack) {
  XMLString reassigned("abcd");
  reassigned = XMLString("0123456789");
  EXPECT_EQ(SwatchbookProbe::Capacity(reassigned), 266);  // 256 bytes of slack on reassignment
}

TEST(XMLStringSetData, ReadOnlyStringsRefuseChanges) {
  const char bytes[] = "fixed";
  XMLString view = XMLString::ReadOnly(XMLString::kASCII, bytes, 5);
  EXPECT_EQ(view.SetData(2, "ab"), 0);
  view = XMLString("other");
  EXPECT_EQ(view.SetASCII("x", -1), 0);
  EXPECT_EQ(view.GetData(), bytes);
  EXPECT_TRUE(view == XMLString("fixed"));

  XMLString copy(view);  // a copy owns its bytes and may change
  EXPECT_NE(copy.GetData(), bytes);
  EXPECT_EQ(copy.SetASCII("x", -1), 1);
}

}  // namespace
