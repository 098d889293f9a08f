#include "tests/xmp_packet/packet_fixture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "sdk/selectors.h"
#include "tests/support/base64.h"
#include "tests/support/fixture_file.h"
#include "tools/sxfwrite/sxf_writer.h"

extern "C" void PluginMain(int16_t, pixmere::FormatRecord*, intptr_t*, int16_t*);

namespace xmppacket {

namespace {

bool StartToolkit() {
  static const bool started = xmptk::Initialize();
  return started;
}

std::string NamespaceOf(const std::string& path) {
  return xmptk::NamespaceURI(path.substr(0, path.find(':')).c_str());
}

}  // namespace

std::string SwatchFile(const nlohmann::json& blocks, const nlohmann::json& extra) {
  nlohmann::json description = extra.is_object() ? extra : nlohmann::json::object();
  description["blocks"] = blocks;
  std::string bytes, error;
  EXPECT_TRUE(sxfwrite::BuildSxf(description, &bytes, &error)) << error;
  return bytes;
}

nlohmann::json Rgb(const std::string& name, double r, double g, double b) {
  return {{"swatch", name}, {"model", "RGB "}, {"values", {r, g, b}}};
}

pxhost::SessionOptions DefaultOptions() {
  pxhost::SessionOptions options;
  options.fileType = pixmere::FourCC("SXF ");
  return options;
}

Request RunXmpRequest(const std::string& fileBytes, const pxhost::SessionOptions& options) {
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

std::string PacketOf(const nlohmann::json& blocks) {
  Request r = RunXmpRequest(SwatchFile(blocks));
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

double Packet::Number(const std::string& path) const {
  std::string text = Text(path);
  EXPECT_FALSE(text.empty()) << path;
  return std::strtod(text.c_str(), nullptr);
}

int32_t Packet::Count(const std::string& arrayPath) const {
  int32_t n = 0;
  while (Has(arrayPath + "[" + std::to_string(n + 1) + "]")) ++n;
  return n;
}

std::vector<Packet::Page> Packet::Pages() const {
  std::vector<Page> pages;
  for (int32_t n = 1; n <= Count("xmp:PageInfo"); ++n) {
    std::string item = "xmp:PageInfo[" + std::to_string(n) + "]/";
    Page p;
    p.number = int32_t(Number(item + "xmpTPg:PageNumber"));
    p.width = int32_t(Number(item + "xmpGImg:width"));
    p.height = int32_t(Number(item + "xmpGImg:height"));
    p.format = Text(item + "xmpGImg:format");
    p.jpeg = qltest::DecodeBase64(Text(item + "xmpGImg:image"));
    jpegtest::Decode(p.jpeg, p.pixels, p.decodeError);
    pages.push_back(std::move(p));
  }
  return pages;
}

}  // namespace xmppacket
