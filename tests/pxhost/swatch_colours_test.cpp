// Display colours read back from the swatch packet the plug-in hands over.
#include "pxhost/swatch_colours.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "host/host_simulator.h"
#include "sdk/host_types.h"
#include "sdk/selectors.h"
#include "xmp/display_colour.h"

namespace {

std::string PacketOf(const std::string& path) {
  std::string error;
  PluginMainProc entry = pxhost::LoadPlugin(QL_MODULE, &error);
  EXPECT_NE(entry, nullptr) << error;
  pxhost::SessionOptions options;
  options.fileType = pixmere::FourCC("SXF ");
  pxhost::HostSession session(entry, path, options);
  EXPECT_EQ(session.Call(pixmere::kSelectorFilterFile), 0);
  EXPECT_EQ(session.Call(pixmere::kSelectorXMP), 0);
  return session.HandleBytes(session.Record().xmpHandle);
}

std::tuple<int, int, int> Rgb(const pxhost::DisplaySwatch& s) {
  return {s.r, s.g, s.b};
}

TEST(SwatchColours, BookOrderGroupsAndConversions) {
  std::vector<pxhost::DisplaySwatch> swatches;
  std::string error;
  ASSERT_TRUE(pxhost::DisplaySwatchesFromPacket(
      PacketOf(std::string(QL_SOURCE_DIR) + "/samples/swatches/basic.sxf"), &swatches, &error))
      << error;
  ASSERT_GE(swatches.size(), 5u);
  EXPECT_EQ(std::tuple(swatches[0].group, swatches[0].name, swatches[0].model),
            std::tuple("", "Paper", "GRAY"));
  EXPECT_EQ(Rgb(swatches[0]), std::tuple(255, 255, 255));
  EXPECT_EQ(Rgb(swatches[1]), std::tuple(0, 0, 0));
  const pxhost::DisplaySwatch& red = swatches[2];
  EXPECT_EQ(std::tuple(red.group, red.name, red.type, red.tint),
            std::tuple("Brand", "Brand Red", "SPOT", 0.0));
  EXPECT_EQ(red.values, (std::vector<double>{219, 20, 61}));
  EXPECT_EQ(Rgb(red), std::tuple(219, 20, 61));
  // CMYK goes through the engine exactly as the chips do.
  const pxhost::DisplaySwatch& blue = swatches[3];
  ASSERT_EQ(blue.model, "CMYK");
  double book[4] = {1.0, 0.60000002, 0.0, 0.1};
  float engine[3] = {0, 0, 0};
  ASSERT_TRUE(xmppages::DisplayColour(KeltoSwatchbook::kColorSpaceCMYK, book, engine));
  EXPECT_EQ(Rgb(blue),
            std::tuple(int(std::lround(engine[0] * 255)), int(std::lround(engine[1] * 255)),
                       int(std::lround(engine[2] * 255))));
  EXPECT_LT(blue.r, blue.b);  // a blue, not red and blue exchanged as on the pages
}

std::string Packet(const std::string& colorant) {
  return "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF "
         "xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description rdf:about='' "
         "xmlns:xmpTPg='http://ns.adobe.com/xap/1.0/t/pg/' "
         "xmlns:xmpG='http://ns.adobe.com/xap/1.0/g/'><xmpTPg:SwatchGroups><rdf:Seq><rdf:li "
         "rdf:parseType='Resource'><xmpG:groupName>G</xmpG:groupName><xmpG:groupType>1</"
         "xmpG:groupType><xmpG:Colorants><rdf:Seq><rdf:li rdf:parseType='Resource'>" +
         colorant +
         "</rdf:li></rdf:Seq></xmpG:Colorants></rdf:li></rdf:Seq></xmpTPg:SwatchGroups></"
         "rdf:Description></rdf:RDF></x:xmpmeta>";
}

TEST(SwatchColours, HandMadePackets) {
  std::vector<pxhost::DisplaySwatch> swatches;
  std::string error;
  ASSERT_TRUE(pxhost::DisplaySwatchesFromPacket(
      Packet("<xmpG:swatchName>Odd</xmpG:swatchName><xmpG:type>SPOT</xmpG:type>"), &swatches,
      &error))
      << error;
  ASSERT_EQ(swatches.size(), 1u);
  EXPECT_FALSE(swatches[0].drawable);
  EXPECT_EQ(swatches[0].group, "G");
  // Round to nearest, clamped.
  ASSERT_TRUE(pxhost::DisplaySwatchesFromPacket(
      Packet("<xmpG:mode>RGB</xmpG:mode><xmpG:red>300</xmpG:red><xmpG:green>-4</"
             "xmpG:green><xmpG:blue>127.5</xmpG:blue>"),
      &swatches, &error));
  EXPECT_EQ(Rgb(swatches[0]), std::tuple(255, 0, 128));
  for (const std::string& bad :
       {Packet("<xmpG:mode>RGB</xmpG:mode><xmpG:red>x</xmpG:red>"), std::string("<not xml")}) {
    EXPECT_FALSE(pxhost::DisplaySwatchesFromPacket(bad, &swatches, &error)) << bad;
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(swatches.empty());
  }
}

}  // namespace
