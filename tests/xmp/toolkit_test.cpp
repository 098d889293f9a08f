#include "xmp/toolkit.h"

#include <gtest/gtest.h>

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

TEST(Base64, PadsShortGroups) {
  EXPECT_EQ(Base64(""), "");
  EXPECT_EQ(Base64("f"), "Zg==");
  EXPECT_EQ(Base64("fo"), "Zm8=");
  EXPECT_EQ(Base64("foo"), "Zm9v");
  EXPECT_EQ(Base64(std::string("\xFF\xFE\x00", 3)), "//4A");
}

TEST(Base64, BreaksLinesAt76WithoutTrailingFeed) {
  const std::string line1 =
      "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4";
  EXPECT_EQ(Base64(Counting(57, 1)), line1);
  EXPECT_EQ(Base64(Counting(58, 1)), line1 + "\nOQ==");
  EXPECT_EQ(Base64(Counting(130, 7)),
            "AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK+2vcTL0tng5+71/AMKERgfJi00O0JJUFdeZWxzeoGI\n"
            "j5adpKuyucDHztXc4+rx+P8GDRQbIikwNz5FTFNaYWhvdn2Ei5KZoKeutbzDytHY3+bt9PsCCRAX\n"
            "HiUsMzpBSE9WXWRrcnmAhw==");
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
  EXPECT_EQ(id([&] { XMPUtils::ComposeStructFieldPath(xmp, "S", "urn:x/", "f", &path); }), 101);
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
  meta.SetProperty_Float(xmp, "xmp:Thumbnails[1]/xmpGImg:height", 12.5);
  meta.SetProperty_Float(xmp, "Rating", -1e-7);
  meta.SetProperty(xmp, "Format", "application/pdf");
  std::string packet;
  meta.SerializeToBuffer(&packet, 0, 0);
  ASSERT_NE(packet.find("<?xpacket"), std::string::npos);

  XMPMeta parsed(packet.data(), uint32_t(packet.size()));
  std::string value;
  uint32_t options = 0;
  ASSERT_TRUE(parsed.GetProperty(xmp, "Format", &value, &options));
  EXPECT_EQ(value, "application/pdf");
  ASSERT_TRUE(parsed.GetProperty(xmp, "Thumbnails", nullptr, &options));
  EXPECT_NE(options & xmptk::kXMP_PropArrayIsOrdered, 0u);  // a Seq, as appended
  ASSERT_TRUE(parsed.GetProperty(xmp, "xmp:Thumbnails[1]/xmpGImg:width", &value, nullptr));
  EXPECT_EQ(value, "-2147483648");
  ASSERT_TRUE(parsed.GetProperty(xmp, "xmp:Thumbnails[1]/xmpGImg:height", &value, nullptr));
  EXPECT_EQ(value, "12.500000");
  ASSERT_TRUE(parsed.GetProperty(xmp, "Rating", &value, nullptr));
  EXPECT_EQ(value, "-0.000000");

  // The selector finds the item by its field, quote and all.
  std::string item;
  XMPUtils::ComposeFieldSelector(xmp, "Thumbnails", img, "format", "JP\"EG", &item);
  ASSERT_TRUE(parsed.GetStructField(xmp, item.c_str(), img, "image", &value, nullptr));
  EXPECT_EQ(value, "/9j/4AAQ");
  XMPUtils::ComposeFieldSelector(xmp, "Thumbnails", img, "format", "JPEG", &item);
  EXPECT_FALSE(parsed.GetStructField(xmp, item.c_str(), img, "image", &value, nullptr));

  XMPMeta empty(nullptr, 0);
  empty.SerializeToBuffer(&packet, 0x10, 0);  // no packet wrapper
  EXPECT_EQ(packet.find("<?xpacket"), std::string::npos);
}

const char kPacket[] =
    "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>"
    "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF "
    "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description rdf:about=\"\" "
    "xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"><xmp:CreatorTool>probe</xmp:CreatorTool>"
    "</rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end=\"r\"?>";

// What the rendering-method suite does per request, with the process's own
// initialisation around it.
bool ReadCreatorTool(const std::string& path, std::string* tool) {
  xmptk::XMPFiles file;
  if (!file.OpenFile(path.c_str(), xmptk::kXMP_UnknownFile, 0)) return false;
  std::string opened;
  EXPECT_TRUE(file.GetFileInfo(&opened, nullptr, nullptr, nullptr));
  EXPECT_EQ(opened, path);
  XMPMeta meta;
  return file.GetXMP(&meta) &&
         meta.GetProperty(xmptk::NamespaceURI("xmp"), "CreatorTool", tool, nullptr);
}

TEST_F(Toolkit, FileLayerOutlivesNestedInitialisation) {
  qltest::DiskFile withXmp("with.pdf", std::string("%PDF-1.4\n") + kPacket + "\n%%EOF\n");
  for (int request = 0; request < 3; ++request) {
    ASSERT_TRUE(xmptk::Initialize());
    xmptk::Terminate();
  }
  std::string tool;
  ASSERT_TRUE(ReadCreatorTool(withXmp.path(), &tool));
  EXPECT_EQ(tool, "probe");
}

TEST_F(Toolkit, FileLayerReportsMissingFilesAndXmp) {
  std::string tool;
  EXPECT_FALSE(ReadCreatorTool("/nonexistent/dir/file.ps", &tool));
  qltest::DiskFile bare("bare.txt", "no metadata in here\n");
  xmptk::XMPFiles file;
  EXPECT_FALSE(file.GetFileInfo(nullptr, nullptr, nullptr, nullptr));
  XMPMeta meta;
  EXPECT_THROW(file.GetXMP(&meta), XMPError);  // nothing open
  ASSERT_TRUE(file.OpenFile(bare.path().c_str(), xmptk::kXMP_UnknownFile, 0));
  EXPECT_FALSE(file.GetXMP(&meta));
  EXPECT_THROW(file.OpenFile(bare.path().c_str(), 0x50444620, 0), XMPError);
}

}  // namespace
