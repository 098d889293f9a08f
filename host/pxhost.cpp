// pxhost: runs the plug-in the way the host does, from the command line.
//
// Exit codes: 0 success, 1 the plug-in refused a file, 2 usage or I/O error.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "host/atomic_output.h"
#include "host/colour/colour_engine.h"
#include "host/host_simulator.h"
#include "host/image_io.h"
#include "host/thumbnail_command.h"
#include "sdk/host_types.h"
#include "sdk/selectors.h"
#include "sdk/suites.h"
#include "xmp/toolkit.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;

const char kUsage[] =
    "usage: pxhost [--plugin PATH] COMMAND ...\n"
    "\n"
    "commands:\n"
    "  preview FILE... -o OUT      decode each file's embedded thumbnail through read start\n"
    "                              and read continue; OUT is a .png or .ppm file, or a\n"
    "                              directory (ending in /) when several files are given\n"
    "  method FILE...              ask the plug-in's rendering-method suite how each file\n"
    "                              should be previewed: pdf, xmp-thumbnail or\n"
    "                              embedded-thumbnail\n"
    "  identify FILE... [--json]   ask the plug-in (filter file, host type \"SXF \") whether\n"
    "                              each file is a swatch exchange file\n"
    "  xmp FILE [-o OUT.xmp]       run the XMP selector (21) on a swatch exchange file and\n"
    "      [--pages DIR]           write the packet the plug-in handed over (standard output\n"
    "      [--no-binding]          by default); --pages also writes each thumbnail page as\n"
    "                              DIR/page-N.jpg; --no-binding: the host offers no colour\n"
    "                              engine lookup\n"
    "  call SELECTOR FILE          call one selector and print the result code and every\n"
    "       [--file-type CODE]     record field the plug-in wrote; CODE is a four-character\n"
    "       [--no-preview-open]    host file type (default: 0, unknown); PROC is required1..4\n"
    "       [--withhold PROC]      or advance-state (repeatable)\n"
    "       [--json]\n"
    "  thumbnail [-s SIZE] IN OUT  write IN's desktop thumbnail as a PNG file at OUT (any\n"
    "       [--time-limit SECONDS] name): longest side at most SIZE (16..4096, default 256),\n"
    "       [--memory-limit MIB]   never enlarged; the embedded thumbnail, the XMP's JPEG\n"
    "                              thumbnail, the first page rendered (within the limits,\n"
    "                              default 10 s and 1024 MiB) or a swatch book's chips\n"
    "\n"
    "options:\n"
    "  --plugin PATH   the plug-in module (default: $PXHOST_PLUGIN, else qlformat.so\n"
    "                  beside pxhost, else ../lib/qlformat/ from pxhost's folder)\n"
    "  --help          this text (also after any command)\n"
    "\n"
    "exit codes: 0 success, 1 the plug-in refused a file, 2 usage or I/O error\n";

int Usage(const std::string& message) {
  if (!message.empty()) std::fprintf(stderr, "pxhost: %s\n", message.c_str());
  std::fputs("try 'pxhost --help'\n", stderr);
  return kExitUsage;
}

struct Args {
  std::vector<std::string> positional;
  std::map<std::string, std::vector<std::string>> options;  // option -> values ("" for flags)
  bool Has(const std::string& name) const { return options.count(name) != 0; }
  std::string Value(const std::string& name) const {
    auto it = options.find(name);
    return it == options.end() || it->second.empty() ? std::string() : it->second.back();
  }
};

// Parses argv after the command; valueOptions take a value, flagOptions don't.
bool ParseArgs(int argc, char** argv, int first, const std::vector<std::string>& valueOptions,
               const std::vector<std::string>& flagOptions, Args* args, std::string* error) {
  auto in = [](const std::vector<std::string>& v, const std::string& s) {
    for (const auto& x : v)
      if (x == s) return true;
    return false;
  };
  for (int k = first; k < argc; ++k) {
    std::string a = argv[k];
    if (in(valueOptions, a)) {
      if (k + 1 >= argc) {
        *error = a + " needs a value";
        return false;
      }
      args->options[a].push_back(argv[++k]);
    } else if (in(flagOptions, a)) {
      args->options[a];
    } else if (a.size() > 1 && a[0] == '-' && !std::isdigit(static_cast<unsigned char>(a[1]))) {
      // "-1" is a (negative selector) argument, not an option.
      *error = "unknown option " + a;
      return false;
    } else {
      args->positional.push_back(a);
    }
  }
  return true;
}

bool ParseFourCC(const std::string& text, uint32_t* code) {
  if (text == "0") {
    *code = 0;
    return true;
  }
  if (text.size() != 4) return false;
  *code = 0;
  for (char c : text) *code = (*code << 8) | uint8_t(c);
  return true;
}

std::string FourCCText(int32_t code) {
  std::string s;
  for (int shift = 24; shift >= 0; shift -= 8) s += char((uint32_t(code) >> shift) & 0xFF);
  return s;
}

int Preview(PluginMainProc entry, const Args& args) {
  if (args.positional.empty()) return Usage("preview: no input file");
  std::string out = args.Value("-o");
  if (out.empty()) return Usage("preview: -o OUT is required");
  bool toDir = out != "-" && (out.back() == '/' || std::filesystem::is_directory(out));
  if (args.positional.size() > 1 && !toDir) return Usage("preview: several files need -o DIR/");
  std::error_code ec;
  auto kind = std::filesystem::status(out, ec).type();
  bool special = kind != std::filesystem::file_type::not_found &&
                 kind != std::filesystem::file_type::regular && !toDir;
  // Standard output and devices get PNG whatever their name.
  if (!toDir && out != "-" && !special && !pxhost::IsImageName(out))
    return Usage("preview: " + out + ": unknown image format (use .png or .ppm)");
  if (toDir) {
    std::filesystem::create_directories(out, ec);
    if (ec) return Usage("preview: cannot create " + out + ": " + ec.message());
  }
  int status = kExitOk;
  std::set<std::string> written;  // inputs with the same stem get -2, -3, ...
  for (const std::string& file : args.positional) {
    pxhost::SessionOptions options;
    options.previewOpen = true;
    pxhost::HostSession session(entry, file, options);
    if (!session.IsOpen()) {
      std::fprintf(stderr, "pxhost: %s\n", session.OpenError().c_str());
      status = kExitUsage;
      continue;
    }
    int16_t result = session.Call(pixmere::kSelectorReadStart);
    if (result == 0) result = session.Call(pixmere::kSelectorReadContinue);
    if (result != 0 || session.AdvanceCalls().size() != 1) {
      std::fprintf(stderr, "pxhost: %s: no embedded thumbnail (result %d)\n", file.c_str(), result);
      if (status == kExitOk) status = kExitRefused;
      continue;
    }
    const pxhost::AdvanceCall& call = session.AdvanceCalls().front();
    pxhost::RgbImage image{call.right - call.left, call.bottom - call.top, call.pixels};
    session.Call(4);  // read finish: the plug-in gives back its suites
    std::string target = out;
    if (toDir) {
      std::string ext = std::filesystem::path(out).extension() == ".ppm" ? ".ppm" : ".png";
      std::string base = (std::filesystem::path(out) / std::filesystem::path(file).stem()).string();
      target = base + ext;
      for (int n = 2; written.count(target) != 0; ++n)
        target = base + "-" + std::to_string(n) + ext;
      written.insert(target);
    }
    std::string bytes;
    std::string err = pxhost::EncodeImage(target, image, &bytes);
    pxhost::AtomicOutput output;
    if (err.empty() &&
        !(output.Open(target, args.positional) && output.Write(bytes) && output.Commit()))
      err = target + ": " + output.Error();
    if (!err.empty()) {
      std::fprintf(stderr, "pxhost: %s\n", err.c_str());
      status = kExitUsage;
      continue;
    }
    if (target != "-")
      std::printf("%s: %dx%d -> %s\n", file.c_str(), image.width, image.height, target.c_str());
  }
  return status;
}

int Method(PluginMainProc entry, const Args& args) {
  if (args.positional.empty()) return Usage("method: no input file");
  // The plug-in publishes its suite on its first call; make one.
  {
    pxhost::SessionOptions options;
    options.fileType = pixmere::FourCC("TEXT");
    pxhost::HostSession session(entry, args.positional.front(), options);
    session.Call(0);
  }
  const void* procs = nullptr;
  auto& registry = pxhost::SuiteRegistry::Get();
  if (registry.Acquire(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion,
                       &procs) != 0 ||
      procs == nullptr) {
    std::fprintf(stderr, "pxhost: the plug-in did not publish \"%s\"\n",
                 pixmere::kQLRenderingMethodSuite);
    return kExitRefused;
  }
  auto* suite = static_cast<const pixmere::QLRenderingMethodSuite*>(procs);
  int status = kExitOk;
  for (const std::string& file : args.positional) {
    int32_t method = 0;
    int32_t err = suite->GetQLRenderingMethodForFile(file.c_str(), &method);
    if (err != 0) {
      std::printf("%s: %s\n", file.c_str(), FourCCText(err).c_str());
      status = kExitRefused;
      continue;
    }
    const char* name = method == pixmere::kQLRenderingMethodPDF            ? "pdf"
                       : method == pixmere::kQLRenderingMethodXMPThumbnail ? "xmp-thumbnail"
                                                                           : "embedded-thumbnail";
    std::printf("%s: %s\n", file.c_str(), name);
  }
  registry.Release(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion);
  return status;
}

int Identify(PluginMainProc entry, const Args& args) {
  if (args.positional.empty()) return Usage("identify: no input file");
  nlohmann::json report = nlohmann::json::array();
  int status = kExitOk;
  for (const std::string& file : args.positional) {
    pxhost::SessionOptions options;
    options.fileType = pixmere::FourCC("SXF ");
    pxhost::HostSession session(entry, file, options);
    if (!session.IsOpen()) {
      std::fprintf(stderr, "pxhost: %s\n", session.OpenError().c_str());
      status = kExitUsage;
      continue;
    }
    int16_t result = session.Call(pixmere::kSelectorFilterFile);
    bool swatch = result == 0;
    if (args.Has("--json"))
      report.push_back({{"file", file}, {"swatchExchangeFile", swatch}, {"result", result}});
    else
      std::printf("%s: %s\n", file.c_str(), swatch ? "swatch exchange file" : "vector file");
  }
  if (args.Has("--json")) std::printf("%s\n", report.dump(2).c_str());
  return status;
}

int Xmp(PluginMainProc entry, const Args& args) {
  if (args.positional.size() != 1) return Usage("xmp: expected one FILE");
  const std::string& file = args.positional[0];
  pxhost::SessionOptions options;
  options.fileType = pixmere::FourCC("SXF ");
  hostcolour::SetBindingOffered(!args.Has("--no-binding"));
  pxhost::HostSession session(entry, file, options);
  if (!session.IsOpen()) {
    std::fprintf(stderr, "pxhost: %s\n", session.OpenError().c_str());
    return kExitUsage;
  }
  int16_t result = session.Call(pixmere::kSelectorFilterFile);
  if (result != 0) {
    std::fprintf(stderr, "pxhost: %s: not a swatch exchange file (result %d)\n", file.c_str(),
                 result);
    return kExitRefused;
  }
  result = session.Call(pixmere::kSelectorXMP);
  pixmere::Handle handle = session.Record().xmpHandle;
  bool handedOver = false;
  for (const auto& [field, value] : session.WrittenFields())
    handedOver = handedOver || std::strcmp(field->name, "xmpHandle") == 0;
  if (result != 0 || !handedOver) {
    std::fprintf(stderr, "pxhost: %s: the plug-in handed over no XMP packet (result %d)\n",
                 file.c_str(), result);
    return kExitRefused;
  }
  std::string packet = session.HandleBytes(handle);
  // Everything is written to temporary files first and renamed only when all
  // of it was written: a failed run leaves nothing.
  std::vector<std::unique_ptr<pxhost::AtomicOutput>> outputs;
  auto write = [&](const std::string& target, const std::string& bytes) {
    outputs.push_back(std::make_unique<pxhost::AtomicOutput>());
    pxhost::AtomicOutput& o = *outputs.back();
    if (o.Open(target, {file}) && o.Write(bytes)) return true;
    std::fprintf(stderr, "pxhost: %s: %s\n", target.c_str(), o.Error().c_str());
    return false;
  };
  if (!write(args.Has("-o") ? args.Value("-o") : "-", packet)) return kExitUsage;
  std::vector<std::string> pages;
  if (args.Has("--pages")) {
    std::string dir = args.Value("--pages");
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
      std::fprintf(stderr, "pxhost: %s: cannot make the folder: %s\n", dir.c_str(),
                   ec.message().c_str());
      return kExitUsage;
    }
    xmptk::Initialize();
    bool ok = true;
    try {
      xmptk::XMPMeta meta(packet.data(), uint32_t(packet.size()));
      const char* xmpNS = xmptk::NamespaceURI("xmp");
      const char* imgNS = xmptk::NamespaceURI("xmpGImg");
      for (int32_t n = 1; ok; ++n) {
        std::string item, path, image;
        uint32_t opts = 0;
        xmptk::XMPUtils::ComposeArrayItemPath(xmpNS, "PageInfo", n, &item);
        xmptk::XMPUtils::ComposeStructFieldPath(xmpNS, item.c_str(), imgNS, "image", &path);
        if (!meta.GetProperty(xmpNS, path.c_str(), &image, &opts)) break;
        std::string target =
            (std::filesystem::path(dir) / ("page-" + std::to_string(n) + ".jpg")).string();
        std::string jpeg;
        xmptk::XMPUtils::DecodeFromBase64(image.data(), uint32_t(image.size()), &jpeg);
        ok = write(target, jpeg);
        pages.push_back(target);
      }
    } catch (const xmptk::XMPError& e) {
      std::fprintf(stderr, "pxhost: %s: the packet's page images cannot be read (XMP error %d)\n",
                   file.c_str(), int(e.GetID()));
      ok = false;
    }
    xmptk::Terminate();
    if (!ok) return kExitRefused;
  }
  for (auto& o : outputs) {
    if (!o->Commit()) {
      std::fprintf(stderr, "pxhost: %s: %s\n", o->Target().c_str(), o->Error().c_str());
      return kExitUsage;
    }
  }
  if (args.Has("-o"))
    for (const std::string& page : pages) std::printf("%s\n", page.c_str());
  return kExitOk;
}

// A whole number within [low, high], or false.
bool ParseBounded(const std::string& text, long low, long high, int32_t* value) {
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != 0 || errno != 0 || v < low || v > high) return false;
  *value = int32_t(v);
  return true;
}

int Thumbnail(PluginMainProc entry, const Args& args) {
  if (args.positional.size() != 2) return Usage("thumbnail: expected IN OUT");
  pxhost::ThumbnailOptions options;
  if (args.Has("-s") && !ParseBounded(args.Value("-s"), 16, 4096, &options.size))
    return Usage("thumbnail: -s takes a size from 16 to 4096");
  if (args.Has("--time-limit") &&
      !ParseBounded(args.Value("--time-limit"), 1, 3600, &options.limits.seconds))
    return Usage("thumbnail: --time-limit takes 1 to 3600 seconds");
  int32_t mib = 0;
  if (args.Has("--memory-limit")) {
    if (!ParseBounded(args.Value("--memory-limit"), 64, 65536, &mib))
      return Usage("thumbnail: --memory-limit takes 64 to 65536 MiB");
    options.limits.memoryBytes = int64_t(mib) << 20;
  }
  return pxhost::RunThumbnail(entry, args.positional[0], args.positional[1], options);
}

int Call(PluginMainProc entry, const Args& args) {
  if (args.positional.size() != 2) return Usage("call: expected SELECTOR FILE");
  char* end = nullptr;
  errno = 0;
  long selector = std::strtol(args.positional[0].c_str(), &end, 10);
  if (end == args.positional[0].c_str() || *end != 0 || errno != 0 || selector < -32768 ||
      selector > 32767)
    return Usage("call: bad selector " + args.positional[0]);
  pxhost::SessionOptions options;
  if (args.Has("--file-type") && !ParseFourCC(args.Value("--file-type"), &options.fileType))
    return Usage("call: --file-type takes a four-character code or 0");
  options.previewOpen = !args.Has("--no-preview-open");
  if (args.Has("--withhold")) {
    for (const std::string& name : args.options.at("--withhold")) {
      pxhost::HostProc proc;
      if (!pxhost::ParseHostProc(name, &proc)) return Usage("call: cannot withhold " + name);
      options.withheld.insert(proc);
    }
  }
  pxhost::HostSession session(entry, args.positional[1], options);
  if (!session.IsOpen()) {
    std::fprintf(stderr, "pxhost: %s\n", session.OpenError().c_str());
    return kExitUsage;
  }
  int16_t result = session.Call(int16_t(selector));
  auto written = session.WrittenFields();
  if (args.Has("--json")) {
    nlohmann::json fields = nlohmann::json::object();
    for (const auto& [field, value] : written) {
      if (field->pointer)
        fields[field->name] = value == 0 ? nlohmann::json(nullptr) : nlohmann::json("non-null");
      else
        fields[field->name] = value;
    }
    nlohmann::json j{{"selector", selector},
                     {"result", result},
                     {"fields", fields},
                     {"advanceStateCalls", session.AdvanceCalls().size()}};
    std::printf("%s\n", j.dump(2).c_str());
  } else {
    std::printf("result: %d\n", result);
    for (const auto& [field, value] : written) {
      if (field->pointer)
        std::printf("%s: %s\n", field->name, value == 0 ? "null" : "non-null");
      else
        std::printf("%s: %lld\n", field->name, static_cast<long long>(value));
    }
    std::printf("advance-state calls: %zu\n", session.AdvanceCalls().size());
  }
  return result == 0 ? kExitOk : kExitRefused;
}

}  // namespace

int main(int argc, char** argv) {
  int k = 1;
  std::string pluginPath;
  for (; k < argc; ++k) {
    std::string a = argv[k];
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      return kExitOk;
    }
    if (a == "--plugin") {
      if (k + 1 >= argc) return Usage("--plugin needs a path");
      pluginPath = argv[++k];
      continue;
    }
    break;
  }
  if (k >= argc) return Usage("no command");
  std::string command = argv[k++];
  for (int j = k; j < argc; ++j) {
    if (std::strcmp(argv[j], "--help") == 0 || std::strcmp(argv[j], "-h") == 0) {
      std::fputs(kUsage, stdout);
      return kExitOk;
    }
  }

  struct Command {
    std::vector<std::string> valueOptions, flagOptions;
    std::function<int(PluginMainProc, const Args&)> run;
  };
  const std::map<std::string, Command> commands{
      {"preview", {{"-o", "--plugin"}, {}, Preview}},
      {"method", {{"--plugin"}, {}, Method}},
      {"identify", {{"--plugin"}, {"--json"}, Identify}},
      {"xmp", {{"-o", "--pages", "--plugin"}, {"--no-binding"}, Xmp}},
      {"thumbnail", {{"-s", "--time-limit", "--memory-limit", "--plugin"}, {}, Thumbnail}},
      {"call", {{"--file-type", "--withhold", "--plugin"}, {"--no-preview-open", "--json"}, Call}},
  };
  auto it = commands.find(command);
  if (it == commands.end()) return Usage("unknown command " + command);
  Args args;
  std::string error;
  if (!ParseArgs(argc, argv, k, it->second.valueOptions, it->second.flagOptions, &args, &error))
    return Usage(command + ": " + error);
  if (args.Has("--plugin")) pluginPath = args.Value("--plugin");
  std::vector<std::string> tried;
  pluginPath = pxhost::FindPlugin(pluginPath, &tried);
  if (pluginPath.empty()) {
    std::string places;
    for (const std::string& t : tried) places += (places.empty() ? "" : ", ") + t;
    std::fprintf(stderr, "pxhost: no plug-in module found (looked at %s); use --plugin PATH\n",
                 places.c_str());
    return kExitUsage;
  }

  PluginMainProc entry = pxhost::LoadPlugin(pluginPath, &error);
  if (entry == nullptr) {
    std::fprintf(stderr, "pxhost: cannot load the plug-in: %s\n", error.c_str());
    return kExitUsage;
  }
  return it->second.run(entry, args);
}
