// Selector 21 as the host sees it, the pxhost xmp command, and a packet read
// by exiv2.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "host/colour/colour_engine.h"
#include "sdk/host_types.h"
#include "tests/support/fixture_file.h"
#include "tests/xmp_packet/packet_fixture.h"
#include "xmp/host_binding.h"

namespace {

using nlohmann::json;
using qltest::Outcome;
using qltest::Shell;
using xmppacket::Packet;
using xmppacket::Request;
using xmppacket::RunXmpRequest;
using xmppacket::SwatchFile;

json ThreeModes() {
  return json::array({xmppacket::Rgb("Red", 1, 0, 0), xmppacket::Swatch("Ink", "Gray", {0.1}),
                      xmppacket::Swatch("Sand", "LAB ", {0.8, 4, 18})});
}

TEST(XmpRequest, HandsOverExactlyThePacket) {
  hostcolour::Counters before = hostcolour::GetCounters();
  Request r = RunXmpRequest(SwatchFile(ThreeModes()));
  EXPECT_EQ(r.result, 0);
  ASSERT_TRUE(r.handedOver);
  // No terminator: the handle is the packet's length, and ends with the
  // packet's closing processing instruction.
  EXPECT_EQ(r.handleSize, int32_t(r.packet.size()));
  EXPECT_EQ(r.packet.back(), '>');

  // The colour engine was used and everything the request took from it was
  // given back; the binding is down again, so its wrappers are inert.
  hostcolour::Counters after = hostcolour::GetCounters();
  EXPECT_GE(after.conversions - before.conversions, 2u);
  EXPECT_EQ(after.liveObjects, 0);
  EXPECT_EQ(CTinct::ProfileFromCode(pixmere::FourCC("mRGB")), nullptr);
}

TEST(XmpRequest, WhateverTheReaderLeavesIsDescribed) {
  // No swatches: no groups and one white 31 x 31 page.
  struct Case {
    const char* what;
    std::string bytes;
  } cases[] = {
      {"not a swatch file", "%!PS-Adobe-3.0\nshowpage\n"},
      {"an empty file", ""},
      {"a swatch file without swatches", SwatchFile(json::array())},
  };
  for (const Case& c : cases) {
    Request r = RunXmpRequest(c.bytes);
    EXPECT_EQ(r.result, 0) << c.what;
    ASSERT_TRUE(r.handedOver) << c.what;
    Packet p(r.packet);
    EXPECT_EQ(p.Count("xmpTPg:SwatchGroups"), 0) << c.what;
    std::vector<Packet::Page> pages = p.Pages();
    ASSERT_EQ(pages.size(), 1u) << c.what;
    EXPECT_EQ(pages[0].width, 31) << c.what;
    EXPECT_EQ(pages[0].height, 31) << c.what;
    const std::vector<uint8_t>& px = pages[0].pixels.pixels;
    EXPECT_GE(*std::min_element(px.begin(), px.end()), 250) << c.what;
  }
}

TEST(XmpRequest, NoBindingOrNoHandleMeansNoPacket) {
  hostcolour::SetBindingOffered(false);
  Request r = RunXmpRequest(SwatchFile(ThreeModes()));
  hostcolour::SetBindingOffered(true);
  EXPECT_EQ(r.result, 0);  // without the binding there is nothing to report
  EXPECT_FALSE(r.handedOver);
  EXPECT_EQ(r.handleSize, -1);

  r = RunXmpRequest(SwatchFile(ThreeModes()), /*newHandleFails=*/true);
  EXPECT_EQ(r.result, pixmere::kResultCannotRead);
  EXPECT_FALSE(r.handedOver);
  EXPECT_EQ(hostcolour::GetCounters().liveObjects, 0);
}

std::string ReadAll(const std::string& path) {
  std::stringstream s;
  s << std::ifstream(path, std::ios::binary).rdbuf();
  return s.str();
}

// Two pages: a full one of 81 chips, and the last chip on page 2.
json TwoPages() {
  json blocks = json::array({xmppacket::Rgb("Première", 1, 0, 0)});
  for (int i = 1; i < 82; ++i) blocks.push_back(xmppacket::Rgb("s" + std::to_string(i), 0, 1, 0));
  return blocks;
}

TEST(PxhostXmp, WritesThePacketAndPages) {
  qltest::DiskFile file("book.sxf", SwatchFile(TwoPages()));
  std::string dir = file.path() + ".pages", out = file.path() + ".xmp";
  Outcome r =
      Shell(std::string(QL_PXHOST) + " xmp " + file.path() + " -o " + out + " --pages " + dir);
  ASSERT_EQ(r.status, 0) << r.out;
  std::vector<Packet::Page> pages = Packet(ReadAll(out)).Pages();
  ASSERT_EQ(pages.size(), 2u);
  EXPECT_EQ(ReadAll(dir + "/page-1.jpg"), pages[0].jpeg);
  EXPECT_EQ(ReadAll(dir + "/page-2.jpg"), pages[1].jpeg);
  std::filesystem::remove_all(dir);
}

TEST(PxhostXmp, RefusalsExplainThemselves) {
  qltest::DiskFile text("notes.txt", "just some text\n");
  Outcome r = Shell(std::string(QL_PXHOST) + " xmp " + text.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("not a swatch exchange file"), std::string::npos) << r.out;

  qltest::DiskFile book("book.sxf", SwatchFile(ThreeModes()));
  r = Shell(std::string(QL_PXHOST) + " xmp " + book.path() + " --no-binding");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("handed over no XMP packet"), std::string::npos) << r.out;
}

TEST(Exiv2, ReadsNamesAndPages) {
  if (access("/usr/bin/exiv2", X_OK) != 0) GTEST_SKIP() << "exiv2 is not installed";
  qltest::DiskFile sidecar("book.xmp", xmppacket::PacketOf(TwoPages()));
  Outcome o = Shell("/usr/bin/exiv2 -px " + sidecar.path());
  EXPECT_EQ(o.status, 0) << o.out;
  EXPECT_NE(o.out.find("swatchName"), std::string::npos) << o.out.substr(0, 2000);
  EXPECT_NE(o.out.find("Première"), std::string::npos);
  EXPECT_NE(o.out.find("s81"), std::string::npos);
  size_t pages = 0;
  for (size_t at = 0; (at = o.out.find("PageNumber", at)) != std::string::npos; ++at) ++pages;
  EXPECT_EQ(pages, 2u);
}

}  // namespace
