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
using xmppacket::AddGroup;
using xmppacket::Packet;
using xmppacket::PacketOf;
using xmppacket::Rgb;
using xmppacket::Swatch;

std::string Group(int g) {
  return "xmpTPg:SwatchGroups[" + std::to_string(g) + "]/";
}

std::string Colorant(int g, int c) {
  return Group(g) + "xmpG:Colorants[" + std::to_string(c) + "]/xmpG:";
}

// The colorant's fields other than its name, "field=value" in writing order.
std::string Fields(const Packet& p, int g, int c) {
  std::string out;
  for (const char* f : {"tint", "mode", "type", "gray", "red", "green", "blue", "cyan", "magenta",
                        "yellow", "black", "L", "A", "B"})
    if (p.Has(Colorant(g, c) + f))
      out += (out.empty() ? "" : " ") + std::string(f) + "=" + p.Text(Colorant(g, c) + f);
  return out;
}

// Each group as "name (type): swatch names".
std::string Groups(const Packet& p) {
  std::string out;
  for (int g = 1; g <= p.Count("xmpTPg:SwatchGroups"); ++g) {
    out += (g > 1 ? " | " : "") + p.Text(Group(g) + "xmpG:groupName") + " (" +
           p.Text(Group(g) + "xmpG:groupType") + "):";
    for (int c = 1; c <= p.Count(Group(g) + "xmpG:Colorants"); ++c)
      out += (c > 1 ? ", " : " ") + p.Text(Colorant(g, c) + "swatchName");
  }
  return out;
}

TEST(PacketContent, GroupsAndColorantsInFileOrder) {
  json blocks = json::array({Rgb("Loose one", 1, 0, 0), Rgb("Loose two", 0, 1, 0)});
  AddGroup(blocks, "Empty", json::array());  // skipped: it takes no index
  Packet p(PacketOf(AddGroup(blocks, "Brand", json::array({Rgb("Brand red", 1, 0, 0)}))));
  EXPECT_EQ(Groups(p), "Default Swatch Group (0): Loose one, Loose two | Brand (1): Brand red");
}

TEST(PacketContent, ComponentsTypesAndTints) {
  // Integers are truncated toward zero; reals are printed as %f. The file
  // holds Lab L as 0-1, the packet shows it as stored (0-100). Type word: bit
  // 0 spot, else bit 1 process untinted, else process. The tint is written as
  // (1 - t) x 100, never for untinted swatches nor for t = 0.
  struct Case {
    json block;
    const char* fields;
  } cases[] = {
      {Swatch("G", "Gray", {0.5}), "mode=GRAY type=PROCESS gray=127"},
      {Rgb("R", 0.5, 1.0, 0.0), "mode=RGB type=PROCESS red=127 green=255 blue=0"},
      {Swatch("C", "CMYK", {0.25, 1.0, 0.0, 0.5}),
       "mode=CMYK type=PROCESS cyan=25.000000 magenta=100.000000 yellow=0.000000 black=50.000000"},
      {Swatch("L", "LAB ", {0.505, -12.9, 20.99}), "mode=LAB type=PROCESS L=50.500000 A=-12 B=20"},
      {Swatch("spot", "RGB ", {1, 0, 0}, 1, 0.25),
       "tint=75.000000 mode=RGB type=SPOT red=255 green=0 blue=0"},
      {Swatch("process", "Gray", {0.5}, 0, 0.5), "tint=50.000000 mode=GRAY type=PROCESS gray=127"},
      {Swatch("untinted", "Gray", {1}, 2, 0.75), "mode=GRAY type=PROCESS gray=255"},
      {Swatch("zero", "Gray", {0}, 1, 0.0), "mode=GRAY type=SPOT gray=0"},
      {Swatch("plain", "Gray", {0}, 1), "mode=GRAY type=SPOT gray=0"},
  };
  json blocks = json::array();
  for (const Case& c : cases) blocks.push_back(c.block);
  Packet p(PacketOf(blocks));
  for (size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(Fields(p, 1, int(i) + 1), cases[i].fields) << cases[i].block["swatch"];
}

TEST(PacketContent, Names) {
  json blocks = json::array({
      Swatch("Crème brûlée 朱色 🎉", "Gray", {0.2}),
      Rgb("$$$/Swatch/Red=Red", 1, 0, 0),
      Rgb("", 0, 1, 0),
  });
  AddGroup(blocks, "Warm", json::array({Rgb("", 1, 0.5, 0)}));
  Packet p(PacketOf(AddGroup(blocks, "", json::array({Rgb("Cool", 0, 0, 1)}))));
  // An empty name repeats the name written before it, whatever that was.
  EXPECT_EQ(Groups(p),
            "Default Swatch Group (0): Crème brûlée 朱色 🎉, Red, Red | Warm (1): Warm | "
            "Warm (1): Cool");
}

TEST(PacketContent, UnsupportedSwatchesGetNoColorantNorChip) {
  // A colour entry cut off before its values leaves a swatch without colour;
  // its group is still listed, and the one page is the blank 31 x 31 one.
  json blocks = json::array({{{"group", "Partial"}}, Rgb("Cut short", 0.1, 0.2, 0.3)});
  Packet p(PacketOf(blocks, {{"truncate", 5}}));
  EXPECT_EQ(Groups(p), "Partial (1):");
  EXPECT_EQ(p.Pages().at(0).width, 31);

  // The exchange files carry no XYZ model; a book filled directly can.
  VantorSwatchBook book;
  book.CreateSwatchGroup();
  book.SetSwatchGroupName("Measured");
  int32_t format = book.AddFormat();
  book.SetFormatEncoding(format, KeltoSwatchbook::kEncodingDouble);
  book.SetFormatColorSpace(format, KeltoSwatchbook::kColorSpaceXYZ);
  int32_t swatch = book.AddSwatch(-1);
  const double xyz[4] = {0.9642, 1.0, 0.8249, 0};
  book.AddColorValues(swatch, format, xyz);
  std::string packet;
  ASSERT_TRUE(xmptk::Initialize());
  XMPMgmt().GenerateXMP(book, packet);
  xmptk::Terminate();
  Packet xyzPacket(packet);
  EXPECT_EQ(Groups(xyzPacket), "Measured (1):");
  EXPECT_EQ(xyzPacket.Pages().at(0).width, 31);
}

}  // namespace
