// The rendering-method suite as another host component calls it: acquired
// from the host's registry by name, asked about a file given by path. The
// toolkit's file layer picks a handler from the name and the content, so the
// first input byte chooses the name's extension and the rest is the file.
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/host_simulator.h"
#include "sdk/plugin_main.h"
#include "sdk/selectors.h"
#include "sdk/suites.h"

namespace {

// The extensions the toolkit has handlers for among the files the host
// previews, and none at all.
constexpr const char* kExtensions[] = {".pdf", ".ps", ".eps", ".jpg", ".png", ".tif", ""};

const pixmere::QLRenderingMethodSuite* Suite() {
  // One call through the entry point publishes the suite, as the host's first
  // call to the plug-in does.
  static const pixmere::QLRenderingMethodSuite* suite = [] {
    FILE* empty = std::tmpfile();
    if (empty == nullptr) std::abort();
    pxhost::SessionOptions options;
    options.fileType = pixmere::FourCC("EPSF");
    pxhost::HostSession(&PluginMain, fileno(empty), options).Call(0);
    std::fclose(empty);
    const void* procs = nullptr;
    pxhost::SuiteRegistry::Get().Acquire(pixmere::kQLRenderingMethodSuite,
                                         pixmere::kQLRenderingMethodSuiteVersion, &procs);
    if (procs == nullptr) std::abort();
    return static_cast<const pixmere::QLRenderingMethodSuite*>(procs);
  }();
  return suite;
}

const std::string& Folder() {
  static const std::string folder = [] {
    char name[] = "/tmp/fuzz_rendering_method.XXXXXX";
    if (mkdtemp(name) == nullptr) std::abort();
    // Each run removes its file; the empty folder goes when the driver returns
    // from main (libFuzzer itself leaves through _Exit and keeps it).
    std::atexit([] { rmdir(Folder().c_str()); });
    return std::string(name);
  }();
  return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const pixmere::QLRenderingMethodSuite* suite = Suite();
  std::string path = Folder() + "/input";
  if (size > 0) path += kExtensions[data[0] % std::size(kExtensions)];
  FILE* out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) std::abort();
  if (size > 1 && std::fwrite(data + 1, 1, size - 1, out) != size - 1) std::abort();
  if (std::fclose(out) != 0) std::abort();

  int32_t method = -1;
  int32_t err = suite->GetQLRenderingMethodForFile(path.c_str(), &method);
  // A readable file always gets one of the three methods; "Parm" only when
  // the toolkit threw, which leaves the method cleared.
  if (err == 0 && (method < pixmere::kQLRenderingMethodPDF ||
                   method > pixmere::kQLRenderingMethodEmbeddedThumbnail))
    std::abort();
  if (err != 0 && (err != pixmere::kQLErrParm || method != 0)) std::abort();
  std::remove(path.c_str());
  return 0;
}
