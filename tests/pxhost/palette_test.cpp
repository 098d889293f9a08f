// pxhost palette, read back as the programs that take these formats read
// them: a GIMP palette parser following GIMP's rules, JSON through nlohmann,
// every CSS declaration checked.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/fixture_file.h"
#include "tools/sxfwrite/sxf_writer.h"

namespace {

namespace fs = std::filesystem;
using qltest::Outcome;

const std::string kNames = std::string(QL_SOURCE_DIR) + "/samples/swatches/names.sxf";

Outcome PxhostOut(const std::string& args) {
  return qltest::Shell("{ " + std::string(QL_PXHOST) + " " + args + " 2>/dev/null; }");
}

struct GplColour {
  int r, g, b;
  std::string name, group;
};

// GIMP's palette reader: the first line is "GIMP Palette"; "Name:" and
// "Columns:" may follow; blank lines and lines starting with '#' are skipped;
// a colour line is three whitespace-separated numbers 0..255, then the name
// (the rest of the line, leading whitespace dropped). The comment line last
// seen is taken as the group, which is how this exporter writes groups.
bool ParseGpl(const std::string& text, std::string* name, int* columns,
              std::vector<GplColour>* colours, std::string* error) {
  std::istringstream in(text);
  std::string line;
  if (!std::getline(in, line) || line.rfind("GIMP Palette", 0) != 0) {
    *error = "no GIMP Palette header";
    return false;
  }
  std::string group;
  while (std::getline(in, line)) {
    if (line.rfind("Name: ", 0) == 0) {
      *name = line.substr(6);
    } else if (line.rfind("Columns: ", 0) == 0) {
      *columns = std::atoi(line.c_str() + 9);
    } else if (line.empty() || line[0] == '#') {
      group = line.rfind("# ", 0) == 0 ? line.substr(2) : "";
    } else {
      std::istringstream fields(line);
      GplColour c{};
      if (!(fields >> c.r >> c.g >> c.b) || c.r < 0 || c.r > 255 || c.g < 0 || c.g > 255 ||
          c.b < 0 || c.b > 255) {
        *error = "bad colour line: " + line;
        return false;
      }
      std::getline(fields, c.name);
      c.name.erase(0, c.name.find_first_not_of(" \t"));
      c.group = group;
      colours->push_back(c);
    }
  }
  return true;
}

TEST(Palette, GimpPaletteReadsBack) {
  Outcome r = PxhostOut("palette " + kNames);
  ASSERT_EQ(r.status, 0) << r.out;
  std::string name, error;
  int columns = 0;
  std::vector<GplColour> colours;
  ASSERT_TRUE(ParseGpl(r.out, &name, &columns, &colours, &error)) << error;
  EXPECT_EQ(name, "names");
  EXPECT_GT(columns, 0);
  std::map<std::string, GplColour> byName;
  for (const GplColour& c : colours) byName[c.name] = c;
  ASSERT_EQ(byName.count("Red"), 1u) << r.out;  // the display text of a "$$$/key=" name
  EXPECT_EQ(std::tuple(byName["Red"].r, byName["Red"].g, byName["Red"].b), std::tuple(255, 0, 0));
  EXPECT_EQ(byName["Red"].group, "Warm Colours");
  ASSERT_EQ(byName.count("朱色"), 1u) << r.out;  // names keep their Unicode
  EXPECT_EQ(byName["朱色"].group, "Écrus et crèmes");
  ASSERT_EQ(byName.count("Party 🎉"), 1u) << r.out;
  // RGB is exact: the 0..255 values the packet stores for 0.9, 0.2, 0.7.
  EXPECT_EQ(std::tuple(byName["Party 🎉"].r, byName["Party 🎉"].g, byName["Party 🎉"].b),
            std::tuple(229, 51, 178));
}

TEST(Palette, JsonAndCssAgreeWithTheGimpPalette) {
  std::string name, error;
  int columns = 0;
  std::vector<GplColour> colours;
  ASSERT_TRUE(ParseGpl(PxhostOut("palette " + kNames).out, &name, &columns, &colours, &error));

  Outcome r = PxhostOut("palette -f json " + kNames);
  ASSERT_EQ(r.status, 0);
  auto book = nlohmann::json::parse(r.out);
  ASSERT_EQ(book["swatches"].size(), colours.size());
  EXPECT_EQ(book["skipped"], 0);
  EXPECT_EQ(book["groups"], (nlohmann::json{"Warm Colours", "Écrus et crèmes"}));
  for (size_t k = 0; k < colours.size(); ++k) {
    const auto& s = book["swatches"][k];
    EXPECT_EQ(s["name"], colours[k].name);
    EXPECT_EQ(s["rgb"], (nlohmann::json{colours[k].r, colours[k].g, colours[k].b}));
    char hex[8];
    std::snprintf(hex, sizeof hex, "#%02x%02x%02x", colours[k].r, colours[k].g, colours[k].b);
    EXPECT_EQ(s["hex"], hex);
    EXPECT_TRUE(s.contains("model") && s.contains("type") && s.contains("tint") &&
                s.contains("values"));
  }

  r = PxhostOut("palette -f css " + kNames);
  ASSERT_EQ(r.status, 0);
  std::istringstream css(r.out);
  std::string line;
  ASSERT_TRUE(std::getline(css, line));
  EXPECT_EQ(line, ":root {");
  std::set<std::string> properties;
  std::vector<std::string> values;
  while (std::getline(css, line) && line != "}") {
    // "  --swatch-NAME: #rrggbb;" with NAME free of blanks, colons and semicolons.
    size_t colon = line.find(": ");
    ASSERT_TRUE(line.rfind("  --swatch-", 0) == 0 && colon != std::string::npos) << line;
    std::string property = line.substr(2, colon - 2);
    std::string value = line.substr(colon + 2);
    EXPECT_EQ(property.find_first_of(" \t:;"), std::string::npos) << line;
    ASSERT_EQ(value.size(), 8u) << line;
    EXPECT_EQ(value[0], '#') << line;
    EXPECT_EQ(value[7], ';') << line;
    EXPECT_EQ(value.find_first_not_of("0123456789abcdef", 1), 7u) << line;
    EXPECT_TRUE(properties.insert(property).second) << "repeated " << property;
    values.push_back(value.substr(0, 7));
  }
  EXPECT_EQ(line, "}");
  ASSERT_EQ(values.size(), colours.size());
  for (size_t k = 0; k < values.size(); ++k) EXPECT_EQ(values[k], book["swatches"][k]["hex"]);
  EXPECT_EQ(properties.count("--swatch-red"), 1u);
}

// The same contract as every command: outputs atomic, reasons, exit codes.
TEST(Palette, Contract) {
  qltest::DiskFile notSwatch("fake.sxf", "not a swatch file");
  fs::path dir = fs::path(notSwatch.path()).parent_path();
  std::string out = (dir / "out.gpl").string();
  Outcome r = qltest::Shell(std::string(QL_PXHOST) + " palette " + notSwatch.path() + " -o " + out);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("not a swatch exchange file (bad signature)"), std::string::npos) << r.out;
  EXPECT_FALSE(fs::exists(out));
  r = PxhostOut("palette --json -f css " + kNames + " -o " + out);
  EXPECT_EQ(r.status, 0);
  auto line = nlohmann::json::parse(r.out);
  EXPECT_EQ(line["ok"], true);
  EXPECT_EQ(line["result"]["skipped"], 0);
  EXPECT_TRUE(fs::exists(out));
  // Standard input: the same palette, named "stdin".
  std::string named = PxhostOut("palette " + kNames).out;
  named.replace(named.find("Name: names"), 11, "Name: stdin");
  EXPECT_EQ(PxhostOut("palette - < " + kNames).out, named);
}

// Groups as the book holds them: the ungrouped list apart from a group the
// file names "", and two groups of the same name apart from each other.
TEST(Palette, GroupsAsTheBookHoldsThem) {
  std::string sxf, error;
  ASSERT_TRUE(sxfwrite::BuildSxf(nlohmann::json::parse(R"({"blocks": [
      {"swatch": "Loose", "model": "RGB ", "values": [0, 0, 1]},
      {"group": ""},
      {"swatch": "Nameless", "model": "RGB ", "values": [0, 1, 0]},
      {"group": "Brand"},
      {"swatch": "Red", "model": "RGB ", "values": [1, 0, 0]},
      {"group": "Brand"},
      {"swatch": "Ink", "model": "CMYK", "values": [0, 1, 1, 0]}]})"),
                                 &sxf, &error))
      << error;
  qltest::DiskFile book("groups.sxf", sxf);
  Outcome r = PxhostOut("palette " + book.path());
  ASSERT_EQ(r.status, 0) << r.out;
  std::vector<std::string> comments;
  std::istringstream lines(r.out);
  for (std::string line; std::getline(lines, line);)
    if (line.rfind("#", 0) == 0) comments.push_back(line);
  EXPECT_EQ(comments, (std::vector<std::string>{"#", "# ", "# Brand", "# Brand"})) << r.out;
  auto palette = nlohmann::json::parse(PxhostOut("palette -f json " + book.path()).out);
  EXPECT_EQ(palette["groups"], (nlohmann::json{"", "Brand", "Brand"}));
  EXPECT_EQ(palette["swatches"][0]["group"], nullptr);
  EXPECT_EQ(palette["swatches"][1]["group"], "");
}

// A colour entry in a model the reader does not know makes no swatch: the
// palette names it on standard error, counts it, and writes the others.
TEST(Palette, UnknownModelsAreNamedAndCounted) {
  std::string sxf, error;
  ASSERT_TRUE(sxfwrite::BuildSxf(nlohmann::json::parse(R"({"blocks": [
      {"group": "Brand"},
      {"swatch": "Red", "model": "RGB ", "values": [1, 0, 0]},
      {"swatch": "Teinte étrange", "model": "HSV ", "values": [0.5, 0.5, 0.5]},
      {"groupEnd": true},
      {"swatch": "Ink", "model": "CMYK", "values": [0, 1, 1, 0], "type": 1}]})"),
                                 &sxf, &error))
      << error;
  qltest::DiskFile book("odd.sxf", sxf);
  std::string out = (fs::path(book.path()).parent_path() / "odd.json").string();
  Outcome r = qltest::Shell(std::string(QL_PXHOST) + " palette -f json --json " + book.path() +
                            " -o " + out);
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find(book.path() + ": swatch \"Teinte étrange\" has an unknown colour model "
                                     "(\"HSV \"); skipped\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find(book.path() + ": 1 swatch skipped, 2 written\n"), std::string::npos);
  EXPECT_NE(r.out.find("\"skipped\":1,\"swatches\":2"), std::string::npos);
  std::ifstream in(out);
  auto palette = nlohmann::json::parse(in);
  EXPECT_EQ(palette["skipped"], 1);
  ASSERT_EQ(palette["swatches"].size(), 2u);
  EXPECT_EQ(palette["swatches"][1]["name"], "Ink");
}

// The swatch packet cannot hold a name with a character XML cannot hold, and
// writes an empty name as the one before it. `xmp` refuses such a book in one
// line (the toolkit's own words kept off the terminal); a palette and the
// swatch thumbnail show the book as it is, telling what they replaced.
TEST(Palette, NamesThePacketCannotHold) {
  std::string sxf, error;
  ASSERT_TRUE(sxfwrite::BuildSxf(nlohmann::json::parse(R"({"blocks": [
      {"swatch": "Bad\ufffe", "model": "RGB ", "values": [1, 0, 0]},
      {"swatch": "", "model": "RGB ", "values": [0, 0, 1]},
      {"swatch": "Sea", "model": "RGB ", "values": [0, 0.5, 0.5]}]})"),
                                 &sxf, &error))
      << error;
  qltest::DiskFile book("bad.sxf", sxf);
  const std::string pxhost = QL_PXHOST;
  Outcome r = qltest::Shell("{ " + pxhost + " xmp " + book.path() + " >/dev/null; }");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "pxhost: " + book.path() +
                       ": swatch \"Bad\uFFFD\": its name holds a character XML cannot hold, so "
                       "the swatch packet cannot list it (palette and thumbnail show the book)\n");

  const std::string warning = "pxhost: " + book.path() +
                              ": swatch \"Bad\uFFFD\": its name holds a character no text may "
                              "hold; shown as U+FFFD\n";
  std::string gpl = (fs::path(book.path()).parent_path() / "bad.gpl").string();
  r = qltest::Shell("{ " + pxhost + " palette " + book.path() + " -o " + gpl + " >/dev/null; }");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, warning);
  std::ifstream in(gpl);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::string name;
  int columns = 0;
  std::vector<GplColour> colours;
  ASSERT_TRUE(ParseGpl(text, &name, &columns, &colours, &error)) << error;
  ASSERT_EQ(colours.size(), 3u);
  EXPECT_EQ(colours[0].name, "Bad\uFFFD");
  EXPECT_EQ(colours[1].name, "#0000ff");  // its colour, not "Bad"'s name
  EXPECT_EQ(std::tuple(colours[2].r, colours[2].g, colours[2].b), std::tuple(0, 128, 128));
  auto json = nlohmann::json::parse(PxhostOut("palette -f json " + book.path()).out);
  EXPECT_EQ(json["swatches"][1]["name"], "");
  EXPECT_NE(PxhostOut("palette -f css " + book.path()).out.find("  --swatch-0000ff: #0000ff;\n"),
            std::string::npos);

  std::string png = (fs::path(book.path()).parent_path() / "bad.png").string();
  r = qltest::Shell(pxhost + " thumbnail -s 64 " + book.path() + " " + png);
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out, warning);
  EXPECT_TRUE(fs::exists(png));
}

// The format's limit of 10000 blocks is said in the refusal, the same from
// every command.
TEST(Palette, TheBlockLimitIsSaid) {
  nlohmann::json blocks = nlohmann::json::array();
  for (int n = 0; n < 10001; ++n)
    blocks.push_back({{"swatch", "s"}, {"model", "RGB "}, {"values", {0, 0, 0}}});
  std::string sxf, error;
  ASSERT_TRUE(sxfwrite::BuildSxf(nlohmann::json{{"blocks", blocks}}, &sxf, &error)) << error;
  qltest::DiskFile book("big.sxf", sxf);
  for (std::string command : {"palette", "xmp"}) {
    Outcome r = qltest::Shell("{ " + std::string(QL_PXHOST) + " " + command + " " + book.path() +
                              " >/dev/null; }");
    EXPECT_EQ(r.status, 1) << command;
    EXPECT_NE(r.out.find(": damaged swatch file: more than 10000 blocks, the most a swatch "
                         "exchange file may hold"),
              std::string::npos)
        << command << ": " << r.out;
  }
  // identify answers on standard output: the file is not one it takes.
  EXPECT_NE(PxhostOut("identify " + book.path()).out.find("more than 10000 blocks"),
            std::string::npos);
}

}  // namespace
