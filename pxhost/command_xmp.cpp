// pxhost xmp FILE [-o OUT] [--pages DIR]: the swatch packet the plug-in hands
// the host (the XMP selector), and the chip pages inside it.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>

#include "host/colour/colour_engine.h"
#include "pxhost/atomic_output.h"
#include "pxhost/commands.h"
#include "pxhost/plugin_requests.h"
#include "pxhost/report.h"
#include "xmp/toolkit.h"

namespace pxhost {
namespace {

struct XmpOptions {
  std::string file;
  std::string out = "-";
  std::string pages;
  bool noBinding = false;
  bool json = false;
};

// The base64 JPEG of every xmp:PageInfo item, in order. False (with *error)
// when the packet cannot be read.
bool PageImages(const std::string& packet, std::vector<std::string>* jpegs, std::string* error) {
  xmptk::Initialize();
  bool ok = true;
  try {
    xmptk::XMPMeta meta(packet.data(), uint32_t(packet.size()));
    const char* xmpNS = xmptk::NamespaceURI("xmp");
    const char* imgNS = xmptk::NamespaceURI("xmpGImg");
    for (int32_t n = 1;; ++n) {
      std::string item, path, image;
      uint32_t opts = 0;
      xmptk::XMPUtils::ComposeArrayItemPath(xmpNS, "PageInfo", n, &item);
      xmptk::XMPUtils::ComposeStructFieldPath(xmpNS, item.c_str(), imgNS, "image", &path);
      if (!meta.GetProperty(xmpNS, path.c_str(), &image, &opts)) break;
      std::string jpeg;
      xmptk::XMPUtils::DecodeFromBase64(image.data(), uint32_t(image.size()), &jpeg);
      jpegs->push_back(std::move(jpeg));
    }
  } catch (const xmptk::XMPError& e) {
    *error =
        "the packet's page images cannot be read (XMP error " + std::to_string(e.GetID()) + ")";
    ok = false;
  }
  xmptk::Terminate();
  return ok;
}

int Xmp(PluginMainProc entry, const XmpOptions& o) {
  Report report(o.json);
  if (o.json && o.out == "-") {
    std::fputs("pxhost: xmp: --json needs -o OUT (the packet would share standard output)\n",
               stderr);
    return kExitUsage;
  }
  hostcolour::SetBindingOffered(!o.noBinding);
  PluginInput input(o.file);
  if (!input.IsOpen()) {
    report.Refused(o.file, input.Error());
    return report.ExitCode();
  }
  std::string packet, error;
  std::vector<std::string> jpegs;
  if (!RequestSwatchPacket(entry, input, &packet, &error) ||
      (!o.pages.empty() && !PageImages(packet, &jpegs, &error))) {
    report.Refused(o.file, error);
    return report.ExitCode();
  }
  // Everything goes to temporary files first and is renamed only when all of
  // it was written: a failed run leaves nothing.
  std::vector<std::unique_ptr<AtomicOutput>> outputs;
  auto write = [&](const std::string& target, const std::string& bytes) {
    outputs.push_back(std::make_unique<AtomicOutput>());
    AtomicOutput& out = *outputs.back();
    if (out.Open(target, {o.file}) && out.Write(bytes)) return true;
    report.OutputFailed(target, out.Error());
    return false;
  };
  if (!write(o.out, packet)) return report.ExitCode();
  std::vector<std::string> pages;
  if (!o.pages.empty()) {
    std::error_code ec;
    std::filesystem::create_directories(o.pages, ec);
    if (ec) {
      report.OutputFailed(o.pages, "cannot make the folder: " + SystemReason(ec.value()));
      return report.ExitCode();
    }
    for (size_t n = 0; n < jpegs.size(); ++n) {
      pages.push_back(
          (std::filesystem::path(o.pages) / ("page-" + std::to_string(n + 1) + ".jpg")).string());
      if (!write(pages.back(), jpegs[n])) return report.ExitCode();
    }
  }
  // The packet and its pages take their places together or not at all.
  if (AtomicOutput* failed = AtomicOutput::CommitAll(outputs)) {
    report.OutputFailed(failed->Target(), failed->Error());
    return report.ExitCode();
  }
  std::string text;
  for (const std::string& page : pages) text += (text.empty() ? "" : "\n") + page;
  report.Done(o.file, {{"output", o.out}, {"bytes", packet.size()}, {"pages", pages}},
              o.out == "-" ? "" : text);
  return report.ExitCode();
}

}  // namespace

CommandRun SetUpXmp(CLI::App& command) {
  auto o = std::make_shared<XmpOptions>();
  command.add_option("FILE", o->file, "a swatch exchange file; - is standard input")->required();
  command.add_option("-o,--output", o->out, "where the packet goes (default: standard output)");
  command.add_option("--pages", o->pages, "also write each chip page as DIR/page-N.jpg");
  command.add_flag("--no-binding", o->noBinding, "the host offers no colour engine lookup");
  command.add_flag("--json", o->json, "a JSON object telling what was written (needs -o)");
  return [o](PluginMainProc entry) { return Xmp(entry, *o); };
}

}  // namespace pxhost
