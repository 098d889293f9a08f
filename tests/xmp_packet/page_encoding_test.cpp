// The pages encoded on a second thread beside the swatch groups: the same
// packet as encoding them after the groups on the request thread, and the
// thread's errors and stops as the request sees them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "swatchbook/vantor_swatch_book.h"
#include "tests/support/memory_stream.h"
#include "tests/xmp_packet/packet_fixture.h"
#include "xmp/aside_task.h"
#include "xmp/host_binding.h"
#include "xmp/xmp_mgmt.h"

namespace {

using nlohmann::json;
using Encoding = XMPMgmt::PageEncoding;

// The packet of a fresh book read from the file, with the host's colour
// engine bound as in a request.
std::string Generate(const std::string& file, Encoding encoding) {
  VantorSwatchBook book;
  qltest::MemoryStream stream(file);
  book.ParseSXF(stream, 0);
  std::string packet;
  EXPECT_EQ(WeftClientInit(FindWeftProcLookup()), 0);
  EXPECT_TRUE(xmptk::Initialize());
  XMPMgmt(encoding).GenerateXMP(book, packet);
  xmptk::Terminate();
  WeftClientTerminate();
  return packet;
}

// Loose swatches, then groups of 1 to 23 cycling through every model the
// pages draw plus one the reader does not know (no colour, no chip), tinted or not, of every type,
// some without a name: pages full and partial, rows grouped and not, chips from both the RGB blend
// and the engine.
std::string MixedBook(int swatches) {
  const char* models[] = {"RGB ", "CMYK", "LAB ", "Gray", "XYZ "};
  json blocks = json::array();
  auto swatch = [&](int g, int s) {
    int m = (g * 7 + s) % 5;
    double v = 0.1 + 0.2 * (s % 5);
    std::vector<double> values = {v, 1 - v, v / 2, 0.3};
    if (m == 2) values = {v, 40.0 - s % 80, 3.0 * (s % 11) - 15};
    std::optional<double> tint;
    if (s % 3 != 0) tint = 0.25 * (s % 4);
    std::string name = s % 13 == 4 ? "" : "S" + std::to_string(g) + "." + std::to_string(s);
    return xmppacket::Swatch(name, models[m], values, s % 3, tint);
  };
  int made = 0;
  for (; made < 40 && made < swatches; ++made) blocks.push_back(swatch(0, made));
  for (int g = 1; made < swatches; ++g) {
    json group = json::array();
    for (int s = 0; s < 1 + g % 23 && made < swatches; ++s, ++made) group.push_back(swatch(g, s));
    xmppacket::AddGroup(blocks, "G" + std::to_string(g), group);
  }
  return xmppacket::SwatchFile(blocks);
}

TEST(PageEncoding, AsideWritesTheSamePacketAsInline) {
  struct Case {
    const char* what;
    std::string file;
    int32_t minPages;
  } cases[] = {
      {"several hundred swatches", MixedBook(400), 4},
      {"nothing the pages draw",
       xmppacket::SwatchFile(json::array({xmppacket::Swatch("x", "XYZ ", {0.9, 1, 0.8}),
                                          {{"group", "Empty"}},
                                          {{"groupEnd", true}}})),
       1},
      {"no swatch at all", xmppacket::SwatchFile(json::array()), 1},
  };
  for (const Case& c : cases) {
    std::string aside = Generate(c.file, Encoding::kAside);
    EXPECT_GE(xmppacket::Packet(aside).Count("xmp:PageInfo"), c.minPages) << c.what;
    EXPECT_TRUE(aside == Generate(c.file, Encoding::kInline)) << c.what;
    // And what the request hands over is that packet.
    EXPECT_TRUE(aside == xmppacket::RunXmpRequest(c.file).packet) << c.what;
  }
}

TEST(AsideTask, WaitHandsOverTheResultOrTheError) {
  std::string result;
  AsideTask build([&result](std::stop_token) { result.assign(100000, 'x'); });
  build.Wait();
  EXPECT_EQ(result.size(), 100000u);

  AsideTask outOfMemory([](std::stop_token) { throw std::bad_alloc(); });
  EXPECT_THROW(outOfMemory.Wait(), std::bad_alloc);

  AsideTask failing([](std::stop_token) { throw std::runtime_error("page 7"); });
  try {
    failing.Wait();
    ADD_FAILURE() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "page 7");
  }
}

TEST(AsideTask, CallersErrorStopsAndJoinsTheTask) {
  // The task runs until asked to stop; the caller's error leaves the scope
  // without Wait(), which must stop the task and join it before going on.
  std::atomic<bool> started = false, stopped = false;
  try {
    AsideTask task([&](std::stop_token stop) {
      started = true;
      while (!stop.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      stopped = true;
      throw std::runtime_error("dropped: the caller's error came first");
    });
    while (!started) std::this_thread::yield();
    throw std::logic_error("groups failed");
  } catch (const std::logic_error&) {
    EXPECT_TRUE(stopped);
  }
}

}  // namespace
