// What the packet says about the swatches: groups, colorants, components,
// tints and names, read back with the toolkit from real requests.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "swatchbook/vantor_swatch_book.h"
#include "tests/xmp_packet/packet_fixture.h"
#include "xmp/xmp_mgmt.h"

namespace {

using nlohmann::json;
using xmppacket::Packet;
using xmppacket::PacketOf;
using xmppacket::Rgb;

std::string Group(int g) {
  return "xmpTPg:SwatchGroups[" + std::to_string(g) + "]/";
}

std::string Colorant(int g, int c) {
  return Group(g) + "xmpG:Colorants[" + std::to_string(c) + "]/xmpG:";
}

TEST(PacketContent, GroupsAndColorantsInFileOrder) {
  Packet p(PacketOf(json::array({
      Rgb("Loose one", 1, 0, 0),
      Rgb("Loose two", 0, 1, 0),
      {{"group", "Empty"}},
      {{"groupEnd", true}},
      {{"group", "Brand"}},
      Rgb("Brand red", 1, 0, 0),
      {{"groupEnd", true}},
  })));
  ASSERT_EQ(p.Count("xmpTPg:SwatchGroups"), 2);  // the empty group takes no index
  EXPECT_EQ(p.Text(Group(1) + "xmpG:groupName"), "Default Swatch Group");
  EXPECT_EQ(p.Text(Group(1) + "xmpG:groupType"), "0");
  EXPECT_EQ(p.Count(Group(1) + "xmpG:Colorants"), 2);
  EXPECT_EQ(p.Text(Colorant(1, 2) + "swatchName"), "Loose two");
  EXPECT_EQ(p.Text(Group(2) + "xmpG:groupName"), "Brand");
  EXPECT_EQ(p.Text(Group(2) + "xmpG:groupType"), "1");
  EXPECT_EQ(p.Text(Colorant(2, 1) + "swatchName"), "Brand red");
}

TEST(PacketContent, ComponentsOfEveryMode) {
  Packet p(PacketOf(json::array({
      {{"swatch", "G"}, {"model", "Gray"}, {"values", {0.5}}},
      {{"swatch", "R"}, {"model", "RGB "}, {"values", {0.5, 1.0, 0.0}}},
      {{"swatch", "C"}, {"model", "CMYK"}, {"values", {0.25, 1.0, 0.0, 0.5}}},
      // The file holds L as 0-1; the packet shows it as stored (0-100).
      {{"swatch", "L"}, {"model", "LAB "}, {"values", {0.507, -12.9, 20.99}}},
  })));
  EXPECT_EQ(p.Text(Colorant(1, 1) + "mode"), "GRAY");
  EXPECT_EQ(p.Text(Colorant(1, 1) + "gray"), "127");  // truncated, not rounded
  EXPECT_EQ(p.Text(Colorant(1, 2) + "mode"), "RGB");
  EXPECT_EQ(p.Text(Colorant(1, 2) + "red"), "127");
  EXPECT_EQ(p.Text(Colorant(1, 2) + "green"), "255");
  EXPECT_EQ(p.Text(Colorant(1, 2) + "blue"), "0");
  EXPECT_EQ(p.Text(Colorant(1, 3) + "mode"), "CMYK");
  EXPECT_EQ(p.Text(Colorant(1, 3) + "cyan"), "25.000000");  // a real, printed as %f
  EXPECT_DOUBLE_EQ(p.Number(Colorant(1, 3) + "magenta"), 100.0);
  EXPECT_DOUBLE_EQ(p.Number(Colorant(1, 3) + "yellow"), 0.0);
  EXPECT_DOUBLE_EQ(p.Number(Colorant(1, 3) + "black"), 50.0);
  EXPECT_EQ(p.Text(Colorant(1, 4) + "mode"), "LAB");
  EXPECT_NEAR(p.Number(Colorant(1, 4) + "L"), 50.7, 1e-4);
  EXPECT_EQ(p.Text(Colorant(1, 4) + "A"), "-12");  // toward zero
  EXPECT_EQ(p.Text(Colorant(1, 4) + "B"), "20");
}

TEST(PacketContent, TypesAndTints) {
  // Type word: bit 0 spot, else bit 1 process untinted, else process.
  Packet p(PacketOf(json::array({
      {{"swatch", "spot"}, {"model", "RGB "}, {"values", {1, 0, 0}}, {"type", 1}, {"tint", 0.25}},
      {{"swatch", "process"}, {"model", "Gray"}, {"values", {0.5}}, {"type", 0}, {"tint", 0.5}},
      {{"swatch", "untinted"},
       {"model", "CMYK"},
       {"values", {0, 0, 0, 1}},
       {"type", 2},
       {"tint", 0.75}},
      {{"swatch", "zero"}, {"model", "RGB "}, {"values", {0, 0, 1}}, {"type", 1}, {"tint", 0.0}},
      {{"swatch", "plain"}, {"model", "LAB "}, {"values", {0.5, 0, 0}}, {"type", 1}},
  })));
  EXPECT_EQ(p.Text(Colorant(1, 1) + "type"), "SPOT");
  EXPECT_EQ(p.Text(Colorant(1, 1) + "tint"), "75.000000");
  EXPECT_EQ(p.Text(Colorant(1, 2) + "type"), "PROCESS");
  EXPECT_DOUBLE_EQ(p.Number(Colorant(1, 2) + "tint"), 50.0);
  EXPECT_EQ(p.Text(Colorant(1, 3) + "type"), "PROCESS");
  EXPECT_FALSE(p.Has(Colorant(1, 3) + "tint"));
  EXPECT_FALSE(p.Has(Colorant(1, 4) + "tint"));
  EXPECT_FALSE(p.Has(Colorant(1, 5) + "tint"));
}

TEST(PacketContent, Names) {
  Packet p(PacketOf(json::array({
      {{"swatch", "Crème brûlée 朱色 🎉"}, {"model", "Gray"}, {"values", {0.2}}},
      {{"swatch", "$$$/Swatch/Red=Red"}, {"model", "RGB "}, {"values", {1, 0, 0}}},
      {{"swatch", ""}, {"model", "RGB "}, {"values", {0, 1, 0}}},
      {{"group", "Warm"}},
      {{"swatch", ""}, {"model", "RGB "}, {"values", {1, 0.5, 0}}},
      {{"groupEnd", true}},
      {{"group", ""}},
      Rgb("Cool", 0, 0, 1),
      {{"groupEnd", true}},
  })));
  EXPECT_EQ(p.Text(Colorant(1, 1) + "swatchName"), "Crème brûlée 朱色 🎉");
  EXPECT_EQ(p.Text(Colorant(1, 2) + "swatchName"), "Red");
  // An empty name repeats the name written before it, whatever that was.
  EXPECT_EQ(p.Text(Colorant(1, 3) + "swatchName"), "Red");
  EXPECT_EQ(p.Text(Colorant(2, 1) + "swatchName"), "Warm");
  EXPECT_EQ(p.Text(Group(3) + "xmpG:groupName"), "Warm");
  EXPECT_EQ(p.Text(Colorant(3, 1) + "swatchName"), "Cool");
}

TEST(PacketContent, GroupOfUnsupportedSwatchesIsListedWithoutColorants) {
  // A colour entry cut off before its values leaves a swatch without colour.
  json blocks = json::array({
      {{"group", "Partial"}},
      {{"swatch", "Cut short"}, {"model", "RGB "}, {"values", {0.1, 0.2, 0.3}}},
  });
  xmppacket::Request r = xmppacket::RunXmpRequest(xmppacket::SwatchFile(blocks, {{"truncate", 5}}));
  ASSERT_TRUE(r.handedOver);
  Packet p(r.packet);
  ASSERT_EQ(p.Count("xmpTPg:SwatchGroups"), 1);
  EXPECT_EQ(p.Text(Group(1) + "xmpG:groupName"), "Partial");
  EXPECT_EQ(p.Text(Group(1) + "xmpG:groupType"), "1");
  EXPECT_EQ(p.Count(Group(1) + "xmpG:Colorants"), 0);
  // No chip either: the one page is the blank 31 x 31 one.
  std::vector<Packet::Page> pages = p.Pages();
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_EQ(pages[0].width, 31);
}

TEST(PacketContent, XyzSwatchGetsNoColorant) {
  // The exchange files carry no XYZ model; a book filled directly can.
  VantorSwatchBook book;
  book.CreateSwatchGroup();
  book.SetSwatchGroupName("Measured");
  int32_t format = book.AddFormat();
  book.SetFormatEncoding(format, KeltoSwatchbook::kEncodingDouble);
  book.SetFormatColorSpace(format, KeltoSwatchbook::kColorSpaceXYZ);
  int32_t swatch = book.AddSwatch(-1);
  book.SetSwatchName(swatch, "D50 white");
  const double xyz[4] = {0.9642, 1.0, 0.8249, 0};
  book.AddColorValues(swatch, format, xyz);
  std::string packet;
  ASSERT_TRUE(xmptk::Initialize());
  XMPMgmt().GenerateXMP(book, packet);
  xmptk::Terminate();
  Packet p(packet);
  ASSERT_EQ(p.Count("xmpTPg:SwatchGroups"), 1);
  EXPECT_EQ(p.Text(Group(1) + "xmpG:groupName"), "Measured");
  EXPECT_EQ(p.Count(Group(1) + "xmpG:Colorants"), 0);
}

}  // namespace
