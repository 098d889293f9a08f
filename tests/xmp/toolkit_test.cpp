#include "xmp/toolkit.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/fixture_file.h"

namespace {

using xmptk::XMPError;
using xmptk::XMPMeta;
namespace XMPUtils = xmptk::XMPUtils;

class Toolkit : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(xmptk::Initialize()); }
  static void TearDownTestSuite() { xmptk::Terminate(); }
  const char* xmp = xmptk::NamespaceURI("xmp");
  const char* tpg = xmptk::NamespaceURI("xmpTPg");
  const char* g = xmptk::NamespaceURI("xmpG");
  const char* img = xmptk::NamespaceURI("xmpGImg");
};

std::string Base64(const std::string& raw) {
  std::string out = "stale";
  XMPUtils::EncodeToBase64(raw.data(), uint32_t(raw.size()), &out);
  return out;
}

std::string Counting(int n, int step) {
  std::string s;
  for (int i = 0; i < n; ++i) s += char((i * step) % 256);
  return s;
}

TEST(Base64, PadsShortGroupsAndBreaksLinesAt76WithoutTrailingFeed) {
  EXPECT_EQ(Base64(""), "");
  EXPECT_EQ(Base64("f"), "Zg==");
  EXPECT_EQ(Base64("fo"), "Zm8=");
  EXPECT_EQ(Base64("foo"), "Zm9v");
  EXPECT_EQ(Base64(std::string("\xFF\xFE\x00", 3)), "//4A");
  const std::string line1 =
      "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4";
  EXPECT_EQ(Base64(Counting(57, 1)), line1);
  EXPECT_EQ(Base64(Counting(58, 1)), line1 + "\nOQ==");
  EXPECT_EQ(Base64(Counting(130, 7)),
            "AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK+2vcTL0tng5+71/AMKERgfJi00O0JJUFdeZWxzeoGI\n"
            "j5adpKuyucDHztXc4+rx+P8GDRQbIikwNz5FTFNaYWhvdn2Ei5KZoKeutbzDytHY3+bt9PsCCRAX\n"
            "HiUsMzpBSE9WXWRrcnmAhw==");
}

TEST(Base64, DecodesWhatItEncodesAndRefusesWhatIsNotBase64) {
  for (const std::string& raw :
       {std::string(), std::string("f"), Counting(58, 1), Counting(130, 7)}) {
    std::string back = "stale";
    std::string text = Base64(raw);
    XMPUtils::DecodeFromBase64(text.data(), uint32_t(text.size()), &back);
    EXPECT_EQ(back, raw);
  }
  for (const char* bad : {"Zm9v!", "Zg==Zg==", "Z\x80=="}) {
    std::string out;
    EXPECT_THROW(XMPUtils::DecodeFromBase64(bad, uint32_t(std::strlen(bad)), &out), XMPError)
        << bad;
  }
}

TEST_F(Toolkit, ComposesPathsInTheToolkitsForms) {
  std::string path;
  XMPUtils::ComposeArrayItemPath(xmp, "PageInfo", 1, &path);
  EXPECT_EQ(path, "xmp:PageInfo[1]");
  XMPUtils::ComposeArrayItemPath(xmp, "PageInfo", -1, &path);
  EXPECT_EQ(path, "xmp:PageInfo[last()]");
  XMPUtils::ComposeStructFieldPath(tpg, "xmpTPg:SwatchGroups[12]", g, "Colorants", &path);
  EXPECT_EQ(path, "xmpTPg:SwatchGroups[12]/xmpG:Colorants");
  // An array that is itself a field keeps its path as given.
  XMPUtils::ComposeArrayItemPath(tpg, path.c_str(), 3, &path);
  EXPECT_EQ(path, "xmpTPg:SwatchGroups[12]/xmpG:Colorants[3]");
  XMPUtils::ComposeFieldSelector(xmp, "Thumbnails", img, "format", "JPEG", &path);
  EXPECT_EQ(path, "Thumbnails[xmpGImg:format=\"JPEG\"]");
  XMPUtils::ComposeFieldSelector(xmp, "Thumbnails", img, "format", "a\"b", &path);
  EXPECT_EQ(path, "Thumbnails[xmpGImg:format=\"a\"\"b\"]");
}

TEST_F(Toolkit, BadPathsAndNamespacesThrow) {
  std::string path = "untouched";
  auto id = [](auto call) {
    try {
      call();
    } catch (const XMPError& e) {
      return e.GetID();
    }
    return 0;
  };
  EXPECT_EQ(id([&] { xmptk::NamespaceURI("noSuchPrefix"); }), 101);
  EXPECT_EQ(id([&] { XMPUtils::ComposeArrayItemPath("urn:unregistered/", "A", 1, &path); }), 101);
  EXPECT_EQ(id([&] { XMPUtils::ComposeArrayItemPath(xmp, "PageInfo", 0, &path); }), 4);
  EXPECT_EQ(id([&] { XMPUtils::ComposeArrayItemPath(xmp, "PageInfo", -2, &path); }), 4);
  EXPECT_EQ(id([&] { XMPUtils::ComposeArrayItemPath(xmp, "Page]Info", 1, &path); }), 102);
  // A prefix that belongs to another namespace.
  EXPECT_EQ(id([&] { XMPUtils::ComposeArrayItemPath(xmp, "xmpG:PageInfo", 1, &path); }), 101);
  EXPECT_EQ(id([&] { XMPUtils::ComposeStructFieldPath(xmp, "S", img, "a/b", &path); }), 102);
  EXPECT_EQ(path, "untouched");

  XMPMeta meta;
  EXPECT_EQ(id([&] { meta.GetProperty(xmp, "Format[[", nullptr, nullptr); }), 102);
  EXPECT_EQ(id([&] { meta.SetProperty("urn:unregistered/", "Format", "x"); }), 101);
  EXPECT_EQ(id([&] { XMPMeta("<x:xmpmeta", 10); }), 201);
  EXPECT_FALSE(meta.GetProperty(xmp, "Format", &path, nullptr));  // absent is not an error
}

TEST_F(Toolkit, PacketSurvivesSerializeAndParse) {
  XMPMeta meta;
  meta.AppendArrayItem(xmp, "Thumbnails", xmptk::kXMP_PropArrayIsOrdered, nullptr,
                       xmptk::kXMP_PropValueIsStruct);
  meta.SetProperty(xmp, "xmp:Thumbnails[1]/xmpGImg:format", "JP\"EG");
  meta.SetProperty(xmp, "xmp:Thumbnails[1]/xmpGImg:image", "/9j/4AAQ");
  meta.SetProperty_Int(xmp, "xmp:Thumbnails[1]/xmpGImg:width", -2147483647 - 1);
  meta.SetProperty_Float(xmp, "Rating", -1e-7);
  std::string packet;
  meta.SerializeToBuffer(&packet, 0, 0);
  ASSERT_NE(packet.find("<?xpacket"), std::string::npos);

  XMPMeta parsed(packet.data(), uint32_t(packet.size()));
  uint32_t options = 0;
  ASSERT_TRUE(parsed.GetProperty(xmp, "Thumbnails", nullptr, &options));
  EXPECT_NE(options & xmptk::kXMP_PropArrayIsOrdered, 0u);  // a Seq, as appended
  std::string value;
  ASSERT_TRUE(parsed.GetProperty(xmp, "xmp:Thumbnails[1]/xmpGImg:width", &value, nullptr));
  EXPECT_EQ(value, "-2147483648");
  ASSERT_TRUE(parsed.GetProperty(xmp, "Rating", &value, nullptr));
  EXPECT_EQ(value, "-0.000000");  // printf "%f", sign kept

  // The selector finds the item by its field, quote and all.
  std::string item;
  XMPUtils::ComposeFieldSelector(xmp, "Thumbnails", img, "format", "JP\"EG", &item);
  ASSERT_TRUE(parsed.GetStructField(xmp, item.c_str(), img, "image", &value, nullptr));
  EXPECT_EQ(value, "/9j/4AAQ");
  XMPUtils::ComposeFieldSelector(xmp, "Thumbnails", img, "format", "JPEG", &item);
  EXPECT_FALSE(parsed.GetStructField(xmp, item.c_str(), img, "image", &value, nullptr));
}

// Requests initialise and terminate the toolkit around themselves; the
// suite's own initialisation must outlive them.
TEST_F(Toolkit, FileLayerOutlivesNestedInitialisationAndRefusesMisuse) {
  std::string packet;
  XMPMeta written;
  written.SetProperty(xmp, "CreatorTool", "probe");
  written.SerializeToBuffer(&packet, 0, 0);
  qltest::DiskFile pdf("with.pdf", "%PDF-1.4\n" + packet + "\n%%EOF\n");
  for (int request = 0; request < 3; ++request) {
    ASSERT_TRUE(xmptk::Initialize());
    xmptk::Terminate();
  }
  xmptk::XMPFiles file;
  XMPMeta meta;
  EXPECT_FALSE(file.GetFileInfo(nullptr, nullptr, nullptr, nullptr));
  EXPECT_THROW(file.GetXMP(&meta), XMPError);  // nothing open
  ASSERT_TRUE(file.OpenFile(pdf.path().c_str(), xmptk::kXMP_UnknownFile, 0));
  std::string opened, tool;
  EXPECT_TRUE(file.GetFileInfo(&opened, nullptr, nullptr, nullptr));
  EXPECT_EQ(opened, pdf.path());
  ASSERT_TRUE(file.GetXMP(&meta));
  EXPECT_TRUE(meta.GetProperty(xmp, "CreatorTool", &tool, nullptr));
  EXPECT_EQ(tool, "probe");
  EXPECT_THROW(file.OpenFile(pdf.path().c_str(), 0x50444620, 0), XMPError);  // only detection
}

}  // namespace
