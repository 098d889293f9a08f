#include "tests/xmp_packet/packet_fixture.h"

#include <gtest/gtest.h>

#include <cstring>

#include "host/host_simulator.h"
#include "sdk/plugin_main.h"
#include "sdk/selectors.h"
#include "tests/support/fixture_file.h"
#include "tools/sxfwrite/sxf_writer.h"

namespace xmppacket {

using nlohmann::json;

namespace {

bool StartToolkit() {
  static const bool started = xmptk::Initialize();
  return started;
}

std::string NamespaceOf(const std::string& path) {
  return xmptk::NamespaceURI(path.substr(0, path.find(':')).c_str());
}

}  // namespace

std::string SwatchFile(const json& blocks, const json& extra) {
  json description = extra.is_object() ? extra : json::object();
  description["blocks"] = blocks;
  std::string bytes, error;
  EXPECT_TRUE(sxfwrite::BuildSxf(description, &bytes, &error)) << error;
  return bytes;
}

json Rgb(const std::string& name, double r, double g, double b) {
  return Swatch(name, "RGB ", {r, g, b});
}

json Swatch(const std::string& name, const char* model, const std::vector<double>& values,
            int typeWord, std::optional<double> tint) {
  json block = {{"swatch", name}, {"model", model}, {"values", values}, {"type", typeWord}};
  if (tint) block["tint"] = *tint;
  return block;
}

json& AddGroup(json& blocks, const std::string& name, const json& swatches) {
  blocks.push_back({{"group", name}});
  for (const json& s : swatches) blocks.push_back(s);
  blocks.push_back({{"groupEnd", true}});
  return blocks;
}

Request RunXmpRequest(const std::string& fileBytes, bool newHandleFails) {
  pxhost::SessionOptions options;
  options.fileType = pixmere::FourCC("SXF ");
  options.newHandleFails = newHandleFails;
  qltest::MemFile file(fileBytes);
  pxhost::HostSession session(&PluginMain, file.fd(), options);
  Request r;
  r.result = session.Call(pixmere::kSelectorXMP);
  for (const auto& [field, value] : session.WrittenFields())
    r.handedOver = r.handedOver || std::strcmp(field->name, "xmpHandle") == 0;
  if (!session.HandleSizes().empty()) r.handleSize = session.HandleSizes().back();
  if (r.handedOver) r.packet = session.HandleBytes(session.Record().xmpHandle);
  return r;
}

std::string PacketOf(const json& blocks, const json& extra) {
  Request r = RunXmpRequest(SwatchFile(blocks, extra));
  EXPECT_EQ(r.result, 0);
  EXPECT_TRUE(r.handedOver);
  return r.packet;
}

Packet::Packet(const std::string& packet)
    : meta_((StartToolkit(), xmptk::XMPMeta(packet.data(), uint32_t(packet.size())))) {}

bool Packet::Has(const std::string& path) const {
  return meta_.GetProperty(NamespaceOf(path).c_str(), path.c_str(), nullptr, nullptr);
}

std::string Packet::Text(const std::string& path) const {
  std::string value;
  meta_.GetProperty(NamespaceOf(path).c_str(), path.c_str(), &value, nullptr);
  return value;
}

int32_t Packet::Count(const std::string& arrayPath) const {
  int32_t n = 0;
  while (Has(arrayPath + "[" + std::to_string(n + 1) + "]")) ++n;
  return n;
}

std::vector<Packet::Page> Packet::Pages() const {
  std::vector<Page> pages;
  for (int32_t n = 1; n <= Count("xmp:PageInfo"); ++n) {
    std::string item = "xmp:PageInfo[" + std::to_string(n) + "]/", error;
    Page p;
    EXPECT_EQ(Text(item + "xmpTPg:PageNumber"), std::to_string(n));
    EXPECT_EQ(Text(item + "xmpGImg:format"), "JPEG");
    p.width = std::stoi(Text(item + "xmpGImg:width"));
    p.height = std::stoi(Text(item + "xmpGImg:height"));
    const std::string image = Text(item + "xmpGImg:image");
    xmptk::XMPUtils::DecodeFromBase64(image.data(), uint32_t(image.size()), &p.jpeg);
    EXPECT_TRUE(jpegtest::Decode(p.jpeg, p.pixels, error)) << "page " << n << ": " << error;
    EXPECT_EQ(p.pixels.width, p.width);
    EXPECT_EQ(p.pixels.height, p.height);
    pages.push_back(std::move(p));
  }
  return pages;
}

}  // namespace xmppacket
